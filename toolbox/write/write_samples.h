// Writes a sample table as 'stbl'. Its rows are made while they are written.
#pragma once

#include <cstddef>
#include <cstdint>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// The sample table of track `track` (an index) of the plan, whose media data starts at byte
// `dataStart` of the file. Its rows are counted when it is made for a FieldSizer, and come from the
// plan, which must outlive it.
SampleTableAtoms SampleTableOf(FieldSizer& io, const FilePlan& plan, std::size_t track,
                               std::uint64_t dataStart);
SampleTableAtoms SampleTableOf(FieldWriter& io, const FilePlan& plan, std::size_t track,
                               std::uint64_t dataStart);

}  // namespace toolbox
