// The edits that the options of one input ask for.
#pragma once

#include "chapter/chapter_list.h"
#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace input {

// Edits the movie as `options` say, in this order: chapters, time scale, edit lists, tracks,
// matrices, start, length, transparency, rate. If a name does not exist, prints a warning; the
// remaining edits are made all the same. Returns the chapter list that the movie had before.
chapter::ChapterList EditMovie(toolbox::Movie movie, const clipjoin::FileOptions& options);

}  // namespace input
