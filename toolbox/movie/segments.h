// Inserts parts of one movie or track into another.
#pragma once

#include "toolbox/movie/movie.h"

namespace toolbox {

// Inserts [from, from + length) of `source` into `movie` at `at`. `from` and `length` are in the
// time scale of the source, `at` in that of the movie. What starts at or after `at` moves right.
// The source does not change.
//
//   movie   |   A   |   B   |        |   A   | src |   B   |
//                   ^ at        ->
//
// Each source track goes into a track of the movie that fits: one with the same kind of media,
// scale, language and alternate group and, if it is seen, the same size, matrix, clip and matte. A
// track that is enabled or disabled like the source is preferred. Each track is used once. Where
// none fits, a track like the source's is added. Hint tracks, and tracks that show no media in the
// segment, are left out. References among the inserted tracks are kept. Media are joined by
// reference: no sample is copied.
//
// Throws Refused before anything changes: invalidTime, invalidDuration, couldNotResolveDataRef,
// invalidSampleTable, featureUnsupported (encrypted samples).
void InsertMovieSegment(const MovieRecord& source, MovieRecord& movie, MovieTime from,
                        MovieTime length, MovieTime at);

// Adds all of `source` in new tracks of `movie`, from the start of the movie's selection on. It is
// stretched to the length of the selection, unless that is 0.
//
//   movie   |   A   |   B   |        |   A   |   B   |
//               [selection]     ->       |   src   |
//
// Tracks of `movie` that show no media are removed. Throws Refused like InsertMovieSegment.
void AddMovieSelection(const MovieRecord& source, MovieRecord& movie);

// Inserts [from, from + length) of the track `source` into `track` at `at`, each in the units of
// its own movie. Later edits move right. Both tracks must have the same kind of media. If the
// scales of their media differ, both become a common one; sound of different scales is refused.
//
//   track   |   A   |   B   |        |   A   | src |   B   |
//                   ^ at        ->
//
// Throws Refused before anything changes: noMediaHandler, mediaTypesDontMatch (another kind of
// media, sound of another scale, or samples that cannot be in one track, because they are encrypted
// or a description of them cannot name its file), invalidTime, invalidDuration,
// couldNotResolveDataRef, invalidSampleTable, featureUnsupported (encrypted samples).
void InsertTrackSegment(const TrackRecord& source, TrackRecord& track, MovieTime from,
                        MovieTime length, MovieTime at);

}  // namespace toolbox
