#include "toolbox/plan/chapter_tracks.h"

#include <algorithm>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "toolbox/movie/sample_places.h"
#include "toolbox/movie/segments.h"
#include "toolbox/plan/used_samples.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kChapters{"chap"}, kText{"text"};

// Whether both tracks show something at one time.
bool Overlap(const TrackRecord& a, const TrackRecord& b) {
  const auto isShown = [](const Edit& edit) { return !edit.IsEmpty(); };
  const std::vector<Edit>& edits = b.edits.Edits();
  return std::ranges::any_of(a.edits.Edits(), [&](const Edit& edit) {
    if (edit.IsEmpty()) return false;
    const auto first = std::ranges::upper_bound(edits, edit.start, {}, &Edit::End);
    const auto end = std::ranges::lower_bound(first, edits.end(), edit.End(), {}, &Edit::start);
    return std::any_of(first, end, isShown);
  });
}

// Makes `track` also show what `other` shows, at the same times; they do not overlap. Returns
// false, and changes nothing, if their samples cannot be in one track.
bool Take(const TrackRecord& other, TrackRecord& track) {
  const EditList edits = track.edits;
  const MediaRecord media = *track.media;
  try {
    for (const Edit& edit : other.edits.Edits()) {
      if (edit.IsEmpty()) continue;
      // What follows moves right, so the gap that is filled is removed first.
      const MovieTime rest = std::max(track.edits.Duration() - edit.start, MovieTime{});
      track.edits.Delete(edit.start, std::min(rest, edit.duration), track.TimeClock());
      InsertTrackSegment(other, track, edit.start, edit.duration, edit.start);
    }
    return true;
  } catch (const Refused&) {
    track.edits = edits;
    track.media = media;
    return false;
  }
}

// The text track that is the first chapter track of `track`; null if there is none.
TrackRecord* FirstChapters(const TrackRecord& track) {
  TrackRecord* first = track.Reference(kChapters, 1);
  return first != nullptr && first->media && first->media->Type() == kText ? first : nullptr;
}

}  // namespace

bool JoinChapterTracks(MovieRecord& movie) {
  std::set<TrackRecord*> joined;
  for (const auto& track : movie.tracks) {
    TrackRecord* first = FirstChapters(*track);
    if (first == nullptr || joined.contains(first)) continue;
    for (std::size_t number = 2; number <= track->CountReferences(kChapters); ++number) {
      TrackRecord* other = track->Reference(kChapters, number);
      if (other == nullptr || other == first) continue;
      if (!other->media || other->media->Type() != kText) continue;
      if (other->IsEnabled() || joined.contains(other) || Overlap(*first, *other)) continue;
      if (!Take(*other, *first)) continue;
      joined.insert(other);
      for (const auto& referring : movie.tracks) {
        for (std::size_t i = referring->CountReferences(kChapters); i > 0; --i) {
          if (referring->Reference(kChapters, i) == other) referring->Refer(kChapters, *first);
        }
      }
    }
  }
  for (const TrackRecord* track : joined) movie.RemoveTrack(*track);
  return !joined.empty();
}

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
  // ffmpeg ends the last chapter with the media, and ignores the empty edit. So the last sample is
  // longer by that, which is not shown.
  chapters.push_back({.start = clock.Shown(length + offset, 1.0)});
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
