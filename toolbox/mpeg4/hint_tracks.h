// Tracks that tell a streaming server how to send others.
#pragma once

#include "toolbox/mpeg4/export_settings.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// Adds a hint track for each track of the plan. One that cannot be made is left out: a movie that
// cannot be streamed is still a movie.
void AddHintTracks(FilePlan& plan, const Mpeg4Settings& settings);

}  // namespace toolbox
