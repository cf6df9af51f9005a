// Removes parts of a track or a movie, changes their length, or shows media once more.
#pragma once

#include "toolbox/movie/movie.h"

namespace toolbox {

// Times are in movie units unless they are media times. [from, from + length) may reach past the
// end. Each function throws Refused (invalidTime, invalidDuration) before anything changes.

// Removes [from, from + length). What follows moves left.
//
//   |   A   |   B   |            |  A |  B  |
//        ^---^              ->
void DeleteSegment(TrackRecord& track, MovieTime from, MovieTime length);
// The same for every track.
void DeleteSegment(MovieRecord& movie, MovieTime from, MovieTime length);

// Changes the length of [from, from + length) to `newLength`. It shows the same media, slower or
// faster.
//
//   |   A   |   B   |            |   A  |     |     |  B  |
//        ^---^              ->
void ScaleSegment(TrackRecord& track, MovieTime from, MovieTime length, MovieTime newLength);
// The same for every track. All boundaries are rounded alike, so tracks stay in step to the unit.
void ScaleSegment(MovieRecord& movie, MovieTime from, MovieTime length, MovieTime newLength);

// Inserts an edit at `at`, or after the last edit if `at` is nothing. It shows `length` media units
// from `mediaTime` on at `rate`. What follows moves right. If it is the first edit and shows all of
// the media, reordered pictures lose their delay, so that every picture is shown and the first one
// at 0. Also throws Refused: noMediaHandler.
//
//   |   A   |   B   |            |   A   | new |   B   |
//           ^ at            ->
void InsertMedia(TrackRecord& track, std::optional<MovieTime> at, MediaTime mediaTime,
                 MediaTime length, double rate);

// Makes the empty edit at the start of the track `offset` movie units long; 0 removes it. All other
// edits move. Throws Refused: invalidTime.
//
//   |- -|   A   |                |- - - - -|   A   |
//                           ->   |<offset >|
void SetOffset(TrackRecord& track, MovieTime offset);

}  // namespace toolbox
