// The samples of a media: stretches of rows that files state, laid one behind the other.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "toolbox/movie/sample_groups.h"
#include "toolbox/movie/sample_rows.h"

namespace toolbox {

// Consecutive samples of one description that lie one behind the other in their file.
struct SamplePiece {
  std::uint64_t sample = 0;  // index of the first
  std::uint32_t count = 0;  // of samples
  std::uint32_t description = 0;  // index
  std::uint64_t offset = 0;  // bytes, from the start of the file
  std::uint64_t size = 0;  // bytes
};

// Consecutive samples in chunks of one description and as many samples each.
struct SampleChunks {
  std::uint32_t count = 0;  // of chunks
  std::uint32_t perChunk = 0;  // samples
  std::uint32_t description = 0;  // index
};

// Rows are shared, so a table joined from others costs a slice a stretch, whatever it holds: an
// hour of sound, a thousand clips and ten hours of film cost the same few bytes each time.
class SampleTable {
 public:
  class TimeCursor;

  SampleTable() = default;
  // All of `rows`, descriptions as they are numbered there.
  explicit SampleTable(std::shared_ptr<const SampleRows> rows);

  std::uint64_t Count() const { return slices_.empty() ? 0 : slices_.back().End(); }
  // Sum of the decode durations, in media units.
  std::int64_t Duration() const { return slices_.empty() ? 0 : slices_.back().EndTime(); }

  // Adds the samples [from, to) of `other` at the end: the one way in which samples get from one
  // media into another. Description d there is descriptions[d] here. Where samples already here
  // would still be shown when the new ones begin to be, the last of them is made longer first.
  //
  //   |  here  |  +  other [ from .. to )  ->  |  here  |[ from .. to )|
  //
  // Returns the decode time at which the first of them now stands. O(slices).
  std::int64_t AppendSlice(const SampleTable& other, std::uint64_t from, std::uint64_t to,
                           std::span<const std::uint32_t> descriptions);

  // Adds samples like AppendSlice, but their decode times go on where those here end: none here
  // becomes longer. The new ones are shown from there on too, all of them by as much earlier or
  // later as that takes: what hid the delay of reordered pictures, an edit, does not come along.
  //
  //   decoded  |  here  |[ from .. to )|
  //   shown    |  here  |[ from .. to )|
  std::int64_t AppendInStep(const SampleTable& other, std::uint64_t from, std::uint64_t to,
                            std::span<const std::uint32_t> descriptions);

  // The same samples with their times in another scale, as SampleRows::Rescaled has them.
  SampleTable Rescaled(std::int32_t from, std::int32_t to) const;

  std::int64_t TimeOf(std::uint64_t sample) const;  // sample == Count() gives the end
  std::int64_t DurationOf(std::uint64_t sample) const;
  std::int64_t ShownAt(std::uint64_t sample) const;  // decode time and offset
  // The sample decoded at `time`, the first or last where time lies outside; Count() > 0.
  std::uint64_t SampleAt(std::int64_t time) const;
  // The last sync sample (partial ones included) at or before `sample`; the first sample when none
  // is.
  std::uint64_t SyncAtOrBefore(std::uint64_t sample) const;
  // The samples [first, second) that are decoded to show the media times [from, to): those shown
  // and all between them, not what they depend on.
  std::pair<std::uint64_t, std::uint64_t> SamplesShownIn(std::int64_t from, std::int64_t to) const;
  // When the next sample after the media time `time` begins to be shown.
  std::optional<std::int64_t> NextShownAfter(std::int64_t time) const;
  // The smallest stretch around [from, to) that splits no packet.
  std::pair<std::uint64_t, std::uint64_t> WholePackets(std::uint64_t from, std::uint64_t to) const;
  // The samples [first, second) of the same file as `sample`: none beyond them has to do with it.
  std::pair<std::uint64_t, std::uint64_t> FileStretch(std::uint64_t sample) const {
    const Slice& slice = SliceOf(sample);
    return {slice.first, slice.End()};
  }
  // When the last of them has been decoded, whatever it was made longer by.
  std::int64_t FileStretchEnd(std::uint64_t sample) const {
    const Slice& slice = SliceOf(sample);
    return slice.EndTime() - slice.stretch;
  }
  // When the last of all samples stops being shown.
  std::int64_t ShownUntil() const { return shownUntil_; }
  // Makes the last sample longer, if need be, so that Duration() is `time` or more.
  void StretchTo(std::int64_t time);
  // How far before a sample decoding has to start for it to sound right, in samples: the distance
  // of its roll group, ISO/IEC 14496-12 10.1; nothing when it has none.
  std::optional<std::uint32_t> RollDistance(std::uint64_t sample) const;

