#include "toolbox/movie/sample_table.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <numeric>
#include <unordered_set>

#include "toolbox/movie/time.h"
#include "toolbox/refused.h"

namespace toolbox {

SampleTable::SampleTable(std::shared_ptr<const SampleRows> rows) {
  if (rows->count == 0) empty_ = rows;
  std::vector<std::uint32_t> same(
      std::max<std::size_t>({1, rows->chunkRuns.Descriptions(), rows->packings.size()}));
  std::iota(same.begin(), same.end(), 0U);
  Slice slice;
  slice.to = rows->count;
  slice.length = rows->duration;
  slice.descriptions = std::make_shared<const std::vector<std::uint32_t>>(std::move(same));
  slice.rows = std::move(rows);
  Add(std::move(slice));
}

std::int64_t SampleTable::AppendSlice(const SampleTable& other, std::uint64_t from,
                                      std::uint64_t to,
                                      std::span<const std::uint32_t> descriptions) {
  const std::uint64_t before = Count();
  for (Slice& slice : other.Cut(from, to, descriptions)) Add(std::move(slice));
  return TimeOf(before);
}

std::int64_t SampleTable::AppendInStep(const SampleTable& other, std::uint64_t from,
                                       std::uint64_t to,
                                       std::span<const std::uint32_t> descriptions) {
  const std::int64_t before = Duration();
  std::vector<Slice> slices = other.Cut(from, to, descriptions);
  std::int64_t decoded = 0, shownFrom = INT64_MAX;
  for (const Slice& slice : slices) {
    shownFrom =
        std::min(shownFrom, decoded + slice.rows->ShownFrom(slice.from, slice.to) + slice.shift);
    decoded += slice.length;
  }
  std::int64_t shift = -shownFrom;
  // What goes on where the last left off keeps its distance to it.
  if (!slices.empty() && !slices_.empty() && slices_.back().ContinuedBy(slices.front())) {
    shift = std::int64_t{slices_.back().shift} - slices.front().shift;
  }
  const auto hasRoom = [shift](const Slice& slice) {
    const std::int64_t all = slice.shift + shift;
    return slice.rows->offsets.Smallest() + all >= INT32_MIN &&
           slice.rows->offsets.Largest() + all <= INT32_MAX && all >= INT32_MIN && all <= INT32_MAX;
  };
  const bool isShifted = std::ranges::all_of(slices, hasRoom);
  for (Slice& slice : slices) {
    if (isShifted) slice.shift += static_cast<std::int32_t>(shift);
    Add(std::move(slice), Room::kNotAsked);
  }
  return before;
}

std::vector<SampleTable::Slice> SampleTable::Cut(
    std::uint64_t from, std::uint64_t to, std::span<const std::uint32_t> descriptions) const {
  std::vector<Slice> parts;
  if (from >= to) return parts;
  for (const Slice& slice : SlicesIn(from, to)) {
    Slice& part = parts.emplace_back(slice);
    part.from = slice.RowOf(std::max(from, slice.first));
    part.to = slice.RowOf(std::min(to, slice.End()));
    if (part.to != slice.to) part.stretch = 0;
    part.rowTime = slice.rows->TimeOf(part.from);
    part.length = slice.rows->TimeOf(part.to) - part.rowTime + part.stretch;
    std::vector<std::uint32_t> map;
    for (const std::uint32_t description : *slice.descriptions) {
      map.push_back(description < descriptions.size() ? descriptions[description] : 0);
    }
    part.descriptions = std::make_shared<const std::vector<std::uint32_t>>(std::move(map));
  }
  return parts;
}

void SampleTable::Add(Slice slice, Room room) {
  if (slice.from == slice.to) return;
  if (!slices_.empty()) {
    Slice& last = slices_.back();
    const bool continues = last.ContinuedBy(slice) && last.shift == slice.shift &&
                           *last.descriptions == *slice.descriptions;
    if (continues) {
      slice.from = last.from;
      slice.rowTime = last.rowTime;
      slice.length += last.length;
      slices_.pop_back();
    } else if (room == Room::kMade) {
      const std::int64_t shownFrom = slice.rows->ShownFrom(slice.from, slice.to) + slice.shift;
      const std::int64_t overlap = shownUntil_ - last.EndTime() - shownFrom;
      if (overlap > 0) {
        last.stretch += overlap;
        last.length += overlap;
      }
    }
  }
  slice.first = Count();
  slice.time = Duration();
  const SampleRows& rows = *slice.rows;
  smallestOffset_ = std::min(smallestOffset_, rows.offsets.Smallest() + slice.shift);
  largestOffset_ = std::max(largestOffset_, rows.offsets.Largest() + slice.shift);
  shownUntil_ =
      std::max(shownUntil_, slice.time + rows.ShownUntil(slice.from, slice.to) + slice.shift);
  slices_.push_back(std::move(slice));
}

void SampleTable::StretchTo(std::int64_t time) {
  if (slices_.empty() || time <= Duration()) return;
  Slice& last = slices_.back();
  last.stretch += time - Duration();
  last.length = time - last.time;
}

SampleTable SampleTable::Rescaled(std::int32_t from, std::int32_t to) const {
  SampleTable table;
  std::map<const SampleRows*, std::shared_ptr<const SampleRows>> converted;
  for (Slice slice : slices_) {
    auto& rows = converted[slice.rows.get()];
    if (!rows) rows = std::make_shared<const SampleRows>(slice.rows->Rescaled(from, to));
    slice.rows = rows;
    slice.stretch = Rescale(slice.stretch, from, to);
    const std::int64_t shift = Rescale(slice.shift, from, to);
    if (rows->offsets.Smallest() + shift < INT32_MIN ||
        rows->offsets.Largest() + shift > INT32_MAX) {
      throw Refused{invalidDuration};
    }
    slice.shift = static_cast<std::int32_t>(shift);
    slice.rowTime = rows->TimeOf(slice.from);
    slice.length = rows->TimeOf(slice.to) - slice.rowTime + slice.stretch;
    table.Add(std::move(slice));
  }
  return table;
}

const SampleTable::Slice& SampleTable::SliceOf(std::uint64_t sample) const {
  return *std::prev(std::ranges::upper_bound(slices_, sample, {}, &Slice::first));
}

std::span<const SampleTable::Slice> SampleTable::SlicesIn(std::uint64_t from,
                                                          std::uint64_t to) const {
  const auto first = std::ranges::upper_bound(slices_, from, {}, &Slice::End);
  const auto last = std::ranges::lower_bound(slices_, to, {}, &Slice::first);
  return from < to ? std::span(first, last) : std::span<const Slice>();
}

std::int64_t SampleTable::TimeOf(std::uint64_t sample) const {
  if (sample >= Count()) return Duration();
  const Slice& slice = SliceOf(sample);
  return slice.time + slice.rows->TimeOf(slice.RowOf(sample)) - slice.rowTime;
}

std::int64_t SampleTable::DurationOf(std::uint64_t sample) const {
  const Slice& slice = SliceOf(sample);
  const std::int64_t stretch = sample + 1 == slice.End() ? slice.stretch : 0;
  return slice.rows->DurationOf(slice.RowOf(sample)) + stretch;
}

std::int64_t SampleTable::ShownAt(std::uint64_t sample) const {
  const Slice& slice = SliceOf(sample);
  const std::uint32_t row = slice.RowOf(sample);
  return slice.time + slice.rows->TimeOf(row) - slice.rowTime + slice.rows->OffsetOf(row) +
         slice.shift;
}

std::uint64_t SampleTable::SampleAt(std::int64_t time) const {
  if (time < 0) return 0;
  if (time >= Duration()) return Count() - 1;
  const Slice& slice = *std::prev(std::ranges::upper_bound(slices_, time, {}, &Slice::time));
  const std::uint32_t row = slice.rows->SampleAt(slice.rowTime + (time - slice.time));
  return slice.first + (std::min(row, slice.to - 1) - slice.from);
}

std::uint64_t SampleTable::SyncAtOrBefore(std::uint64_t sample) const {
  const Slice& slice = SliceOf(sample);
  if (!slice.rows->sync) return sample;
  const std::uint32_t row = slice.RowOf(sample);
  std::uint32_t found = slice.from;
  for (const auto* list : {&*slice.rows->sync, &slice.rows->partialSync}) {
    const auto after = std::ranges::upper_bound(*list, row);
    if (after != list->begin()) found = std::max(found, *std::prev(after));
  }
  return slice.first + (found - slice.from);
}

std::pair<std::uint64_t, std::uint64_t> SampleTable::SamplesShownIn(std::int64_t from,
                                                                    std::int64_t to) const {
  if (Count() == 0 || to <= from || from >= std::max(Duration(), shownUntil_)) return {0, 0};
  if (smallestOffset_ == 0 && largestOffset_ == 0) return {SampleAt(from), SampleAt(to - 1) + 1};

  // The sample on show at `from` is the one shown last at or before it. One that is certainly shown
  // by then bounds how far back that one can be decoded; from `undecided` on all are shown later.
  const std::uint64_t certain = SampleAt(from - largestOffset_);
  const std::uint64_t start =
      SampleAt(TimeOf(certain) + std::int64_t{smallestOffset_} - largestOffset_);
  const std::uint64_t undecided = SampleAt(from - smallestOffset_) + 1;
  // All before `late` are shown before `to`, none from `end` on is.
  const std::uint64_t late = std::max(undecided, SampleAt(to - 1 - largestOffset_));
  const std::uint64_t end = std::max(late, SampleAt(to - 1 - smallestOffset_) + 1);

  std::optional<std::uint64_t> onShow, first, last;
  std::int64_t onShowSince = 0;
  const auto look = [&](std::uint64_t sample, std::uint32_t count, std::int64_t shown,
                        std::int64_t delta) {
    // How many of the stretch are shown by `time`.
    const auto shownBy = [&](std::int64_t time) -> std::uint64_t {
      if (shown > time) return 0;
      if (delta == 0) return count;
      return static_cast<std::uint64_t>(std::min<std::int64_t>((time - shown) / delta + 1, count));
    };
    const std::uint64_t before = shownBy(from), until = shownBy(to - 1);
    if (before != 0) {
      const std::int64_t since = shown + static_cast<std::int64_t>(before - 1) * delta;
      if (!onShow || since >= onShowSince) {
        onShow = sample + before - 1;
        onShowSince = since;
      }
    }
    if (until > before) {
      if (!first) first = sample + before;
      last = sample + until - 1;
    }
  };
  ForEachStretch(start, undecided, look);
  if (late > undecided) {
    if (!first) first = undecided;
    last = late - 1;
  }
  ForEachStretch(late, end, look);
  if (onShow) {
    first = std::min(first.value_or(*onShow), *onShow);
    last = std::max(last.value_or(*onShow), *onShow);
  }
  if (!first) return {0, 0};
  return {*first, *last + 1};
}

std::optional<std::int64_t> SampleTable::NextShownAfter(std::int64_t time) const {
  if (Count() == 0 || time >= std::max(Duration(), shownUntil_)) return std::nullopt;
  if (smallestOffset_ == 0 && largestOffset_ == 0) {
    const std::uint64_t sample = SampleAt(time);
    const std::int64_t next = time < 0 ? 0 : TimeOf(sample) + DurationOf(sample);
    return next < Duration() ? std::optional(next) : std::nullopt;
  }
  // None before `start` is shown after `time`; `later` is, and so are all behind it. None from
  // `end` on is shown before `later`.
  const std::uint64_t start = SampleAt(time - largestOffset_);
  const std::uint64_t later = SampleAt(time - smallestOffset_) + 1;
  const std::uint64_t end =
      SampleAt(TimeOf(later) + std::int64_t{largestOffset_} - smallestOffset_) + 1;
  std::optional<std::int64_t> earliest;
  ForEachStretch(start, end,
                 [&](std::uint64_t, std::uint32_t count, std::int64_t shown, std::int64_t delta) {
                   std::int64_t candidate = shown;
                   if (shown <= time && delta != 0)
                     candidate = shown + ((time - shown) / delta + 1) * delta;
                   const bool isIn =
                       candidate > time && candidate <= shown + (std::int64_t{count} - 1) * delta;
                   if (isIn && (!earliest || candidate < *earliest)) earliest = candidate;
                 });
  return earliest;
}

std::pair<std::uint64_t, std::uint64_t> SampleTable::WholePackets(std::uint64_t from,
                                                                  std::uint64_t to) const {
  const auto aligned = [this](std::uint64_t sample, bool up) {
    const Slice& slice = SliceOf(sample);
    const std::uint32_t row = slice.RowOf(sample);
    if (slice.rows->packings.empty() || row >= slice.rows->Located()) return sample;
    const ChunkRun run = *slice.rows->chunkRuns.From(row);
    const std::uint32_t packet = slice.rows->PackingOf(run.description).samples;
    const std::uint32_t inChunk = (row - run.sample) % run.samplesPerChunk;
    const std::uint32_t over = inChunk % packet;
    if (over == 0) return sample;
    if (!up) return sample - std::min<std::uint64_t>(over, sample - slice.first);
    const std::uint32_t missing = std::min(packet - over, run.samplesPerChunk - inChunk);
    return std::min(sample + missing, slice.End());
  };
  return {aligned(from, false), to == Count() ? to : aligned(to, true)};
}

std::optional<std::uint32_t> SampleTable::RollDistance(std::uint64_t sample) const {
  const Slice& slice = SliceOf(sample);
  for (const SampleGroup& group : slice.rows->groups) {
    if (group.grouping != FourCC{"roll"}) continue;
    const auto described = group.descriptions ? group.descriptions->Entries() : std::nullopt;
    if (!described) continue;
    const auto after =
        std::ranges::upper_bound(group.runs, slice.RowOf(sample), {}, &GroupRun::sample);
    const std::uint32_t number =
        after == group.runs.begin() ? described->defaultNumber : std::prev(after)->group;
    if (number == 0 || number > described->entries.size()) continue;
    if (const auto distance = RollDistanceIn(described->entries[number - 1])) return distance;
  }
  return std::nullopt;
}

bool SampleTable::IsLocated(std::uint64_t from, std::uint64_t to) const {
  return std::ranges::all_of(SlicesIn(from, to), [to](const Slice& slice) {
    return slice.RowOf(std::min(to, slice.End())) <= slice.rows->Located();
  });
}

std::uint64_t SampleTable::LocatedCount() const {
  const auto cut = std::ranges::find_if(
      slices_, [](const Slice& slice) { return slice.to > slice.rows->Located(); });
  if (cut == slices_.end()) return Count();
  return cut->first + (std::max(cut->from, cut->rows->Located()) - cut->from);
}

std::uint64_t SampleTable::SizeOf(std::uint64_t first, std::uint32_t samples,
                                  std::uint32_t description) const {
  const Slice& slice = SliceOf(first);
  const auto row = std::ranges::find(*slice.descriptions, description);
  return slice.rows->SizeOf(slice.RowOf(first), samples,
                            static_cast<std::uint32_t>(row - slice.descriptions->begin()));
}

std::uint32_t SampleTable::PacketLength(std::uint64_t sample) const {
  const Slice& slice = SliceOf(sample);
  if (slice.rows->packings.empty() || slice.RowOf(sample) >= slice.rows->Located()) return 1;
  const ChunkRuns::Walk run = slice.rows->chunkRuns.From(slice.RowOf(sample));
  return slice.rows->PackingOf(run->description).samples;
}

SampleTable::RowChunks SampleTable::ChunkAt(const Slice& slice, std::uint64_t sample) {
  const std::uint32_t row = slice.RowOf(sample);
  const ChunkRun run = *slice.rows->chunkRuns.From(row);
  const std::uint32_t before = (row - run.sample) % run.samplesPerChunk;
  RowChunks chunks{row, run.samplesPerChunk - before, run.description,
                   run.chunk + (row - run.sample) / run.samplesPerChunk, 1};
  if (before != 0) chunks.skipped = slice.rows->SizeOf(row - before, before, run.description);
  return chunks;
}

void SampleTable::MarkDescriptions(std::uint64_t from, std::uint64_t to,
                                   std::vector<bool>& used) const {
  for (const Slice& slice : SlicesIn(from, to)) {
    const std::uint32_t end = slice.RowOf(std::min(to, slice.End()));
    const auto allMarked = [&] {
      return std::ranges::all_of(*slice.descriptions, [&](std::uint32_t i) { return used[i]; });
    };
    ChunkRuns::Walk run = slice.rows->chunkRuns.From(slice.RowOf(std::max(from, slice.first)));
    for (; !run.IsAtEnd() && run->sample < end && !allMarked(); run.Next()) {
      if (run->end != run->sample) used[(*slice.descriptions)[run->description]] = true;
    }
  }
}

void SampleTable::TimeCursor::Find(std::uint64_t sample) {
  if (sample >= table_.Count()) {
    first_ = table_.Count();
    end_ = UINT64_MAX;
    time_ = table_.Duration();
    delta_ = 0;
    return;
  }
  const Slice& slice = table_.SliceOf(sample);
  const std::uint32_t row = slice.RowOf(sample);
  delta_ = table_.DurationOf(sample);
  if (slice.stretch != 0 && row + 1 == slice.to) {
    first_ = sample;
    end_ = slice.End();
  } else {
    const auto [from, to] = slice.rows->TimesAround(row);
    first_ = slice.first + (std::max(from, slice.from) - slice.from);
    end_ = slice.first + (std::min(to, slice.to) - slice.from) -
           (slice.stretch != 0 && to >= slice.to);
  }
  time_ = table_.TimeOf(first_);
}

std::optional<std::uint32_t> SampleTable::ConstantSize() const {
  if (slices_.empty()) return std::nullopt;
  const std::uint32_t size = slices_.front().rows->constantSize;
  const bool isShared = std::ranges::all_of(
      slices_, [size](const Slice& slice) { return slice.rows->constantSize == size; });
  return isShared && size != 0 ? std::optional(size) : std::nullopt;
}

bool SampleTable::HasOffsets() const { return std::ranges::any_of(slices_, &Slice::HasOffsets); }

std::uint32_t SampleTable::OffsetsVersion() const {
  std::uint32_t version = 0;
  for (const Slice& slice : slices_) {
    version = std::max(version, slice.shift < 0 ? 1U : slice.rows->offsetsVersion);
  }
  return version;
}

bool SampleTable::HasOffsetsBelowZero() const {
  bool isBelow = false;
  ForEachOffset([&](std::uint32_t, std::int32_t offset) { isBelow = isBelow || offset < 0; });
  return isBelow;
}

bool SampleTable::HasSyncTable() const {
  return std::ranges::any_of(slices_,
                             [](const Slice& slice) { return slice.rows->sync.has_value(); });
}

bool SampleTable::HasPartialSync() const {
  return std::ranges::any_of(slices_,
                             [](const Slice& slice) { return !slice.rows->partialSync.empty(); });
}

std::vector<JoinedGroup> SampleTable::Groups() const {
  std::vector<const SampleRows*> rows;
  if (slices_.empty() && empty_) rows.push_back(empty_.get());
  std::unordered_set<const SampleRows*> seen;
  for (const Slice& slice : slices_) {
    if (seen.insert(slice.rows.get()).second) rows.push_back(slice.rows.get());
  }
  return JoinGroups(rows);
}

const SampleRows* SampleTable::WholeRows() const {
  if (slices_.empty()) return empty_.get();
  const Slice& first = slices_.front();
  const bool isWhole = slices_.size() == 1 && first.from == 0 && first.to == first.rows->count;
  return isWhole && first.stretch == 0 && first.shift == 0 ? first.rows.get() : nullptr;
}

}  // namespace toolbox
