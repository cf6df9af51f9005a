// The edits that the options of one input ask for, in their fixed order.
#pragma once

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace input {

// Carries out all of `options` that changes a movie: what is not found is warned of, what fails is
// reported, and the rest is done all the same.
void EditMovie(toolbox::Movie movie, const clipjoin::FileOptions& options);

}  // namespace input
