#include "toolbox/movie/segments.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <vector>

#include "toolbox/movie/sample_places.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kHint{"hint"};
constexpr FourCC kSound{"soun"};

bool SameAtom(const Siblings& a, const Siblings& b, FourCC type) {
  const Sibling* first = FindSibling(a, type);
  const Sibling* second = FindSibling(b, type);
  return first == nullptr || second == nullptr ? first == second : *first == *second;
}

// A description that names no data reference reads the first file, so its media cannot come to lie
// in two. One that does lie in two need not be asked.
bool MayLieInSeveralFiles(const MediaRecord& media) {
  return media.dataReferences.size() > 1 ||
         std::ranges::all_of(media.descriptions, &SampleDescription::HoldsReference);
}

bool MayShareMedia(const MediaRecord& a, const MediaRecord& b) {
  return a.Type() == b.Type() && MayLieInSeveralFiles(a) && MayLieInSeveralFiles(b) &&
         !a.IsProtected() && !b.IsProtected();
}

// QuickTime: 0x7FFF is no particular language.  ISO: it is 'und', packed.
std::uint16_t Language(const MediaRecord& media) {
  constexpr std::uint16_t kUnspecified = 0x7FFF, kUndetermined = 0x55C4;
  return media.language == kUndetermined ? kUnspecified : media.language;
}

bool Fits(const TrackRecord& track, const TrackRecord& source) {
  return track.media && MayShareMedia(*track.media, *source.media) &&
         track.media->scale == source.media->scale &&
         Language(*track.media) == Language(*source.media) && track.width == source.width &&
         track.height == source.height && track.matrix == source.matrix &&
         track.alternateGroup == source.alternateGroup &&
         SameAtom(track.siblings, source.siblings, FourCC{"clip"}) &&
         SameAtom(track.siblings, source.siblings, FourCC{"matt"});
}

// Refuses media whose samples cannot be told from elsewhere, or cannot be decrypted there.
void CheckJoinable(const TrackRecord& source) {
  const MediaRecord& media = *source.media;
  const bool isOwn = std::ranges::any_of(media.dataReferences, [](const DataReference& reference) {
    return std::holds_alternative<ThisFile>(reference);
  });
  if (media.IsProtected()) throw Refused{featureUnsupported};
  if (isOwn && !source.movie->file) throw Refused{couldNotResolveDataRef};
  if (LocatedCount(media.samples) < media.samples.Count()) throw Refused{invalidSampleTable};
}

// The edits of [from, from + length) of a source track in the time scale of `movie`.
EditList SegmentFor(const MovieRecord& movie, const TrackRecord& source, MovieTime from,
                    MovieTime length) {
  EditList edits = source.edits.Segment(from, length, source.TimeClock());
  const std::int32_t sourceScale = source.movie->scale;
  if (sourceScale != movie.scale) {
    edits.MapBoundaries(
        [&](MovieTime time) { return MovieTime{Rescale(time.units, sourceScale, movie.scale)}; },
        false, {movie.scale, source.media->scale});
  }
  return edits;
}

// An edit may reach past the end of its media, if only by rounding: there it shows nothing, and
// must not come to show what is joined.
void MakeRoomBehind(TrackRecord& track) {
  SampleTable& samples = track.media->samples;
  const Clock clock = track.TimeClock();
  track.edits.EndWithMedia({samples.EndTime()}, clock);
  for (const Edit& edit : track.edits.Edits()) {
    if (edit.IsEmpty()) continue;
    samples.StretchTo(
        (edit.mediaTime + clock.Shown(edit.duration, edit.rate, Rounding::kUp)).units);
  }
}

// Joins the media of `source`, whose times are those of `sourceMedia`, and lays its edits in.
void Lay(const TrackRecord& source, const MediaRecord& sourceMedia, EditList edits,
         TrackRecord& track, MovieTime at, MovieTime room) {
  if (&*source.media != &*track.media) {
    MakeRoomBehind(track);
    const MediaTime base = track.media->Join(sourceMedia);
    edits.MapMedia([base](MediaTime time) { return time + base; });
  }
  track.edits.Insert(edits, at, room, track.TimeClock());
}

// A source track, what of it is to be shown, and where that goes.
struct Pair {
  const TrackRecord* source;
  EditList edits;
  TrackRecord* target = nullptr;
};

// The tracks of `source` that show media in [from, from + length).
std::vector<Pair> TracksToLay(const MovieRecord& source, const MovieRecord& movie, MovieTime from,
                              MovieTime length) {
  std::vector<Pair> pairs;
  for (const auto& track : source.tracks) {
    // Packets of a hint track name samples of other tracks by number.
    if (!track->media || track->media->Type() == kHint) continue;
    EditList edits = SegmentFor(movie, *track, from, length);
    if (edits.Edits().empty()) continue;
    CheckJoinable(*track);
    pairs.push_back({track.get(), std::move(edits)});
  }
  return pairs;
}

