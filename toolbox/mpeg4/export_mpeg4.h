// A movie as an MPEG-4 file: the tracks that belong there, as ISO/IEC 14496-12 has them.
#pragma once

#include "toolbox/mpeg4/export_settings.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// A self-contained MPEG-4 file with the enabled video track and the enabled sound track of the
// movie, or with `only` that one of them. Throws Refused: featureUnsupported (media that would have
// to be encoded again), invalidSampleDescription, and what PlanFlattened throws.
FilePlan PlanMpeg4(const MovieRecord& movie, const TrackRecord* only,
                   const Mpeg4Settings& settings);

}  // namespace toolbox
