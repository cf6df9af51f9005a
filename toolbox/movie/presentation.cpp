#include "toolbox/movie/presentation.h"

#include <algorithm>

namespace toolbox {
namespace {

// Samples of one duration and one offset: the first is shown at `shown`, each other `delta` after
// the one before.
struct ShownRun {
  std::uint64_t sample = 0;
  std::uint32_t count = 0;
  MediaTime shown, delta;

  MediaTime ShownAt(std::uint64_t index) const {
    return shown + MediaTime{static_cast<std::int64_t>(index) * delta.units};
  }
  // The number of samples that start to be shown at or before `time`.
  std::uint64_t CountBy(MediaTime time) const {
    if (shown > time) return 0;
    if (delta == MediaTime{}) return count;
    return static_cast<std::uint64_t>(
        std::min<std::int64_t>((time - shown).units / delta.units + 1, count));
  }
};

// Calls visit(ShownRun) for the samples of `range`, in decode order.
template <class Visit>
void ForEachShownRun(const SampleTable& samples, SampleRange range, Visit&& visit) {
  for (const SampleSlice& slice : samples.SlicesIn(range)) {
    const SampleRows& rows = *slice.rows;
    const RowRange part = slice.RowsIn(range);
    for (std::uint32_t row = part.from, next = 0; row < part.to; row = next) {
      next = std::min({rows.TimesAround(row).to, rows.OffsetsAround(row).to, part.to});
      visit(ShownRun{slice.SampleOf(row), next - row, slice.ShownAt(row), {rows.DurationOf(row)}});
    }
  }
}

// The samples that can be the one that is shown at `time`, which is the one that started last:
// `certain` has started by then. The samples before the range start earlier than it, and those
// after the range start after `time`.
SampleRange CandidatesAt(const SampleTable& samples, MediaTime time) {
  const MediaTime smallest{samples.Offsets().smallest}, largest{samples.Offsets().largest};
  const std::uint64_t certain = samples.SampleAt(time - largest);
  return {samples.SampleAt(samples.TimeOf(certain) + smallest - largest),
          samples.SampleAt(time - smallest) + 1};
}

}  // namespace

MediaTime ShownAt(const SampleTable& samples, std::uint64_t sample) {
  const SampleSlice& slice = samples.SliceOf(sample);
  return slice.ShownAt(slice.RowOf(sample));
}

SampleRange SamplesShownIn(const SampleTable& samples, MediaTime from, MediaTime to) {
  if (samples.Count() == 0 || to <= from || from >= samples.EndTime()) return {};
  const MediaTime smallest{samples.Offsets().smallest}, largest{samples.Offsets().largest};
  const MediaTime last = to - MediaTime{1};
  if (samples.Offsets().AreZero()) return {samples.SampleAt(from), samples.SampleAt(last) + 1};

  // Because offsets have bounds, only a few samples around each end need a look.
  const auto [start, undecided] = CandidatesAt(samples, from);
  // All samples before `late` start before `to`. Those from `end` on do not.
  const std::uint64_t late = std::max(undecided, samples.SampleAt(last - largest));
  const std::uint64_t end = std::max(late, samples.SampleAt(last - smallest) + 1);

  SampleRange found;
  const auto include = [&found](SampleRange more) {
    if (found.IsEmpty()) found = more;
    found = {std::min(found.from, more.from), std::max(found.to, more.to)};
  };
  SampleRange onShow;
  MediaTime since{INT64_MIN};
  const auto look = [&](const ShownRun& run) {
    const std::uint64_t before = run.CountBy(from), until = run.CountBy(last);
    if (before != 0 && run.ShownAt(before - 1) >= since) {
      since = run.ShownAt(before - 1);
      onShow = {run.sample + before - 1, run.sample + before};
    }
    if (until > before) include({run.sample + before, run.sample + until});
  };
  ForEachShownRun(samples, {start, undecided}, look);
  if (late > undecided) include({undecided, late});
  ForEachShownRun(samples, {late, end}, look);
  if (!onShow.IsEmpty()) include(onShow);
  return found;
}

std::uint64_t CountCandidates(const SampleTable& samples, MediaTime time) {
  if (samples.Count() == 0 || samples.Offsets().AreZero()) return 0;
  return CandidatesAt(samples, time).Count();
}

std::optional<MediaTime> NextShownAfter(const SampleTable& samples, MediaTime time) {
  if (samples.Count() == 0 || time >= samples.EndTime()) return std::nullopt;
  const MediaTime smallest{samples.Offsets().smallest}, largest{samples.Offsets().largest};
  if (samples.Offsets().AreZero()) {
    const MediaTime next =
        time < MediaTime{} ? MediaTime{} : samples.TimeOf(samples.SampleAt(time) + 1);
    return next < samples.Duration() ? std::optional(next) : std::nullopt;
  }
  // All samples before `start` have started by `time`. `later` and all after it start later. No
  // sample from `end` on starts before `later`, so the earliest one is before `end`.
  const std::uint64_t start = samples.SampleAt(time - largest);
  const std::uint64_t later = samples.SampleAt(time - smallest) + 1;
  const std::uint64_t end = samples.SampleAt(samples.TimeOf(later) + largest - smallest) + 1;
  std::optional<MediaTime> earliest;
  ForEachShownRun(samples, {start, end}, [&](const ShownRun& run) {
    const std::uint64_t before = run.CountBy(time);
    if (before == run.count) return;
    earliest = std::min(earliest.value_or(MediaTime{INT64_MAX}), run.ShownAt(before));
  });
  return earliest;
}

}  // namespace toolbox
