// Whether a movie can be exported as MPEG-4 without conversion, and what would be lost.
#pragma once

#include "toolbox/toolbox.h"

namespace utils {

// Whether the movie has at most one enabled video track, with MPEG-4 or with AVC video throughout,
// and at most one enabled sound track, with AAC throughout, and at least one of the two. Other
// tracks do not matter: they are not exported.
bool isMPEG4Compatible(toolbox::Movie movie);

// Whether the movie has user data other than the location of its window. The export loses it.
bool HasAnnotations(toolbox::Movie movie);

}  // namespace utils
