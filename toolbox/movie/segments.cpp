#include "toolbox/movie/segments.h"

#include <algorithm>
#include <map>
#include <vector>

#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kHint{"hint"};

bool SameAtom(const Siblings& a, const Siblings& b, FourCC type) {
  const Sibling* first = FindSibling(a, type);
  const Sibling* second = FindSibling(b, type);
  return first == nullptr || second == nullptr ? first == second : *first == *second;
}

// Whether the two media may become one. A description that names no data reference reads the first
// file, so its media cannot come to lie in two.
bool MayShareMedia(const MediaRecord& a, const MediaRecord& b) {
  const auto holdsReference = [](const SampleDescription& description) {
    return description.HoldsReference();
  };
  return a.Type() == b.Type() && a.scale == b.scale && a.language == b.language &&
         std::ranges::all_of(a.descriptions, holdsReference) &&
         std::ranges::all_of(b.descriptions, holdsReference);
}

bool Fits(const TrackRecord& track, const TrackRecord& source) {
  return track.media && MayShareMedia(*track.media, *source.media) && track.width == source.width &&
         track.height == source.height && track.matrix == source.matrix &&
         track.alternateGroup == source.alternateGroup &&
         SameAtom(track.siblings, source.siblings, FourCC{"clip"}) &&
         SameAtom(track.siblings, source.siblings, FourCC{"matt"});
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

// Refuses media whose samples cannot be told from here.
void CheckJoinable(const MediaRecord& media, const MovieRecord& movie) {
  const bool isOwn = std::ranges::any_of(media.dataReferences, [](const DataReference& reference) {
    return std::holds_alternative<ThisFile>(reference);
  });
  if (isOwn && !movie.file) throw Refused{couldNotResolveDataRef};
  if (media.samples.LocatedCount() < media.samples.Count()) throw Refused{invalidSampleTable};
}

}  // namespace

void InsertMovieSegment(const MovieRecord& source, MovieRecord& movie, MovieTime from,
                        MovieTime length, MovieTime at) {
  if (from.units < 0 || at.units < 0) throw Refused{invalidTime};
  if (length.units < 0) throw Refused{invalidDuration};
  length = std::min(length, source.Duration() - from);
  if (length.units <= 0) return;
  const MovieTime room{Rescale(length.units, source.scale, movie.scale)};

  struct Pair {
    const TrackRecord* source;
    EditList edits;
    TrackRecord* target = nullptr;
  };
  std::vector<Pair> pairs;
  for (const auto& track : source.tracks) {
    if (!track->media || track->media->Type() == kHint) continue;
    EditList edits = SegmentFor(movie, *track, from, length);
    if (edits.Edits().empty()) continue;
    CheckJoinable(*track->media, source);
    pairs.push_back({track.get(), std::move(edits)});
  }

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

  std::map<const TrackRecord*, TrackRecord*> targets;
  for (Pair& pair : pairs) {
    if (pair.target == nullptr) pair.target = &movie.AddTrackLike(*pair.source);
    targets[pair.source] = pair.target;
    TrackRecord& track = *pair.target;
    if (&*pair.source->media != &*track.media) {
      pair.edits.ShiftMedia(track.media->Join(*pair.source->media, source.file, movie.file));
    }
    track.edits.Insert(pair.edits, at, room, track.TimeClock());
  }
  for (TrackRecord* track : free) {
    if (track->edits.Duration() > at) track->edits.Insert({}, at, room, track->TimeClock());
  }
  for (const Pair& pair : pairs) {
    for (const TrackReferences& references : pair.source->references) {
      for (const TrackRecord* target : references.targets) {
        const auto found = targets.find(target);
        if (found != targets.end()) pair.target->Refer(references.type, *found->second);
      }
    }
  }
}

}  // namespace toolbox
