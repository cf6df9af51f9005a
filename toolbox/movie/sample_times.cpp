#include "toolbox/movie/sample_times.h"

#include <algorithm>

#include "toolbox/movie/presentation.h"

namespace toolbox {
namespace {

// The first movie time at which an edit has reached the media time `time`.
MovieTime Reaches(const Edit& edit, MediaTime time, Clock clock) {
  return edit.start + clock.Lasting(time - edit.mediaTime, edit.rate, Rounding::kUp);
}

// The sample that the edit shows at `start`, for as long as the edit shows it. It starts there, or
// before the edit does.
std::optional<ShownSample> ShownSampleFrom(MovieTime start, const Edit& edit,
                                           const TrackRecord& track) {
  const SampleTable& samples = track.media->samples;
  const Clock clock = track.TimeClock();
  const MediaTime time = edit.ShownAt(start - edit.start, clock, Rounding::kDown);
  const auto [first, last] = SamplesShownIn(samples, time, time + MediaTime{1});
  if (first == last) return std::nullopt;
  const MediaTime end = NextShownAfter(samples, time).value_or(samples.EndTime());
  const MovieTime until = std::min(edit.End(), Reaches(edit, end, clock));
  if (until <= start) return std::nullopt;
  return ShownSample{start, until - start};
}

// The first sample of the edit that starts at or after `from`.
std::optional<ShownSample> FirstShownSample(MovieTime from, const Edit& edit,
                                            const TrackRecord& track) {
  if (from <= edit.start) {
    if (const auto found = ShownSampleFrom(edit.start, edit, track)) return found;
    from = edit.start + MovieTime{1};
  }
  const Clock clock = track.TimeClock();
  const MediaTime before = edit.ShownAt(from - edit.start - MovieTime{1}, clock, Rounding::kDown);
  const auto next = NextShownAfter(track.media->samples, before);
  if (!next) return std::nullopt;
  // Of samples that start within one movie unit, the last is on show at its end.
  const MovieTime start = std::max(from, Reaches(edit, *next, clock));
  return start < edit.End() ? ShownSampleFrom(start, edit, track) : std::nullopt;
}

}  // namespace

std::optional<ShownSample> NextShownSample(const TrackRecord& track, MovieTime from,
                                           bool atFromToo) {
  if (!track.media || track.media->samples.Count() == 0) return std::nullopt;
  if (!atFromToo) from += MovieTime{1};
  const std::vector<Edit>& edits = track.edits.Edits();
  for (auto edit = std::ranges::upper_bound(edits, from, {}, &Edit::End); edit != edits.end();
       ++edit) {
    if (edit->IsEmpty()) continue;
    if (const auto found = FirstShownSample(from, *edit, track)) return found;
  }
  return std::nullopt;
}

std::optional<MediaTime> MediaTimeAt(const TrackRecord& track, MovieTime time) {
  const std::vector<Edit>& edits = track.edits.Edits();
  const auto edit = std::ranges::upper_bound(edits, time, {}, &Edit::End);
  if (edit == edits.end() || edit->IsEmpty() || edit->start > time) return std::nullopt;
  return edit->ShownAt(time - edit->start, track.TimeClock(), Rounding::kDown);
}

}  // namespace toolbox
