#include "toolbox/movie/sample_table.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <numeric>

#include "toolbox/movie/time.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// Whether a file can state the offsets of `rows` when each is larger by `shift`.
bool HasRoom(const SampleRows& rows, std::int64_t shift) {
  return std::min(rows.offsets.Smallest(), 0) + shift >= INT32_MIN &&
         std::max(rows.offsets.Largest(), 0) + shift <= INT32_MAX;
}

// When the first sample of consecutive slices starts to be shown, relative to the first decode
// time.
MediaTime ShownFrom(std::span<const SampleSlice> slices) {
  MediaTime decoded, shown{INT64_MAX};
  for (const SampleSlice& slice : slices) {
    shown = std::min(shown, decoded + slice.ShownFrom());
    decoded += slice.length;
  }
  return shown;
}

}  // namespace

SampleTable::SampleTable(std::shared_ptr<const SampleRows> rows) {
  if (rows->count == 0) {
    empty_ = std::move(rows);
    return;
  }
  std::vector<std::uint32_t> same(
      std::max<std::size_t>({1, rows->chunkRuns.Descriptions(), rows->packings.size()}));
  std::iota(same.begin(), same.end(), 0U);
  Add({.rows = rows,
       .part = {0, rows->count},
       .length = rows->duration,
       .descriptions = std::make_shared<const std::vector<std::uint32_t>>(std::move(same))});
}

MediaTime SampleTable::AppendSlice(const SampleTable& other, SampleRange range,
                                   DescriptionMap descriptions) {
  const std::uint64_t before = Count();
  AddAfterShown(other.Cut(range, descriptions));
  return TimeOf(before);
}

std::optional<MediaTime> SampleTable::AppendAt(MediaTime time, const SampleTable& other,
                                               SampleRange range, DescriptionMap descriptions) {
  constexpr std::uint64_t kMaxLate = 64;
  std::uint64_t late = 0;
  while (late < Count() && TimeOf(Count() - 1 - late).units + std::int64_t(late) >= time.units) {
    if (++late > kMaxLate) return std::nullopt;
  }
  const auto lateUnits = static_cast<std::int64_t>(late);
  const MediaTime first{late < Count() ? time.units - lateUnits
                                       : std::max<std::int64_t>(time.units - lateUnits, 0)};
  const MediaTime start = Count() == 0 ? MediaTime{} : first + MediaTime{lateUnits};
  const std::uint64_t last = Count() - late;  // the samples before this one stay
  if (last != 0 && (late == 0 ? start : first) - TimeOf(last - 1) > MediaTime{UINT32_MAX}) {
    return std::nullopt;
  }
  if (late != 0 && !Crowd(late, first, start - time)) return std::nullopt;
  if (Count() != 0) SetEnd(start);
  for (SampleSlice& slice : other.Cut(range, descriptions)) Add(std::move(slice));
  return start;
}

void SampleTable::RemoveFrom(MediaTime time) {
  if (time < Duration()) CutOff(Count() - (SampleAt(time - MediaTime{1}) + 1));
}

void SampleTable::SetEnd(MediaTime time) {
  SampleSlice& last = slices_.back();
  last.stretch += time - Duration();
  last.length = time - last.time;
}

void SampleTable::CutOff(std::uint64_t count) {
  for (; count != 0 && count >= slices_.back().part.Count(); slices_.pop_back()) {
    count -= slices_.back().part.Count();
  }
  if (count == 0) return;
  SampleSlice& last = slices_.back();
  last.part.to -= static_cast<std::uint32_t>(count);
  last.stretch = {};
  last.length = last.rows->TimeOf(last.part.to) - last.rowTime;
}

bool SampleTable::Crowd(std::uint64_t count, MediaTime first, MediaTime later) {
  std::vector<SampleSlice> crowded;
  const std::uint64_t from = Count() - count;
  MediaTime time = first;
  for (std::uint64_t sample = from; sample < Count(); ++sample, time += MediaTime{1}) {
    SampleSlice slice = Cut({sample, sample + 1}, {}).front();
    const std::int64_t shift = (TimeOf(sample) + later - time).units + slice.shift;
    if (!HasRoom(*slice.rows, shift)) return false;
    slice.shift = static_cast<std::int32_t>(shift);
    slice.length = MediaTime{1};
    slice.stretch = slice.length - MediaTime{slice.rows->DurationOf(slice.part.from)};
    crowded.push_back(std::move(slice));
  }
  CutOff(count);
  if (Count() != 0) SetEnd(first);
  for (SampleSlice& slice : crowded) Add(std::move(slice));
  return true;
}

