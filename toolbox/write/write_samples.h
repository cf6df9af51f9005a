// Makes the 'stbl' of a track (ISO/IEC 14496-12 8.5.1). Table rows are made while they are written.
#pragma once

#include <cstddef>
#include <cstdint>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// The sample table of the track with index `track` in the plan. The media data starts at byte
// `dataStart` of the file. With a FieldSizer this counts the rows of the tables; with a FieldWriter
// it uses those counts. The rows come from the plan, which must outlive the result. Throws Refused:
// invalidSampleTable (more than 2^32 - 1 rows), and what reading the source tables throws.
SampleTableAtoms SampleTableOf(FieldSizer& io, const FilePlan& plan, std::size_t track,
                               std::uint64_t dataStart);
SampleTableAtoms SampleTableOf(FieldWriter& io, const FilePlan& plan, std::size_t track,
                               std::uint64_t dataStart);

}  // namespace toolbox
