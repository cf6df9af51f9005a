#include "toolbox/movie/sample_rows.h"

#include <algorithm>
#include <iterator>
#include <numeric>

#include "toolbox/atoms/malformed.h"
#include "toolbox/movie/run_joiner.h"
#include "toolbox/movie/time.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr std::uint64_t kLongestMedia = kLongest / 2;

// The last of `runs` that starts at or before `key`; the first starts at 0.
template <class Runs, class Key, class Projection>
const typename Runs::value_type& RunAt(const Runs& runs, Key key, Projection start) {
  return *std::prev(std::ranges::upper_bound(runs, key, {}, start));
}

}  // namespace

void SampleRows::AddTimes(std::uint32_t samples, std::uint32_t delta) {
  samples = std::min(samples, count - timed_);
  if (samples == 0) return;
  const std::uint64_t length = std::uint64_t{samples} * delta;
  if (length > kLongestMedia - static_cast<std::uint64_t>(duration.units)) {
    throw Malformed("the samples last too long");
  }
  if (times.empty() || times.back().delta != delta) times.push_back({timed_, delta, duration});
  timed_ += samples;
  duration += MediaTime{static_cast<std::int64_t>(length)};
}

bool SampleRows::MoveEnd(MediaTime time) {
  if (count == 0) return false;
  const TimeRun last = times.back();
  const MediaTime start = duration - MediaTime{last.delta};
  if (time <= start || time - start > MediaTime{UINT32_MAX}) return false;
  if (time == duration) return true;
  if (last.sample == count - 1) times.pop_back();
  duration = start;
  --timed_;
  AddTimes(1, static_cast<std::uint32_t>((time - start).units));
  return true;
}

void SampleRows::AddOffsets(std::uint32_t samples, std::int32_t offset) {
  samples = std::min(samples, count - offsets.Samples());
  offsets.Add(samples, offset);
}

void SampleRows::AddChunks(std::uint32_t chunk, std::uint32_t chunks, std::uint32_t samplesPerChunk,
                           std::uint32_t description) {
  if (samplesPerChunk == 0) return;
  const std::uint32_t left = count - Located();
  const std::uint32_t whole =
      std::uint64_t{chunks} * samplesPerChunk <= left ? chunks : left / samplesPerChunk;
  chunkRuns.Add(chunk, whole, samplesPerChunk, description);
  if (whole != chunks) chunkRuns.Add(chunk + whole, 1, count - Located(), description);
}

void SampleRows::AddSample(std::uint32_t delta, std::uint32_t size, std::uint64_t offset,
                           std::uint32_t description) {
  chunkRuns.Add(count++, 1, 1, description);
  chunkOffsets.Add(offset);
  sizes.Add(size);
  AddTimes(1, delta);
}

MediaTime SampleRows::TimeOf(std::uint32_t sample) const {
  if (sample >= count) return duration;
  const TimeRun& run = RunAt(times, sample, &TimeRun::sample);
  return run.time + MediaTime{std::int64_t{sample - run.sample} * run.delta};
}

std::uint32_t SampleRows::DurationOf(std::uint32_t sample) const {
  return RunAt(times, sample, &TimeRun::sample).delta;
}

std::int32_t SampleRows::OffsetOf(std::uint32_t sample) const {
  return offsets.IsEmpty() ? 0 : offsets.From(sample)->offset;
}

RowRange SampleRows::TimesAround(std::uint32_t sample) const {
  const TimeRun* run = &RunAt(times, sample, &TimeRun::sample);
  return {run->sample, run == &times.back() ? count : run[1].sample};
}

RowRange SampleRows::OffsetsAround(std::uint32_t sample) const {
  if (offsets.IsEmpty()) return {0, count};
  const OffsetRuns::Walk run = offsets.From(sample);
  return {run->sample, run->end};
}

std::uint32_t SampleRows::SampleAt(MediaTime time) const {
  // A run of duration 0 starts when the next one does, so it is the last one up to `time` only at
  // the very end.
  const TimeRun& run = RunAt(times, time, &TimeRun::time);
  if (run.delta == 0) return count - 1;
  return std::min(count - 1,
                  run.sample + static_cast<std::uint32_t>((time - run.time).units / run.delta));
}