MediaTime SampleTable::AppendWithoutDelay(const SampleTable& other, SampleRange range,
                                          DescriptionMap descriptions) {
  const MediaTime before = Duration();
  std::vector<SampleSlice> slices = other.Cut(range, descriptions);
  std::int64_t shift = -ShownFrom(slices).units;
  // Rows that follow those added last keep their distance to them.
  if (!slices.empty() && !slices_.empty() && slices_.back().IsContinuedBy(slices.front())) {
    shift = std::int64_t{slices_.back().shift} - slices.front().shift;
  }
  const bool isShifted = std::ranges::all_of(slices, [shift](const SampleSlice& slice) {
    return HasRoom(*slice.rows, slice.shift + shift);
  });
  for (SampleSlice& slice : slices) {
    if (isShifted) slice.shift += static_cast<std::int32_t>(shift);
    Add(std::move(slice));
  }
  return before;
}

SampleTable SampleTable::WithoutDelay() const {
  SampleTable table;
  table.empty_ = empty_;
  for (const SampleSlice& slice : slices_) {
    table.AppendWithoutDelay(*this, {slice.first, slice.End()}, {});
  }
  return table;
}

std::vector<SampleSlice> SampleTable::Cut(SampleRange range, DescriptionMap descriptions) const {
  std::vector<SampleSlice> slices;
  for (const SampleSlice& slice : SlicesIn(range)) {
    SampleSlice& cut = slices.emplace_back(slice);
    cut.part = slice.RowsIn(range);
    if (cut.part.to != slice.part.to) cut.stretch = {};
    cut.rowTime = slice.rows->TimeOf(cut.part.from);
    cut.length = slice.rows->TimeOf(cut.part.to) - cut.rowTime + cut.stretch;
    if (!descriptions) continue;
    std::vector<std::uint32_t> map;
    for (const std::uint32_t description : *slice.descriptions) {
      map.push_back(description < descriptions->size() ? (*descriptions)[description] : 0);
    }
    cut.descriptions = std::make_shared<const std::vector<std::uint32_t>>(std::move(map));
  }
  return slices;
}

bool SampleTable::Continues(const SampleSlice& next) const {
  if (slices_.empty()) return false;
  const SampleSlice& last = slices_.back();
  return last.IsContinuedBy(next) && last.shift == next.shift &&
         *last.descriptions == *next.descriptions;
}

void SampleTable::Add(SampleSlice slice) {
  if (Continues(slice)) {
    const SampleSlice& last = slices_.back();
    slice.part.from = last.part.from;
    slice.rowTime = last.rowTime;
    slice.length += last.length;
    slices_.pop_back();
  }
  slice.first = Count();
  slice.time = Duration();
  offsets_.smallest = std::min(offsets_.smallest, slice.rows->offsets.Smallest() + slice.shift);
  offsets_.largest = std::max(offsets_.largest, slice.rows->offsets.Largest() + slice.shift);
  shownUntil_ = std::max(shownUntil_, slice.time + slice.ShownUntil());
  slices_.push_back(std::move(slice));
}

void SampleTable::AddAfterShown(std::vector<SampleSlice> slices) {
  if (slices.empty()) return;
  if (!slices_.empty() && !Continues(slices.front())) {
    const MediaTime end = shownUntil_ - ShownFrom(slices);
    if (end > Duration()) SetEnd(end);
  }
  for (SampleSlice& slice : slices) Add(std::move(slice));
}

SampleTable SampleTable::Rescaled(std::int32_t from, std::int32_t to) const {
  SampleTable table;
  std::map<const SampleRows*, std::shared_ptr<const SampleRows>> converted;
  for (SampleSlice slice : slices_) {
    auto& rows = converted[slice.rows.get()];
    if (!rows) rows = std::make_shared<const SampleRows>(slice.rows->Rescaled(from, to));
    slice.rows = rows;
    slice.stretch = ScaleChange{from, to}(slice.stretch);
    const std::int64_t shift = Rescale(slice.shift, from, to);
    if (!HasRoom(*rows, shift)) throw Refused{invalidDuration, "a composition offset is too large"};
    slice.shift = static_cast<std::int32_t>(shift);
    slice.rowTime = rows->TimeOf(slice.part.from);
    slice.length = rows->TimeOf(slice.part.to) - slice.rowTime + slice.stretch;
    table.AddAfterShown({std::move(slice)});
  }
  return table;
}