  // True when every sample of [from, to) lies in a chunk.
  bool IsLocated(std::uint64_t from, std::uint64_t to) const;
  // How many samples from the first on lie in a chunk.
  std::uint64_t LocatedCount() const;
  // Bytes of `samples` samples of one chunk, the first of them being `first`.
  std::uint64_t SizeOf(std::uint64_t first, std::uint32_t samples, std::uint32_t description) const;
  // How many samples a packet holds there; 1 where there are no packets.
  std::uint32_t PacketLength(std::uint64_t sample) const;
  // The one size of all samples, or nothing.
  std::optional<std::uint32_t> ConstantSize() const;
  bool HasOffsets() const;
  std::uint32_t OffsetsVersion() const;
  // Whether a sample is shown before it is decoded, by the times of its table.
  bool HasOffsetsBelowZero() const;
  bool HasSyncTable() const;
  bool HasPartialSync() const;
  // Whether samples have values in that table of their rows.
  template <class Values>
  bool Has(Values SampleRows::*table) const;
  // The groupings that any of the samples' rows know.
  std::vector<JoinedGroup> Groups() const;
  // Marks, by index, the descriptions that samples of [from, to) use; they are located.
  void MarkDescriptions(std::uint64_t from, std::uint64_t to, std::vector<bool>& used) const;
  // Looks at no file any more, so that the tables outlast changes to it.
  void OwnRows() const {
    for (const Slice& slice : slices_) slice.rows->header.Own();
    if (empty_) empty_->header.Own();
  }
  // The rows when the table is all of them and nothing else, else null.
  const SampleRows* WholeRows() const;

  // Calls visit(samples, delta): runs of samples of one duration; neighbours differ.
  template <class Visit>
  void ForEachTime(Visit&& visit) const;
  // Calls visit(samples, offset) likewise.
  template <class Visit>
  void ForEachOffset(Visit&& visit) const;
  // The same, but calls visitEncoded(rows) where rows of 'ctts' say it.
  template <class Visit, class VisitEncoded>
  void ForEachOffset(Visit&& visit, VisitEncoded&& visitEncoded) const;
  // Calls visit(samples, group) likewise, for a group that Groups gave.
  template <class Visit>
  void ForEachGroup(const JoinedGroup& group, Visit&& visit) const;
  // Calls visit(size) for each sample.
  template <class Visit>
  void ForEachSize(Visit&& visit) const;
  // Calls visit(rows) with those of 'stsz' that say the same.
  template <class Visit>
  void ForEachEncodedSize(Visit&& visit) const;
  // Calls visit(sample) for each sync sample, or each partial one.
  template <class Visit>
  void ForEachSync(Visit&& visit) const;
  template <class Visit>
  void ForEachPartialSync(Visit&& visit) const;
  // Calls visit(value) for each sample, 0 where the table does not reach.
  template <class Values, class Visit>
  void ForEachValue(Values SampleRows::*table, Visit&& visit) const;
  // Calls visit(SampleChunks) for [from, to), neighbours may be alike; every sample is located.
  template <class Visit>
  void ForEachChunks(std::uint64_t from, std::uint64_t to, Visit&& visit) const;
  // Calls visit(offset, description) for the chunks of [from, to): where in its file the first of
  // its samples lies that is asked for.
  template <class Visit>
  void ForEachOffsetOfChunk(std::uint64_t from, std::uint64_t to, Visit&& visit) const;
  // Calls visit(SamplePiece) likewise, a piece a chunk of the file.
  template <class Visit>
  void ForEachPiece(std::uint64_t from, std::uint64_t to, Visit&& visit) const;

