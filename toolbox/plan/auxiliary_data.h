// Finds the auxiliary information of samples ('saiz' and 'saio', ISO/IEC 14496-12 8.7.8 and 8.7.9)
// in the source file, so that it can be copied with the samples.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "toolbox/plan/plan.h"

namespace toolbox {

// The data of one 'saio'.
struct AuxiliaryData {
  std::size_t table = 0;  // the 'saio', as an index into the other tables of its rows
  std::vector<CopyRange> ranges;  // in the source; `destination` is not set
};

// All auxiliary information of `samples`. Their descriptions are indexes into those of `media`. The
// result is empty unless the samples are whole rows and all are in chunks. Tables that contradict
// each other are left out.
std::vector<AuxiliaryData> FindAuxiliaryData(const MediaRecord& media, const SampleTable& samples);

// The number of bytes by which the data at `offset` of the movie's own file moves. `shifts` is
// sorted by `from`; each shift holds up to the next one.
std::int64_t ShiftAt(std::span<const OffsetShift> shifts, std::uint64_t offset);

}  // namespace toolbox
