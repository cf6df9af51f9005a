// The edits of a track as its file states them, made to fit the media that was found.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

struct StatedEdits {
  std::uint64_t duration = 0;  // of the track, by its header
  std::optional<EditEntries> list;
  // The media may lie in fragments: the header cannot know how long it is.
  bool isOpenEnded = false;
};

// Gives the track, whose media is read, its edits: without a list that makes sense the whole media
// from movie time 0 on.
//
// `start` is the time of the first sample where the list counts from, 0 but for a media in
// fragments. Until then an edit has nothing to show and waits:
//
//   elst    |   [ 5 .. 20 )   |              start 8
//   edits   |  |  [ 0 .. 12 ) |              returns 3, in movie units
MovieTime ReadEdits(const StatedEdits& stated, std::int64_t start, TrackRecord& track);

// A stretch of a media, in its units.
struct MediaStretch {
  MediaTime from, to;
};

// Has the track show nothing where it shows one of `gaps`, which are in order:
//
//   | media, gaps included |    ->    | media | nothing | media |
void HideGaps(std::span<const MediaStretch> gaps, TrackRecord& track);

// Takes away, from the front of every track, what all of them wait; `waits` is by track. A
// recording of the last hour of a day does not begin with 23 hours of nothing.
void DropCommonWait(MovieRecord& movie, std::span<const MovieTime> waits);

}  // namespace toolbox
