#include "toolbox/movie/segments.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <vector>

#include "toolbox/movie/media_types.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/refused.h"
#include "toolbox/text/language.h"

namespace toolbox {
namespace {

constexpr FourCC kHint{"hint"};
constexpr FourCC kSound{"soun"};

bool HasSameAtom(const Siblings& a, const Siblings& b, FourCC type) {
  const Sibling* first = FindSibling(a, type);
  const Sibling* second = FindSibling(b, type);
  return first == nullptr || second == nullptr ? first == second : *first == *second;
}

// Whether samples of a media may be in several files. They may not if a description names no data
// reference, because that means the first one. A media whose samples are in several files already
// may have more.
bool MayBeInSeveralFiles(const MediaRecord& media) {
  return media.dataReferences.size() > 1 ||
         std::ranges::all_of(media.descriptions, &SampleDescription::HoldsReference);
}

bool MayShareMedia(const MediaRecord& a, const MediaRecord& b) {
  return a.Type() == b.Type() && MayBeInSeveralFiles(a) && MayBeInSeveralFiles(b) &&
         !a.IsProtected() && !b.IsProtected() && a.samples.IsTimeless() == b.samples.IsTimeless();
}

// The language of a media. QuickTime's code and ISO's code for "none" become the same one.
std::uint16_t Language(const MediaRecord& media) {
  return media.header.language == kUndeterminedLanguage ? kUnspecifiedLanguage
                                                        : media.header.language;
}

// Whether both tracks have the same place and outline in the movie.
bool LooksLike(const TrackRecord& a, const TrackRecord& b) {
  return a.header.width == b.header.width && a.header.height == b.header.height &&
         a.header.matrix == b.header.matrix &&
         HasSameAtom(a.siblings, b.siblings, FourCC{"clip"}) &&
         HasSameAtom(a.siblings, b.siblings, FourCC{"matt"});
}

bool Fits(const TrackRecord& track, const TrackRecord& source) {
  return track.media && MayShareMedia(*track.media, *source.media) &&
         track.media->header.scale == source.media->header.scale &&
         Language(*track.media) == Language(*source.media) &&
         track.header.alternateGroup == source.header.alternateGroup &&
         (LooksLike(track, source) || !DescribeMediaType(source.media->Type()).isSeen);
}

// Throws Refused if the samples of the track cannot be read or decrypted when another movie refers
// to them.
void CheckJoinable(const TrackRecord& source) {
  const MediaRecord& media = *source.media;
  if (media.IsProtected()) throw Refused{featureUnsupported, "encrypted samples cannot be joined"};
  const auto inThisFile = std::ranges::count(media.dataReferences, DataReference(ThisFile{}));
  if (inThisFile != 0 && !source.movie->file) {
    throw Refused{couldNotResolveDataRef, "the source has no file"};
  }
  CheckLocated(media.samples, {0, media.samples.Count()});
}

// The edits of [from, from + length) of a source track in the time scale of `movie`.
EditList SegmentFor(const MovieRecord& movie, const TrackRecord& source, MovieTime from,
                    MovieTime length) {
  EditList edits = source.edits.Segment(from, length, source.TimeClock());
  const ScaleChange place{source.movie->header.scale, movie.header.scale};
  if (place.from != place.to) {
    edits.MapBoundaries(place, false, {movie.header.scale, source.media->header.scale});
  }
  return edits;
}

// Makes sure that no edit reaches past the end of its media, not even by rounding. After a join,
// such an edit would show new samples.
void EndEditsWithMedia(TrackRecord& track) {
  SampleTable& samples = track.media->samples;
  const Clock clock = track.TimeClock();
  track.edits.EndWithMedia(samples.EndTime(), clock);
  for (const Edit& edit : track.edits.Edits()) {
    if (edit.IsEmpty()) continue;
    samples.HoldUntil(edit.mediaTime + clock.Shown(edit.duration, edit.rate, Rounding::kUp));
  }
}

// Inserts edits of `media`, which is joined to the media of the track unless it is that media. Both
// have the same scale. What follows moves right by `room`.
void InsertEdits(const MediaRecord& media, EditList edits, TrackRecord& track, MovieTime at,
                 MovieTime room) {
  if (&media != &*track.media) {
    EndEditsWithMedia(track);
    const MediaTime base = track.media->Join(media);
    edits.MapMedia([base](MediaTime time) { return time + base; });
  }
  track.edits.Insert(edits, at, room, track.TimeClock());
}

// A source track, the edits of it that are inserted, and the track they go to.
struct Insertion {
  const TrackRecord* source;
  EditList edits;
  TrackRecord* target = nullptr;
};

// The tracks of `source` that show media in [from, from + length), without targets. If that is the
// whole movie, also those whose samples are timeless.
std::vector<Insertion> InsertionsOf(const MovieRecord& source, const MovieRecord& movie,
                                    MovieTime from, MovieTime length) {
  std::vector<Insertion> insertions;
  for (const auto& track : source.tracks) {
    // A hint track is left out: its packets name samples of other tracks by number.
    if (!track->media || track->media->Type() == kHint) continue;
    EditList edits = SegmentFor(movie, *track, from, length);
    const bool isWhole = from == MovieTime{} && length == source.Duration();
    if (edits.Edits().empty() && !(isWhole && track->media->samples.IsTimeless())) continue;
    CheckJoinable(*track);
    insertions.push_back({track.get(), std::move(edits)});
  }
  return insertions;
}

// Gives the target tracks the references that their sources have among themselves.
void CarryReferences(const std::vector<Insertion>& insertions) {
  std::map<const TrackRecord*, TrackRecord*> targets;
  for (const Insertion& insertion : insertions) targets[insertion.source] = insertion.target;
  for (const Insertion& insertion : insertions) {
    for (const TrackReferences& references : insertion.source->references) {
      for (const TrackRecord* target : references.targets) {
        const auto found = targets.find(target);
        if (found != targets.end()) insertion.target->Refer(references.type, *found->second);
      }
    }
  }
}

void CheckSpan(MovieTime from, MovieTime length, MovieTime at) {
  if (from.units < 0 || at.units < 0) throw Refused{invalidTime};
  if (length.units < 0) throw Refused{invalidDuration};
}

}  // namespace

void InsertMovieSegment(const MovieRecord& source, MovieRecord& movie, MovieTime from,
                        MovieTime length, MovieTime at) {
  CheckSpan(from, length, at);
  length = std::min(length, source.Duration() - from);
  if (length.units <= 0) return;
  const MovieTime room = ScaleChange{source.header.scale, movie.header.scale}(length);
  std::vector<Insertion> insertions = InsertionsOf(source, movie, from, length);

  // Tracks that are enabled or disabled like their source are preferred. Each track is used at most
  // once.
  std::vector<TrackRecord*> free;
  for (const auto& track : movie.tracks) free.push_back(track.get());
  for (const bool sameState : {true, false}) {
    for (Insertion& insertion : insertions) {
      if (insertion.target != nullptr) continue;
      const auto found = std::ranges::find_if(free, [&](const TrackRecord* track) {
        return (!sameState || track->IsEnabled() == insertion.source->IsEnabled()) &&
               Fits(*track, *insertion.source);
      });
      if (found == free.end()) continue;
      insertion.target = *found;
      free.erase(found);
    }
  }
  for (Insertion& insertion : insertions) {
    if (insertion.target == nullptr) insertion.target = &movie.AddTrackLike(*insertion.source);
    InsertEdits(*insertion.source->media, std::move(insertion.edits), *insertion.target, at, room);
  }
  for (TrackRecord* track : free) {
    if (track->edits.Duration() > at) track->edits.Insert({}, at, room, track->TimeClock());
  }
  CarryReferences(insertions);
}

void AddMovieSelection(const MovieRecord& source, MovieRecord& movie) {
  const MovieTime length = source.Duration();
  if (length.units == 0) return;
  std::vector<Insertion> insertions = InsertionsOf(source, movie, {}, length);
  const std::int64_t natural = Rescale(length.units, source.header.scale, movie.header.scale);
  const std::int64_t wanted = movie.header.selectionDuration;
  for (Insertion& insertion : insertions) {
    if (wanted > 0 && natural > 0) {
      insertion.edits.MapBoundaries(ScaleChange{natural, wanted}, true,
                                    {movie.header.scale, insertion.source->media->header.scale});
    }
    insertion.target = &movie.AddTrackLike(*insertion.source);
    const MovieTime room = insertion.edits.Duration();
    InsertEdits(*insertion.source->media, std::move(insertion.edits), *insertion.target,
                {movie.header.selectionTime}, room);
  }
  CarryReferences(insertions);
  for (std::size_t i = movie.tracks.size(); i-- > 0;) {
    const TrackRecord& track = *movie.tracks[i];
    const bool isTimeless = track.media && track.media->samples.IsTimeless();
    if (track.edits.Edits().empty() && !isTimeless) movie.RemoveTrack(track);
  }
}

void InsertTrackSegment(const TrackRecord& source, TrackRecord& track, MovieTime from,
                        MovieTime length, MovieTime at) {
  if (!source.media || !track.media) throw Refused{noMediaHandler};
  if (source.media->Type() != track.media->Type()) {
    throw Refused{mediaTypesDontMatch, "the media types differ"};
  }
  CheckSpan(from, length, at);
  const std::int32_t here = track.media->header.scale, there = source.media->header.scale;
  if (here != there && source.media->Type() == kSound) {
    throw Refused{mediaTypesDontMatch, "the time scales of the sound differ"};
  }
  const bool isEmpty = track.media->samples.Count() == 0;
  const bool isSameTrack = &source == &track;
  if (!isEmpty && !isSameTrack && !MayShareMedia(*source.media, *track.media)) {
    throw Refused{mediaTypesDontMatch, "their samples cannot be in one track"};
  }

  if (from == MovieTime{} && !isSameTrack && source.media->samples.IsTimeless()) {
    CheckJoinable(source);
    track.media->Join(*source.media);
  }
  length = std::min(length, source.edits.Duration() - from);
  if (length.units <= 0) return;
  const MovieTime room = ScaleChange{source.movie->header.scale, track.movie->header.scale}(length);
  EditList edits = SegmentFor(*track.movie, source, from, length);
  if (edits.Edits().empty()) return;
  if (!isSameTrack) CheckJoinable(source);
  if (here == there) return InsertEdits(*source.media, std::move(edits), track, at, room);

  // The least common multiple of both scales is exact for both. If it is too large, or the times do
  // not fit into their fields, the times of the source are rounded to the scale of the track.
  constexpr std::int64_t kFinest = 1'000'000;
  const std::int64_t common = std::lcm(std::int64_t{here}, std::int64_t{there});
  MediaRecord media = *track.media, sourceMedia = *source.media;
  try {
    if (common > kFinest) throw Refused{invalidDuration};
    media.SetScale(static_cast<std::int32_t>(common));
    sourceMedia.SetScale(static_cast<std::int32_t>(common));
  } catch (const Refused&) {
    media = *track.media;
    sourceMedia = *source.media;
    sourceMedia.SetScale(here);
  }
  edits.MapMedia(ScaleChange{there, sourceMedia.header.scale});
  track.edits.MapMedia(ScaleChange{here, media.header.scale});
  track.media = std::move(media);
  InsertEdits(sourceMedia, std::move(edits), track, at, room);
}

}  // namespace toolbox