SampleRows SampleRows::Rescaled(std::int32_t from, std::int32_t to) const {
  // Rounding makes no sample longer by more than a unit.
  if (Rescale(duration.units, from, to) + count > static_cast<std::int64_t>(kLongestMedia)) {
    throw Refused{invalidDuration, "the media is too long"};
  }
  SampleRows rows = *this;
  // 'cslg' has times in the old scale.
  std::erase_if(rows.otherTables,
                [](const Sibling& table) { return table.type == FourCC{"cslg"}; });
  rows.times.clear();
  rows.offsets = {};
  rows.timed_ = 0;
  rows.duration = {};
  const auto addTime = [&rows](std::uint32_t samples, std::int64_t delta) {
    if (delta > UINT32_MAX) throw Refused{invalidDuration, "a sample lasts too long"};
    rows.AddTimes(samples, static_cast<std::uint32_t>(delta));
  };
  const auto addOffset = [&rows](std::uint32_t samples, std::int64_t offset) {
    if (offset > INT32_MAX || offset < INT32_MIN) {
      throw Refused{invalidDuration, "a composition offset is too large"};
    }
    rows.AddOffsets(samples, static_cast<std::int32_t>(offset));
  };
  const auto place = [from, to](std::int64_t time) { return Rescale(time, from, to); };
  if (to % from == 0) {
    for (const TimeRun& run : times) addTime(TimesAround(run.sample).Count(), place(run.delta));
    if (offsets.IsEmpty()) return rows;
    offsets.ForEach(0, count, [&](std::uint32_t samples, std::int32_t offset) {
      addOffset(samples, place(offset));
    });
    return rows;
  }
  // Each sample is rounded by itself, which takes too long for more than this many.
  constexpr std::uint32_t kMaxRows = 1 << 25;
  if (count > kMaxRows) throw Refused{invalidDuration, "the track has too many samples"};
  RunJoiner<std::int64_t, decltype(addTime)> deltas(addTime);
  RunJoiner<std::int64_t, decltype(addOffset)> shifts(addOffset);
  for (std::uint32_t sample = 0; sample < count; ++sample) {
    const std::int64_t time = TimeOf(sample).units;
    deltas.Add(1, place(TimeOf(sample + 1).units) - place(time));
    if (!offsets.IsEmpty()) shifts.Add(1, place(time + OffsetOf(sample)) - place(time));
  }
  deltas.Flush();
  shifts.Flush();
  return rows;
}

MediaTime SampleRows::ShownFrom(RowRange range) const {
  if (offsets.IsEmpty() || range.IsEmpty()) return {};
  // Of samples with one offset the first is shown first.
  const MediaTime start = TimeOf(range.from);
  MediaTime earliest = start + MediaTime{OffsetOf(range.from)};
  for (std::uint32_t sample = OffsetsAround(range.from).to; sample < range.to;
       sample = OffsetsAround(sample).to) {
    const MediaTime time = TimeOf(sample);
    if (time + MediaTime{offsets.Smallest()} >= earliest) break;
    earliest = std::min(earliest, time + MediaTime{OffsetOf(sample)});
  }
  return earliest - start;
}

MediaTime SampleRows::ShownUntil(RowRange range) const {
  const MediaTime start = TimeOf(range.from);
  if (offsets.IsEmpty() || range.IsEmpty()) return TimeOf(range.to) - start;
  // Of samples with one offset the last is shown last.
  MediaTime latest = TimeOf(range.to) + MediaTime{OffsetOf(range.to - 1)};
  for (std::uint32_t end = OffsetsAround(range.to - 1).from; end > range.from;
       end = OffsetsAround(end - 1).from) {
    const MediaTime time = TimeOf(end);
    if (time + MediaTime{offsets.Largest()} <= latest) break;
    latest = std::max(latest, time + MediaTime{OffsetOf(end - 1)});
  }
  return latest - start;
}

}  // namespace toolbox
