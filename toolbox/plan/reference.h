// Plans of files whose samples stay where they are.
#pragma once

#include "toolbox/plan/plan.h"

namespace toolbox {

// A reference movie: samples stay where they are, but those in memory are copied. The movie must
// outlive the plan. Throws Refused: couldNotResolveDataRef when the movie's own file is unknown.
FilePlan PlanReference(const MovieRecord& movie);

// The movie saved into its own file: samples stay where they are, but those in memory are copied.
// The movie must outlive the plan.
FilePlan PlanUpdate(const MovieRecord& movie);

}  // namespace toolbox
