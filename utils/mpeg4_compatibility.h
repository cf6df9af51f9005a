// Whether a movie can be exported as MPEG-4 without conversion, and what would be lost.
#pragma once

#include "toolbox/toolbox.h"

namespace utils {

// Whether the movie has an enabled video track or an enabled sound track, at most one of each. All
// sample descriptions of the video must be MPEG-4 video, or all must be AVC; all those of the sound
// must be AAC. Other tracks do not matter, because they are not exported.
bool isMPEG4Compatible(toolbox::Movie movie);

// Whether the movie has user data other than the location of its window. The export loses it.
bool HasAnnotations(toolbox::Movie movie);

}  // namespace utils
