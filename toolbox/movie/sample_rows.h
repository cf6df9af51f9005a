// The samples of a media as one file states them. Most columns have one row for a run of samples:
// an object for each sample would take too much memory.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/encoded_tables.h"
#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/group_atoms.h"
#include "toolbox/atoms/siblings.h"
#include "toolbox/bytes.h"
#include "toolbox/held_bytes.h"
#include "toolbox/movie/time.h"

namespace toolbox {

// The indexes [from, to).
template <class Index>
struct IndexRange {
  Index from = 0, to = 0;

  Index Count() const { return to - from; }
  bool IsEmpty() const { return from >= to; }
  friend bool operator==(const IndexRange&, const IndexRange&) = default;
};
using RowRange = IndexRange<std::uint32_t>;  // samples of one file, counted there
using SampleRange = IndexRange<std::uint64_t>;  // samples of a media

// The samples from `sample` on last `delta` media units each. The first is decoded at `time`.
struct TimeRun {
  std::uint32_t sample = 0, delta = 0;
  MediaTime time;
};
// The samples from `sample` on have the group description of that number; 0 is none.
struct GroupRun {
  std::uint32_t sample = 0, group = 0;
};
// Sound of a constant rate is stored in packets of `samples` samples and `bytes` bytes, which must
// not be split. If `bytes` is 0 there are no packets: each sample has the size in its table.
struct Packing {
  std::uint32_t samples = 1, bytes = 0;
};
// One grouping of the samples, ISO/IEC 14496-12 8.9.
struct SampleGroup {
  FourCC grouping;
  std::uint32_t versionAndFlags = 0, parameter = 0;  // of 'sbgp'
  std::optional<SampleGroupDescriptions> descriptions;
  std::vector<GroupRun> runs;
};

// Indexes start at 0. Rows never change once a SampleTable shares them.
struct SampleRows {
  std::uint32_t count = 0;
  Table<TimeRun> times;  // covers all samples
  MediaTime duration;  // sum of all deltas
  OffsetRuns offsets;  // empty: every offset is 0
  // ISO states offsets below 0 in version 1 of their table, QuickTime in version 0.
  std::uint32_t offsetsVersion = 0;
  std::uint32_t constantSize = 0;  // in bytes; 0: `sizes` has them
  EncodedNumbers sizes;  // by sample
  ChunkRuns chunkRuns;  // samples after the last chunk cannot be read
  EncodedNumbers chunkOffsets;  // by chunk, in bytes from the start of its file
  std::vector<Packing> packings;  // by description; empty: no packets
  std::optional<std::vector<std::uint32_t>> sync;  // absent: every sample is a sync sample
  std::vector<std::uint32_t> partialSync;
  // A value for each sample, in order; 0 for samples after the last value.
  Bytes dependencies;  // 'sdtp', ISO/IEC 14496-12 8.6.4
  Bytes padding;  // bits that fill up the last byte of a sample, 8.7.6
  std::vector<std::uint16_t> priorities;  // for players that cannot show all samples, 8.5.3
  std::vector<SampleGroup> groups;
  HeldBytes header;  // the bytes of tables that stay in the form of the file
  Siblings otherTables;  // tables that are only copied; they hold for exactly these samples

  // These fill new rows whose `count` is set. Each adds a run for the next samples, and ignores
  // samples after `count`. Throws Malformed when the sum of the durations is out of range.
  void AddTimes(std::uint32_t samples, std::uint32_t delta);
  void AddOffsets(std::uint32_t samples, std::int32_t offset);
  void AddChunks(std::uint32_t chunk, std::uint32_t chunks, std::uint32_t samplesPerChunk,
                 std::uint32_t description);
  // Makes rows one by one: adds a sample and counts it. It gets its own chunk, at `offset` of its
  // file, so no other sample has to be read to find it.
  void AddSample(std::uint32_t delta, std::uint32_t size, std::uint64_t offset,
                 std::uint32_t description);
  // Makes the last sample longer or shorter, so that it ends at `time`. Changes nothing and returns
  // false if its duration would be 0 or too large for a file.
  bool MoveEnd(MediaTime time);

  // Decode time of a sample; sample == count gives the end.
  MediaTime TimeOf(std::uint32_t sample) const;
  std::uint32_t DurationOf(std::uint32_t sample) const;
  std::int32_t OffsetOf(std::uint32_t sample) const;
  // The run of samples around it that have its duration, or its offset.
  RowRange TimesAround(std::uint32_t sample) const;
  RowRange OffsetsAround(std::uint32_t sample) const;
  // The sample decoded at `time`, 0 <= time < duration.
  std::uint32_t SampleAt(MediaTime time) const;
  // The number of samples that are in chunks. All samples after these are in none.
  std::uint32_t Located() const { return chunkRuns.Samples(); }
  // Bytes of `samples` samples of one chunk, from the sample `first` on.
  std::uint64_t SizeOf(std::uint32_t first, std::uint32_t samples,
                       std::uint32_t description) const {
    return SizeOf(first, samples, description, sizes.Values());
  }
  // The same, faster for a caller that asks often; `each` is sizes.Values().
  std::uint64_t SizeOf(std::uint32_t first, std::uint32_t samples, std::uint32_t description,
                       EncodedNumbers::View each) const;
  Packing PackingOf(std::uint32_t description) const {
    return description < packings.size() ? packings[description] : Packing{};
  }

  // The same samples with their times in another scale. Exact if `to` is a multiple of `from`; else
  // decode times are rounded, not durations, so nothing drifts. Throws Refused (invalidDuration) if
  // a duration or an offset becomes too large for a file.
  SampleRows Rescaled(std::int32_t from, std::int32_t to) const;

  // The earliest time at which a sample of `range` starts to be shown, and the latest at which one
  // stops. Both are relative to the decode time of range.from.
  MediaTime ShownFrom(RowRange range) const;
  MediaTime ShownUntil(RowRange range) const;

 private:
  std::uint32_t timed_ = 0;  // samples covered so far by AddTimes
};

// Inline because it is called for every chunk.
inline std::uint64_t SampleRows::SizeOf(std::uint32_t first, std::uint32_t samples,
                                        std::uint32_t description,
                                        EncodedNumbers::View each) const {
  if (constantSize == 0) {
    if (samples == 1) return each[first];  // the usual case
    std::uint64_t size = 0;
    for (std::uint32_t i = 0; i < samples; ++i) size += each[first + i];
    return size;
  }
  const Packing packing = PackingOf(description);
  if (packing.bytes == 0) return std::uint64_t{samples} * constantSize;
  return (std::uint64_t{samples} + packing.samples - 1) / packing.samples * packing.bytes;
}

}  // namespace toolbox
