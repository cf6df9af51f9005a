// Plans files whose samples stay in other files, or in place.
#pragma once

#include "toolbox/plan/plan.h"

namespace toolbox {

// Plans a reference movie: samples stay in their files. Tracks with media in memory are copied, and
// so is the GPS data of a dashcam.
// The movie must outlive the plan. Throws Refused: couldNotResolveDataRef (the movie's own file is
// unknown), and what Planner::Prepare and Cut throw.
FilePlan PlanReference(const MovieRecord& movie);

// Plans to save the movie into its own file. Samples are treated as in PlanReference. The movie
// must outlive the plan. Throws what Planner::Prepare and Cut throw.
FilePlan PlanUpdate(const MovieRecord& movie);

}  // namespace toolbox
