// The edits that the options of one input ask for.
#pragma once

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace input {

// Edits the movie as `options` say, in this order: chapters, time scale, edit lists, tracks,
// matrices, start, length, transparency, rate. Names that do not exist are warned about and
// failures reported; the remaining edits are made all the same.
void EditMovie(toolbox::Movie movie, const clipjoin::FileOptions& options);

}  // namespace input
