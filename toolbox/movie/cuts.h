// Stretches of a track or a movie taken out, made longer or shorter, or shown once more.
#pragma once

#include "toolbox/movie/movie.h"

namespace toolbox {

// All times are in movie units. A stretch may reach past the end: what is there is meant. Each
// function throws Refused (invalidTime, invalidDuration) before anything has changed.

// Takes [from, from + length) out; what follows moves left.
//
//   |   A   |   B   |            |  A |  B  |
//        ^---^              ->
void DeleteSegment(TrackRecord& track, MovieTime from, MovieTime length);
// ... out of every track.
void DeleteSegment(MovieRecord& movie, MovieTime from, MovieTime length);

// Makes [from, from + length) last `newLength`: it still shows the same media, slower or faster.
//
//   |   A   |   B   |            |   A  |     |     |  B  |
//        ^---^              ->
void ScaleSegment(TrackRecord& track, MovieTime from, MovieTime length, MovieTime newLength);
// ... in every track, by the same rule, so that the tracks stay in step to the unit.
void ScaleSegment(MovieRecord& movie, MovieTime from, MovieTime length, MovieTime newLength);

// Shows the media of the track from `mediaTime` for `length` media units at `rate`, laid in at
// `at`; what follows moves right. Nothing for `at`: behind all that the track shows. Also throws
// Refused: noMediaHandler.
void InsertMedia(TrackRecord& track, std::optional<MovieTime> at, MediaTime mediaTime,
                 MediaTime length, double rate);

// Gives the track an empty stretch of that length in front, in place of the one it has.
void SetOffset(TrackRecord& track, MovieTime offset);

}  // namespace toolbox
