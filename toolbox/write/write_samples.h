// Writes a sample table as 'stbl'. Its rows are made while they are written.
#pragma once

#include <cstddef>
#include <cstdint>

#include "toolbox/atoms/fields.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// Writes or measures the sample table of track `track` (an index) of the plan, whose media data
// starts at byte `dataStart` of the file.
void PutSamples(FieldWriter& io, const FilePlan& plan, std::size_t track, std::uint64_t dataStart);
void PutSamples(FieldSizer& io, const FilePlan& plan, std::size_t track, std::uint64_t dataStart);

}  // namespace toolbox
