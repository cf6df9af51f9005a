// Makes the edits of a track from the edit list in its file ('elst', ISO/IEC 14496-12 8.6.6) and
// the media that was found.
#pragma once

#include <cstdint>
#include <span>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// Sets track.edits from `list`. Header and samples of the track must have been read. If there is no
// list, or it is not valid, the track shows its whole media from movie time 0 on. If
// `isFragmented`, the track header may state the duration of only a part of the media.
//
// `start` is the time of the first sample, in media units, on the time line that the list uses. It
// can differ from 0 only in a movie with fragments. An edit that begins earlier has nothing to show
// until then, so it starts with an empty edit. Returns by how much this delays the track, in movie
// units:
//
//   elst    |   [ 5 .. 20 )   |              start 8
//   edits   |  |  [ 0 .. 12 ) |              returns 3
MovieTime ReadEdits(const EditEntries* list, bool isFragmented, std::int64_t start,
                    TrackRecord& track);

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
