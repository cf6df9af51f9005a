// Repair of edit lists: show all media once, or restore what rounding has cut off.
#pragma once

#include "toolbox/toolbox.h"

namespace utils {

// Makes every track show all of its media once, from movie time 0 and at rate 1. Failures are
// reported and counted.
void RemoveEditLists(toolbox::Movie movie);

// Changes the time scale of the movie to `newScale`. If the media of a track has that scale, and
// rounding to the old scale can have cut off the end of the media, makes the track show that end.
// Failures are reported and counted.
void FixRoundoffErrors(toolbox::Movie movie, toolbox::TimeScale newScale);

}  // namespace utils
