#include "toolbox/movie/presentation.h"

#include <algorithm>

namespace toolbox {
namespace {

// Samples of one duration and one offset: the first is shown at `shown`, each other `delta` after
// the one before.
struct ShownRun {
  std::uint64_t sample = 0;
  std::uint32_t count = 0;
  std::int64_t shown = 0, delta = 0;

  std::int64_t ShownAt(std::uint64_t index) const {
    return shown + static_cast<std::int64_t>(index) * delta;
  }
  // How many of them start to be shown by `time`.
  std::uint64_t CountBy(std::int64_t time) const {
    if (shown > time) return 0;
    if (delta == 0) return count;
    return static_cast<std::uint64_t>(std::min<std::int64_t>((time - shown) / delta + 1, count));
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
      visit(ShownRun{slice.SampleOf(row), next - row, slice.ShownAt(row), rows.DurationOf(row)});
    }
  }
}

}  // namespace

std::int64_t ShownAt(const SampleTable& samples, std::uint64_t sample) {
  const SampleSlice& slice = samples.SliceOf(sample);
  return slice.ShownAt(slice.RowOf(sample));
}

SampleRange SamplesShownIn(const SampleTable& samples, std::int64_t from, std::int64_t to) {
  if (samples.Count() == 0 || to <= from || from >= samples.EndTime()) return {};
  const auto [smallest, largest] = samples.Offsets();
  if (samples.Offsets().AreZero()) return {samples.SampleAt(from), samples.SampleAt(to - 1) + 1};

  // The sample on show at `from` is the last one shown by then. `certain` is shown by then, so no
  // sample before `start` can be the last. From `undecided` on, all are shown later.
  const std::uint64_t certain = samples.SampleAt(from - largest);
  const std::uint64_t start =
      samples.SampleAt(samples.TimeOf(certain) + std::int64_t{smallest} - largest);
  const std::uint64_t undecided = samples.SampleAt(from - smallest) + 1;
  // All before `late` are shown before `to`, and none from `end` on is.
  const std::uint64_t late = std::max(undecided, samples.SampleAt(to - 1 - largest));
  const std::uint64_t end = std::max(late, samples.SampleAt(to - 1 - smallest) + 1);

  SampleRange found;
  const auto include = [&found](SampleRange more) {
    if (found.IsEmpty()) found = more;
    found = {std::min(found.from, more.from), std::max(found.to, more.to)};
  };
  struct OnShow {
    std::uint64_t sample;
    std::int64_t since;
  };
  std::optional<OnShow> onShow;
  const auto look = [&](const ShownRun& run) {
    const std::uint64_t before = run.CountBy(from), until = run.CountBy(to - 1);
    if (before != 0) {
      const OnShow last{run.sample + before - 1, run.ShownAt(before - 1)};
      if (!onShow || last.since >= onShow->since) onShow = last;
    }
    if (until > before) include({run.sample + before, run.sample + until});
  };
  ForEachShownRun(samples, {start, undecided}, look);
  if (late > undecided) include({undecided, late});
  ForEachShownRun(samples, {late, end}, look);
  if (onShow) include({onShow->sample, onShow->sample + 1});
  return found;
}

std::optional<std::int64_t> NextShownAfter(const SampleTable& samples, std::int64_t time) {
  if (samples.Count() == 0 || time >= samples.EndTime()) return std::nullopt;
  const auto [smallest, largest] = samples.Offsets();
  if (samples.Offsets().AreZero()) {
    const std::int64_t next = time < 0 ? 0 : samples.TimeOf(samples.SampleAt(time) + 1);
    return next < samples.Duration() ? std::optional(next) : std::nullopt;
  }
  // No sample before `start` is shown after `time`; `later` and all after it are. From `end` on,
  // none is shown before `later`.
  const std::uint64_t start = samples.SampleAt(time - largest);
  const std::uint64_t later = samples.SampleAt(time - smallest) + 1;
  const std::uint64_t end =
      samples.SampleAt(samples.TimeOf(later) + std::int64_t{largest} - smallest) + 1;
  std::optional<std::int64_t> earliest;
  ForEachShownRun(samples, {start, end}, [&](const ShownRun& run) {
    const std::uint64_t before = run.CountBy(time);
    if (before == run.count) return;
    earliest = std::min(earliest.value_or(INT64_MAX), run.ShownAt(before));
  });
  return earliest;
}

}  // namespace toolbox
