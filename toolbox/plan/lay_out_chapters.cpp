#include "toolbox/plan/lay_out_chapters.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/used_samples.h"
#include "toolbox/refused.h"

namespace toolbox {

void LayOutChapters(TrackRecord& track) {
  constexpr std::uint64_t kMaxChapters = 1 << 20;
  MediaRecord& media = *track.media;
  const Clock clock = track.TimeClock();
  const MovieTime offset = track.edits.Offset(), length = track.edits.Duration() - offset;
  struct Chapter {
    std::uint64_t sample = 0;
    MediaTime start;
  };
  std::vector<Chapter> chapters;
  for (const Edit& edit : track.edits.Edits()) {
    const SampleRange shown = SamplesFor(track, edit).samples;
    if (chapters.size() + shown.Count() > kMaxChapters) return;
    for (std::uint64_t sample = shown.from; sample < shown.to; ++sample) {
      // If two edits show parts of one chapter, it is still one chapter.
      if (!chapters.empty() && chapters.back().sample == sample) continue;
      MediaTime into = std::max(media.samples.TimeOf(sample) - edit.mediaTime, MediaTime{});
      if (edit.rate != 1.0) {
        into = edit.rate == 0 ? MediaTime{} : clock.Shown(clock.Lasting(into, edit.rate), 1.0);
      }
      chapters.push_back({sample, clock.Shown(edit.start - offset, 1.0) + into});
    }
  }
  if (chapters.empty()) return;
  chapters.push_back({.start = clock.Shown(length, 1.0)});
  SampleRows rows;
  for (std::size_t i = 0; i + 1 < chapters.size(); ++i) {
    // Because of rounding, an edit can start before the end of the previous one.
    const std::int64_t lasts = std::max(chapters[i + 1].start - rows.duration, MediaTime{}).units;
    if (lasts > UINT32_MAX) throw Refused{invalidDuration, "a chapter lasts too long"};
    const std::uint64_t sample = chapters[i].sample;
    ForEachPiece(media.samples, {sample, sample + 1}, [&](const SamplePiece& piece) {
      rows.AddSample(static_cast<std::uint32_t>(lasts), static_cast<std::uint32_t>(piece.size),
                     piece.offset, piece.description);
    });
  }
  media.samples = SampleTable(std::make_shared<const SampleRows>(std::move(rows)));
  track.edits = {};
  if (offset > MovieTime{}) track.edits.Append(offset, Edit::kNothing, 1.0, clock);
  track.edits.Append(length, {0}, 1.0, clock);
}

}  // namespace toolbox
