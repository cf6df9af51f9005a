// What lies beside the samples in their file and is found by 'saiz' and 'saio', such as what it
// takes to decrypt them. ISO/IEC 14496-12 8.7.8, 8.7.9.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "toolbox/files/plan.h"

namespace toolbox {

// The data that one 'saio' leads to.
struct AuxiliaryData {
  std::size_t table = 0;  // the 'saio', as an index into the other tables of its rows
  std::vector<CopyRange> ranges;  // without a destination
};

// All that belongs to the samples of a media, which are whole rows in chunks. What contradicts
// itself is left out.
std::vector<AuxiliaryData> FindAuxiliaryData(const MediaRecord& media);

// The tables nobody reads of whole rows, as track `track` (an index) of the plan has them when its
// media data start at byte `dataStart`: their offsets lead to where the data will be.
Siblings OtherTables(const SampleRows& rows, const FilePlan& plan, std::size_t track,
                     std::uint64_t dataStart);

// How many bytes further on what stands at `offset` of the movie's own file will stand.
std::int64_t ShiftAt(std::span<const OffsetShift> shifts, std::uint64_t offset);

}  // namespace toolbox