// Gives the targets the references that their sources have among themselves.
void CarryReferences(const std::vector<Pair>& pairs) {
  std::map<const TrackRecord*, TrackRecord*> targets;
  for (const Pair& pair : pairs) targets[pair.source] = pair.target;
  for (const Pair& pair : pairs) {
    for (const TrackReferences& references : pair.source->references) {
      for (const TrackRecord* target : references.targets) {
        const auto found = targets.find(target);
        if (found != targets.end()) pair.target->Refer(references.type, *found->second);
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
  const MovieTime room{Rescale(length.units, source.scale, movie.scale)};
  std::vector<Pair> pairs = TracksToLay(source, movie, from, length);

  // Each track as it was before the call is used at most once, one in the same enabled state first.
  std::vector<TrackRecord*> free;
  for (const auto& track : movie.tracks) free.push_back(track.get());
  for (const bool sameState : {true, false}) {
    for (Pair& pair : pairs) {
      if (pair.target != nullptr) continue;
      const auto found = std::ranges::find_if(free, [&](const TrackRecord* track) {
        return (!sameState || track->IsEnabled() == pair.source->IsEnabled()) &&
               Fits(*track, *pair.source);
      });
      if (found == free.end()) continue;
      pair.target = *found;
      free.erase(found);
    }
  }
  for (Pair& pair : pairs) {
    if (pair.target == nullptr) pair.target = &movie.AddTrackLike(*pair.source);
    Lay(*pair.source, *pair.source->media, std::move(pair.edits), *pair.target, at, room);
  }
  for (TrackRecord* track : free) {
    if (track->edits.Duration() > at) track->edits.Insert({}, at, room, track->TimeClock());
  }
  CarryReferences(pairs);
}

void AddMovieSelection(const MovieRecord& source, MovieRecord& movie) {
  const MovieTime length = source.Duration();
  if (length.units == 0) return;
  std::vector<Pair> pairs = TracksToLay(source, movie, {}, length);
  const std::int64_t natural = Rescale(length.units, source.scale, movie.scale);
  const std::int64_t wanted = movie.selectionDuration.units;
  for (Pair& pair : pairs) {
    if (wanted > 0 && natural > 0) {
      pair.edits.MapBoundaries(
          [&](MovieTime time) { return MovieTime{Rescale(time.units, natural, wanted)}; }, true,
          {movie.scale, pair.source->media->scale});
    }
    pair.target = &movie.AddTrackLike(*pair.source);
    const MovieTime room = pair.edits.Duration();
    Lay(*pair.source, *pair.source->media, std::move(pair.edits), *pair.target, movie.selectionTime,
        room);
  }
  CarryReferences(pairs);
  for (std::size_t i = movie.tracks.size(); i-- > 0;) {
    const bool showsMedia = std::ranges::any_of(movie.tracks[i]->edits.Edits(),
                                                [](const Edit& edit) { return !edit.IsEmpty(); });
    if (!showsMedia) movie.RemoveTrack(*movie.tracks[i]);
  }
}

void InsertTrackSegment(const TrackRecord& source, TrackRecord& track, MovieTime from,
                        MovieTime length, MovieTime at) {
  if (!source.media || !track.media) throw Refused{noMediaHandler};
  if (source.media->Type() != track.media->Type()) throw Refused{mediaTypesDontMatch};
  CheckSpan(from, length, at);
  const std::int32_t here = track.media->scale, there = source.media->scale;
  if (here != there && source.media->Type() == kSound) throw Refused{mediaTypesDontMatch};
  const bool isEmpty = track.media->samples.Count() == 0;
  const bool isOwn = &source == &track;
  if (!isEmpty && !isOwn && !MayShareMedia(*source.media, *track.media)) {
    throw Refused{mediaTypesDontMatch};
  }

  length = std::min(length, source.edits.Duration() - from);
  if (length.units <= 0) return;
  const MovieTime room{Rescale(length.units, source.movie->scale, track.movie->scale)};
  EditList edits = SegmentFor(*track.movie, source, from, length);
  if (edits.Edits().empty()) return;
  if (!isOwn) CheckJoinable(source);
  if (here == there) return Lay(source, *source.media, std::move(edits), track, at, room);

  // A scale that both media have whole numbers of: exact for both. Where it would be too fine, the
  // source's times are rounded.
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
  const auto inScale = [](std::int32_t old, std::int32_t now) {
    return [old, now](MediaTime time) { return MediaTime{Rescale(time.units, old, now)}; };
  };
  edits.MapMedia(inScale(there, sourceMedia.scale));
  track.edits.MapMedia(inScale(here, media.scale));
  track.media = std::move(media);
  Lay(source, sourceMedia, std::move(edits), track, at, room);
}

}  // namespace toolbox
