// Makes the edits of a track from the edit list in its file ('elst', ISO/IEC 14496-12 8.6.6) and
// the media that was found.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// The edits as the file states them, before they are checked.
struct StatedEdits {
  std::uint64_t duration = 0;  // of the track, by 'tkhd', in movie units
  std::optional<EditEntries> list;  // nothing if the file has no edit list
  // The movie has fragments, so the header does not have the duration of the whole media.
  bool isOpenEnded = false;
};

// Sets track.edits. The samples of the track must have been read. If the file has no valid list,
// the track shows its whole media from movie time 0 on.
//
// `start` is the time of the first sample, in media units, on the time line that the list uses. It
// can differ from 0 only in a movie with fragments. An edit that begins earlier has nothing to show
// until then, so it starts with an empty edit. Returns by how much this delays the track, in movie
// units:
//
//   elst    |   [ 5 .. 20 )   |              start 8
//   edits   |  |  [ 0 .. 12 ) |              returns 3
MovieTime ReadEdits(const StatedEdits& stated, std::int64_t start, TrackRecord& track);

// The times [from, to) of a media.
struct MediaStretch {
  MediaTime from, to;
};

// Replaces those parts of edits that show one of `gaps` by empty edits. `gaps` are in order and do
// not overlap:
//
//   | media, gaps included |    ->    | media | nothing | media |
void HideGaps(std::span<const MediaStretch> gaps, TrackRecord& track);

// Deletes from the start of every track the delay that all tracks share. `waits` has the delay of
// each track, as ReadEdits returned it. Without this, a recording of the last hour of a day would
// begin with 23 empty hours. Throws Malformed if a track is still too long after that.
void DropCommonWait(MovieRecord& movie, std::span<const MovieTime> waits);

}  // namespace toolbox