 private:
  struct Slice {
    std::shared_ptr<const SampleRows> rows;
    std::uint32_t from = 0, to = 0;  // of the rows
    std::uint64_t first = 0;  // index here of the sample `from`
    std::int64_t time = 0;  // its decode time here
    std::int64_t rowTime = 0;  // its decode time in the rows
    std::int64_t length = 0;  // decode durations, `stretch` included
    std::int64_t stretch = 0;  // by how much the last sample is longer than its row says
    std::int32_t shift = 0;  // by how much each is shown later than its row says
    std::shared_ptr<const std::vector<std::uint32_t>> descriptions;  // index in rows -> here

    std::uint64_t End() const { return first + (to - from); }
    std::int64_t EndTime() const { return time + length; }
    std::uint32_t RowOf(std::uint64_t sample) const {
      return from + static_cast<std::uint32_t>(sample - first);
    }
    bool HasOffsets() const { return shift != 0 || !rows->offsets.IsEmpty(); }
    bool ContinuedBy(const Slice& next) const {
      return rows == next.rows && to == next.from && stretch == 0;
    }
  };

  const Slice& SliceOf(std::uint64_t sample) const;
  // Calls visit(sample, count, shown, delta) for the stretches of [from, to) in which each sample
  // is shown `delta` after the one before; the first at `shown`.
  template <class Visit>
  void ForEachStretch(std::uint64_t from, std::uint64_t to, Visit&& visit) const;
  // Chunks as their rows have them.
  struct RowChunks {
    std::uint32_t row = 0, perChunk = 0, description = 0;
    std::uint32_t chunk = 0, count = 0;
    // Bytes at the start of the chunk that belong to samples before `row`; then it is the only one.
    std::uint64_t skipped = 0;
  };
  // The chunk of a sample, from it on.
  static RowChunks ChunkAt(const Slice& slice, std::uint64_t sample);
  // Calls visit(RowChunks) for what ForEachChunks visits.
  template <class Visit>
  void ForEachChunksIn(const Slice& slice, std::uint64_t from, std::uint64_t to,
                       Visit&& visit) const;
  // Those that hold samples of [from, to).
  std::span<const Slice> SlicesIn(std::uint64_t from, std::uint64_t to) const;
  // The samples [from, to) as slices to be added to a table in which they have those descriptions.
  std::vector<Slice> Cut(std::uint64_t from, std::uint64_t to,
                         std::span<const std::uint32_t> descriptions) const;
  enum class Room { kMade, kNotAsked };  // whether samples may become longer for others
  void Add(Slice slice, Room room = Room::kMade);

  std::vector<Slice> slices_;
  std::shared_ptr<const SampleRows> empty_;  // rows without samples, for what else they hold
  std::int64_t shownUntil_ = 0;  // when the last of all samples stops being shown
  std::int32_t smallestOffset_ = 0, largestOffset_ = 0;
};

// Answers for samples in their order without a search each time.
class SampleTable::TimeCursor {
 public:
  explicit TimeCursor(const SampleTable& table) : table_(table) {}
  std::int64_t TimeOf(std::uint64_t sample) {
    Reach(sample);
    return time_ + static_cast<std::int64_t>(sample - first_) * delta_;
  }
  std::int64_t DurationOf(std::uint64_t sample) {
    Reach(sample);
    return delta_;
  }

 private:
  void Reach(std::uint64_t sample) {
    if (sample < first_ || sample >= end_) Find(sample);
  }
  void Find(std::uint64_t sample);

  const SampleTable& table_;
  std::uint64_t first_ = 0, end_ = 0;  // the run at hand
  std::int64_t time_ = 0, delta_ = 0;
};

}  // namespace toolbox

#include "toolbox/movie/sample_table_visits.h"
