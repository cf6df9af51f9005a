// Hint tracks, by which a streaming server sends the other tracks.
#pragma once

#include "toolbox/mpeg4/export_settings.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// Adds a hint track for each track of the plan. One that cannot be made is left out, because the
// movie plays without it.
void AddHintTracks(FilePlan& plan, const Mpeg4Settings& settings);

}  // namespace toolbox
