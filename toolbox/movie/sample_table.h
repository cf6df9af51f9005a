// The samples of a media: slices of the tables of files, one after the other.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "toolbox/movie/sample_slice.h"

namespace toolbox {

// Rows are shared, so a join adds slices and copies no rows. A slice takes the same few bytes for a
// second of sound and for ten hours of film.
//
// A table itself has the decode times of its samples. Other headers have functions for the rest:
//   presentation.h    when samples are shown
//   sample_places.h   where their bytes are in files
//   sample_columns.h  everything else, column by column, as a file states it
//   sample_groups.h   the groups of samples
class SampleTable {
 public:
  // All offsets of samples are between these two, and so is 0.
  struct OffsetBounds {
    std::int32_t smallest = 0, largest = 0;
    bool AreZero() const { return smallest == 0 && largest == 0; }
  };

  SampleTable() = default;
  // All of `rows`, with the description indexes of the file.
  explicit SampleTable(std::shared_ptr<const SampleRows> rows);

  std::uint64_t Count() const { return slices_.empty() ? 0 : slices_.back().End(); }
  // Sum of the durations: when the last sample has been decoded.
  MediaTime Duration() const { return slices_.empty() ? MediaTime{} : slices_.back().EndTime(); }
  // Whether there are samples and none of them lasts any time. No edit can show them, but cameras
  // store telemetry in such samples.
  bool IsTimeless() const { return Count() != 0 && Duration() == MediaTime{}; }
  // When all samples have stopped being shown, or later.
  MediaTime ShownUntil() const { return shownUntil_; }
  // The later of the two.
  MediaTime EndTime() const { return std::max(Duration(), shownUntil_); }
  OffsetBounds Offsets() const { return offsets_; }

  // The index here for each description of another table; no map: the same index.
  using DescriptionMap = std::optional<std::span<const std::uint32_t>>;

  // Adds the samples `range` of `other` at the end. Samples come from one media into another only
  // by this and the next two functions. If samples already here would still be shown when the new
  // ones start, the last of them becomes longer.
  //
  //   |  here  |  +  other [ from .. to )  ->  |  here  |[ from .. to )|
  //
  // Returns the decode time of the first new sample. O(slices).
  MediaTime AppendSlice(const SampleTable& other, SampleRange range,
                        DescriptionMap descriptions = {});

  // Adds samples like AppendSlice, but decodes and shows them from Duration() on. No sample here
  // becomes longer. The offsets of all new samples change by the same amount, or not at all if one
  // would not fit into its field. This removes the delay of reordered pictures: in the source an
  // edit hides it, and edits are not copied.
  //
  //   decoded  |  here  |[ from .. to )|
  //   shown    |  here  |[ from .. to )|
  MediaTime AppendWithoutDelay(const SampleTable& other, SampleRange range,
                               DescriptionMap descriptions);

  // Adds samples like AppendSlice, but decodes the first of them at `time`: the last sample here
  // becomes longer or shorter. If samples here would be decoded at `time` or later, the last
  // samples are decoded right before it instead, one unit apart, and are still shown when they
  // were. The first samples of an empty table are always decoded at 0.
  //
  //   decoded  |  here  |        ^ time   ->   |  here           |[ from .. to )|
  //   decoded  |  here | 1 | 2 | ^ time   ->   |  here   |1|2    |[ from .. to )|
  //
  // Returns the decode time of the first new sample. It is after `time` if there is no room for the
  // samples here, and then all of them are shown that much later. Returns nothing, and adds
  // nothing, if more than 64 samples would have to move or a file cannot state the new times.
  std::optional<MediaTime> AppendAt(MediaTime time, const SampleTable& other, SampleRange range,
                                    DescriptionMap descriptions = {});

  // Removes the samples that are decoded at `time` or later; `time` > 0.
  void RemoveFrom(MediaTime time);

  // The same samples, each file's without the delay of its reordered pictures: see
  // AppendWithoutDelay.
  SampleTable WithoutDelay() const;
  // Samples that AppendSlice adds later are shown at `time` or later.
  void HoldUntil(MediaTime time) { shownUntil_ = std::max(shownUntil_, time); }
  // The same samples with their times in another scale. Rounds and throws as SampleRows::Rescaled.
  SampleTable Rescaled(std::int32_t from, std::int32_t to) const;

  // When a sample is decoded; Duration() for Count().
  MediaTime TimeOf(std::uint64_t sample) const;
  MediaTime DurationOf(std::uint64_t sample) const;
  // The sample decoded at `time`; the first or the last for a time outside. Count() > 0.
  std::uint64_t SampleAt(MediaTime time) const;
  // The samples from the one decoded at `start` on. `maxSamples` and `maxDuration` limit them if
  // they are above 0, but there is at least one. Throws Refused: invalidTime (start outside).
  SampleRange SamplesFrom(MediaTime start, std::int64_t maxSamples, MediaTime maxDuration) const;
  // The last sync or partial sync sample at or before `sample`, but not before its slice: if the
  // slice has none, the first sample of the slice.
  std::uint64_t SyncAtOrBefore(std::uint64_t sample) const;

  std::span<const SampleSlice> Slices() const { return slices_; }
  // The slices with samples of `range`.
  std::span<const SampleSlice> SlicesIn(SampleRange range) const;
  // The slice that has `sample`, which is less than Count().
  const SampleSlice& SliceOf(std::uint64_t sample) const;
  // The rows of a file if the table has just these, unchanged; else null.
  const SampleRows* WholeRows() const;
  // Copies into memory the tables that are still read from files, so that the files may change.
  void LeaveFiles() const;

 private:
  // The samples `range` as slices for a table that has these descriptions.
  std::vector<SampleSlice> Cut(SampleRange range, DescriptionMap descriptions) const;
  // Whether `next` continues the last slice, so that both can be one.
  bool Continues(const SampleSlice& next) const;
  // Adds the slice at the end, whatever `first` and `time` it has.
  void Add(SampleSlice slice);
  // Adds slices that follow one another, so that they are shown after all samples here: if needed,
  // the last sample becomes longer.
  void AddAfterShown(std::vector<SampleSlice> slices);
  // Makes the last sample end at `time`, which is after its decode time.
  void SetEnd(MediaTime time);
  // Removes the last `count` samples.
  void CutOff(std::uint64_t count);
  // Decodes the last `count` samples one unit apart from `first` on, and shows each of them `later`
  // than before. Returns false, and changes nothing, if a file cannot state this.
  bool Crowd(std::uint64_t count, MediaTime first, MediaTime later);

  std::vector<SampleSlice> slices_;  // none is empty
  std::shared_ptr<const SampleRows> empty_;  // of a file without samples: it may have other tables
  MediaTime shownUntil_;
  OffsetBounds offsets_;
};

// Finds the times of samples that are asked for in order, without a search for each.
class TimeCursor {
 public:
  explicit TimeCursor(const SampleTable& table) : table_(table) {}
  MediaTime TimeOf(std::uint64_t sample) {
    Reach(sample);
    return time_ + MediaTime{static_cast<std::int64_t>(sample - run_.from) * delta_.units};
  }
  MediaTime DurationOf(std::uint64_t sample) {
    Reach(sample);
    return delta_;
  }

 private:
  void Reach(std::uint64_t sample) {
    if (sample < run_.from || sample >= run_.to) Find(sample);
  }
  void Find(std::uint64_t sample);

  const SampleTable& table_;
  SampleRange run_;  // samples of one duration
  MediaTime time_, delta_;
};

}  // namespace toolbox
