// Finds the auxiliary information of samples ('saiz' and 'saio', ISO/IEC 14496-12 8.7.8 and 8.7.9)
// in their file, so that it can be copied with them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "toolbox/plan/plan.h"

namespace toolbox {

// The data of one 'saio'.
struct AuxiliaryData {
  std::size_t table = 0;  // the 'saio', as an index into the other tables of its rows
  std::vector<CopyRange> ranges;  // without a destination
};

// All auxiliary information of `samples`, which have the descriptions of `media`. Nothing unless
// the samples are whole rows and all are in chunks. Leaves out tables that contradict one another.
std::vector<AuxiliaryData> FindAuxiliaryData(const MediaRecord& media, const SampleTable& samples);

// By how many bytes the data at `offset` of the movie's own file moves.
std::int64_t ShiftAt(std::span<const OffsetShift> shifts, std::uint64_t offset);

}  // namespace toolbox
