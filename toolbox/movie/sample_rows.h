// The samples of a media as one file states them: rows with their starts, never an object a sample.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "toolbox/atoms/encoded_tables.h"
#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/group_atoms.h"
#include "toolbox/atoms/siblings.h"
#include "toolbox/bytes.h"
#include "toolbox/held_bytes.h"

namespace toolbox {

// From `sample` on each lasts `delta` media units; `time` is when the first of them is decoded.
struct TimeRun {
  std::uint32_t sample = 0, delta = 0;
  std::int64_t time = 0;
};
// From `sample` on each belongs to the group description of that number, 0 for none.
struct GroupRun {
  std::uint32_t sample = 0, group = 0;
};
// Sound of a constant rate is stored in packets that must not be split: `samples` samples in
// `bytes` bytes. bytes 0: there are no packets, each sample has the size that its table states.
struct Packing {
  std::uint32_t samples = 1, bytes = 0;
};
struct SampleGroup {
  FourCC grouping;
  std::uint32_t versionAndFlags = 0, parameter = 0;  // of 'sbgp'
  std::optional<SampleGroupDescriptions> descriptions;
  std::vector<GroupRun> runs;
};

// Indexes start at 0. Once a table shares its rows they never change.
struct SampleRows {
  std::uint32_t count = 0;
  Table<TimeRun> times;  // covers all samples
  std::int64_t duration = 0;  // sum of all deltas
  OffsetRuns offsets;  // empty: every offset is 0
  // ISO states offsets below 0 in version 1 of their table, QuickTime in version 0.
  std::uint32_t offsetsVersion = 0;
  std::uint32_t constantSize = 0;  // in bytes; sizes is used where it is 0
  EncodedNumbers sizes;  // by sample
  ChunkRuns chunkRuns;  // samples beyond them cannot be read
  EncodedNumbers chunkOffsets;  // by chunk, in bytes from the start of its file
  std::vector<Packing> packings;  // by description; empty: no packets
  std::optional<std::vector<std::uint32_t>> sync;  // absent: every sample is a sync sample
  std::vector<std::uint32_t> partialSync;
  // A value for each sample, in order; 0 for samples beyond them.
  Bytes dependencies;
  Bytes padding;  // bits at the end of a sample
  std::vector<std::uint16_t> priorities;  // of what may be left out when there is too much
  std::vector<SampleGroup> groups;
  HeldBytes header;  // where those tables lie that are looked at
  Siblings otherTables;  // tables nobody reads, valid for exactly these samples in this order

  // For whoever fills a new SampleRows, `count` being known: each adds what the next so many
  // samples or chunks have in common; what goes beyond `count` is left out. Throws
  // Malformed where the samples last longer than can be told.
  void AddTimes(std::uint32_t samples, std::uint32_t delta);
  void AddOffsets(std::uint32_t samples, std::int32_t offset);
  void AddChunks(std::uint32_t chunk, std::uint32_t chunks, std::uint32_t samplesPerChunk,
                 std::uint32_t description);
  // For whoever makes up samples one at a time: one more behind all others, in a chunk of its own
  // at `offset` of its file, so that none has to be searched for behind others.
  void AddSample(std::uint32_t delta, std::uint32_t size, std::uint64_t offset,
                 std::uint32_t description);
  // Makes the last sample longer or shorter, so that the next is decoded at `time`. False, and
  // nothing has changed, where it would last no time or longer than a file can state.
  bool MoveEnd(std::int64_t time);

  // Decode time of a sample; sample == count gives the end.
  std::int64_t TimeOf(std::uint32_t sample) const;
  std::uint32_t DurationOf(std::uint32_t sample) const;
  std::int32_t OffsetOf(std::uint32_t sample) const;
  // The samples [first, second) around it that last as long, or that are shown as long after
  // decoding.
  std::pair<std::uint32_t, std::uint32_t> TimesAround(std::uint32_t sample) const;
  std::pair<std::uint32_t, std::uint32_t> OffsetsAround(std::uint32_t sample) const;
  // The sample decoded at `time`, 0 <= time < duration.
  std::uint32_t SampleAt(std::int64_t time) const;
  // How many samples lie in a chunk.
  std::uint32_t Located() const { return chunkRuns.Samples(); }
  // Bytes of `samples` samples of one chunk, the first of them being `first`.
  std::uint64_t SizeOf(std::uint32_t first, std::uint32_t samples,
                       std::uint32_t description) const {
    return SizeOf(first, samples, description, sizes.Values());
  }
  // The same for whoever asks for one after the other, of `sizes`.
  std::uint64_t SizeOf(std::uint32_t first, std::uint32_t samples, std::uint32_t description,
                       EncodedNumbers::View each) const;
  Packing PackingOf(std::uint32_t description) const {
    return description < packings.size() ? packings[description] : Packing{};
  }

  // The same samples with their times in another scale: exact when `to` is a multiple of `from`,
  // else rounded by their decode times, so that nothing drifts. Throws Refused (invalidDuration)
  // when a duration or an offset no longer has room.
  SampleRows Rescaled(std::int32_t from, std::int32_t to) const;

  // When the first and last of [from, to) to be shown start and end being so, counted from the
  // decode time of `from`.
  std::int64_t ShownFrom(std::uint32_t from, std::uint32_t to) const;
  std::int64_t ShownUntil(std::uint32_t from, std::uint32_t to) const;

 private:
  const TimeRun& TimeRunOf(std::uint32_t sample) const;
  std::uint32_t timed_ = 0;  // samples covered so far by AddTimes
};

// Inline, for it is asked once a chunk.
inline std::uint64_t SampleRows::SizeOf(std::uint32_t first, std::uint32_t samples,
                                        std::uint32_t description,
                                        EncodedNumbers::View each) const {
  if (constantSize == 0) {
    if (samples == 1) return each[first];  // as it mostly is
    std::uint64_t size = 0;
    for (std::uint32_t i = 0; i < samples; ++i) size += each[first + i];
    return size;
  }
  const Packing packing = PackingOf(description);
  if (packing.bytes == 0) return std::uint64_t{samples} * constantSize;
  return (std::uint64_t{samples} + packing.samples - 1) / packing.samples * packing.bytes;
}

}  // namespace toolbox
