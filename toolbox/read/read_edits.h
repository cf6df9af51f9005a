// Makes the edits of a track from the edit list in its file ('elst', ISO/IEC 14496-12 8.6.6) and
// the media that was found.
#pragma once

#include <cstdint>
#include <span>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// Times of a track in fragments, in units of its media.
struct FragmentTimes {
  std::int64_t start = 0;  // when the first sample is decoded, on the time line of the edit list
  // When the last sample of the movie header has been decoded, and when it stops being shown. Both
  // are 0 if the header has no samples or if no fragment continues them.
  MediaTime headerDecoded, headerShown;
};

// Sets track.edits from `list`. Header and samples of the track must have been read. If there is no
// list, or it is not valid, the track shows its whole media from movie time 0 on. `fragments` is
// null for a movie without fragments.
//
// An edit that begins before the first sample has nothing to show until then, so it starts with an
// empty edit. Returns by how much this delays the track, in movie units:
//
//   elst    |   [ 5 .. 20 )   |              start 8
//   edits   |  |  [ 0 .. 12 ) |              returns 3
//
// If the last edit ends where the samples of the header end, it also shows all fragments. A writer
// that adds fragments does not change the header.
MovieTime ReadEdits(const EditEntries* list, const FragmentTimes* fragments, TrackRecord& track);

// The times [from, to) of a media.
struct MediaStretch {
  MediaTime from, to;
};

// Replaces those parts of edits that show one of `gaps` by empty edits. `gaps` are in order and do
// not overlap:
//
//   | media, gaps included |    ->    | media | nothing | media |
void HideGaps(std::span<const MediaStretch> gaps, TrackRecord& track);

// Deletes from the start of every track the delay that all tracks share. `delays` has the delay of
// each track, as ReadEdits returned it. Without this, a recording of the last hour of a day would
// begin with 23 empty hours. Throws Malformed if a track is still too long after that.
void DropCommonDelay(MovieRecord& movie, std::span<const MovieTime> delays);

}  // namespace toolbox