const SampleSlice& SampleTable::SliceOf(std::uint64_t sample) const {
  return *std::prev(std::ranges::upper_bound(slices_, sample, {}, &SampleSlice::first));
}

std::span<const SampleSlice> SampleTable::SlicesIn(SampleRange range) const {
  if (range.IsEmpty()) return {};
  return {std::ranges::upper_bound(slices_, range.from, {}, &SampleSlice::End),
          std::ranges::lower_bound(slices_, range.to, {}, &SampleSlice::first)};
}

MediaTime SampleTable::TimeOf(std::uint64_t sample) const {
  if (sample >= Count()) return Duration();
  const SampleSlice& slice = SliceOf(sample);
  return slice.TimeOf(slice.RowOf(sample));
}

MediaTime SampleTable::DurationOf(std::uint64_t sample) const {
  const SampleSlice& slice = SliceOf(sample);
  return slice.DurationOf(slice.RowOf(sample));
}

std::uint64_t SampleTable::SampleAt(MediaTime time) const {
  if (time < MediaTime{}) return 0;
  if (time >= Duration()) return Count() - 1;
  const SampleSlice& slice =
      *std::prev(std::ranges::upper_bound(slices_, time, {}, &SampleSlice::time));
  const std::uint32_t row = slice.rows->SampleAt(slice.rowTime + (time - slice.time));
  return slice.SampleOf(std::min(row, slice.part.to - 1));
}

SampleRange SampleTable::SamplesFrom(MediaTime start, std::int64_t maxSamples,
                                     MediaTime maxDuration) const {
  if (start < MediaTime{} || start >= Duration()) throw Refused{invalidTime};
  // SampleAt finds the last sample at a time, and samples without a duration may be before it.
  const std::uint64_t from = start == MediaTime{} ? 0 : SampleAt(start);
  std::uint64_t to = Count();
  if (maxSamples > 0) to = std::min(to, from + static_cast<std::uint64_t>(maxSamples));
  const MediaTime time = TimeOf(from);
  if (maxDuration > MediaTime{} && maxDuration < Duration() - time) {
    to = std::min(to, SampleAt(time + maxDuration));
  }
  return {from, std::max(to, from + 1)};
}

std::uint64_t SampleTable::SyncAtOrBefore(std::uint64_t sample) const {
  const SampleSlice& slice = SliceOf(sample);
  if (!slice.rows->sync) return sample;
  std::uint32_t found = slice.part.from;
  for (const auto* list : {&*slice.rows->sync, &slice.rows->partialSync}) {
    const auto after = std::ranges::upper_bound(*list, slice.RowOf(sample));
    if (after != list->begin()) found = std::max(found, *std::prev(after));
  }
  return slice.SampleOf(found);
}

const SampleRows* SampleTable::WholeRows() const {
  if (slices_.empty()) return empty_.get();
  const SampleSlice& first = slices_.front();
  const bool isWhole = slices_.size() == 1 && first.part == RowRange{0, first.rows->count};
  return isWhole && first.stretch == MediaTime{} && first.shift == 0 ? first.rows.get() : nullptr;
}

void SampleTable::LeaveFiles() const {
  for (const SampleSlice& slice : slices_) slice.rows->header.Detach();
  if (empty_) empty_->header.Detach();
}

void TimeCursor::Find(std::uint64_t sample) {
  if (sample >= table_.Count()) {
    run_ = {table_.Count(), UINT64_MAX};
    time_ = table_.Duration();
    delta_ = {};
    return;
  }
  const SampleSlice& slice = table_.SliceOf(sample);
  const std::uint32_t row = slice.RowOf(sample);
  delta_ = slice.DurationOf(row);
  // A stretched last sample is a run of its own.
  const std::uint32_t plainEnd = slice.stretch == MediaTime{} ? slice.part.to : slice.part.to - 1;
  RowRange run{row, slice.part.to};
  if (row < plainEnd) {
    const RowRange around = slice.rows->TimesAround(row);
    run = {std::max(around.from, slice.part.from), std::min(around.to, plainEnd)};
  }
  run_ = {slice.SampleOf(run.from), slice.SampleOf(run.to)};
  time_ = slice.TimeOf(run.from);
}

}  // namespace toolbox
