// Repairs of what tracks show: all of their media once, or the little that rounding took away.
#pragma once

#include "toolbox/toolbox.h"

namespace utils {

// Has every track show its whole media once, from movie time 0 at rate 1. Failures are reported and
// counted.
void RemoveEditLists(toolbox::Movie movie);

// Gives the movie a new time scale, and each track whose media has that scale the end of its media
// that rounding between the scales has cut off. Failures are reported and counted.
void FixRoundoffErrors(toolbox::Movie movie, toolbox::TimeScale newScale);

}  // namespace utils
