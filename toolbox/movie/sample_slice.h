// A slice of a sample table: consecutive rows of one file, and their numbers and times in the
// table.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "toolbox/movie/sample_rows.h"

namespace toolbox {

// A sample is counted from the start of the table, a row from the start of its file:
//
//   rows of the file    |  ...  | part.from   ...   part.to |  ...  |
//   samples here                | first       ...   End()   |
//   decode times here           | time        ...   EndTime()
//
// The functions that take a row or a sample expect one of the slice.
struct SampleSlice {
  std::shared_ptr<const SampleRows> rows;
  RowRange part;  // of the rows
  std::uint64_t first = 0;  // the number in the table of the row part.from
  MediaTime time;  // its decode time in the table
  MediaTime rowTime;  // its decode time in the rows
  MediaTime length;  // sum of the durations, `stretch` included
  MediaTime stretch;  // added to the duration of the last sample
  std::int32_t shift = 0;  // added to the offset of every sample
  std::shared_ptr<const std::vector<std::uint32_t>> descriptions;  // by index in the file

  std::uint64_t End() const { return first + part.Count(); }
  MediaTime EndTime() const { return time + length; }
  std::uint32_t RowOf(std::uint64_t sample) const {
    return part.from + static_cast<std::uint32_t>(sample - first);
  }
  std::uint64_t SampleOf(std::uint32_t row) const { return first + (row - part.from); }
  // The rows of those samples of `range` that are in the slice; there must be one.
  RowRange RowsIn(SampleRange range) const {
    return {RowOf(std::max(range.from, first)), RowOf(std::min(range.to, End()))};
  }

  MediaTime TimeOf(std::uint32_t row) const { return time + rows->TimeOf(row) - rowTime; }
  MediaTime DurationOf(std::uint32_t row) const {
    return MediaTime{rows->DurationOf(row)} + (row + 1 == part.to ? stretch : MediaTime{});
  }
  MediaTime ShownAt(std::uint32_t row) const {
    return TimeOf(row) + MediaTime{rows->OffsetOf(row)} + MediaTime{shift};
  }
  // When the first sample starts to be shown and when the last one stops, relative to `time`.
  MediaTime ShownFrom() const { return rows->ShownFrom(part) + MediaTime{shift}; }
  MediaTime ShownUntil() const { return rows->ShownUntil(part) + MediaTime{shift}; }
  bool HasOffsets() const { return shift != 0 || !rows->offsets.IsEmpty(); }
  // Whether `next` starts with the row after the last one here, and no time is between them.
  bool IsContinuedBy(const SampleSlice& next) const {
    return rows == next.rows && part.to == next.part.from && stretch == MediaTime{};
  }
};

}  // namespace toolbox
