// Stretches of one movie or track laid into another.
#pragma once

#include "toolbox/movie/movie.h"

namespace toolbox {

// Lays [from, from + length) of `source` into `movie` at `at`; `from` and `length` in the source's
// time scale, `at` in the movie's. What stands at or after `at` moves right; the source stays as it
// is.
//
//   movie   |   A   |   B   |        |   A   | src |   B   |
//                   ^ at        ->
//
// Each source track goes into a track of the movie that fits (same kind of media, scale, language,
// size, matrix, clip, matte and alternate group; the same enabled state if there is a choice), each
// used once; where none fits, a track like the source's is made. References between tracks that
// came along are kept. Media are joined by reference.
//
// Throws Refused: invalidTime, invalidDuration, couldNotResolveDataRef, invalidSampleTable,
// featureUnsupported (encrypted samples); then nothing has changed.
void InsertMovieSegment(const MovieRecord& source, MovieRecord& movie, MovieTime from,
                        MovieTime length, MovieTime at);

// Lays the whole of `source` beside what `movie` holds, in tracks of its own: from the start of the
// movie's selection, stretched to its length, or as long as it is when the selection has none.
//
//   movie   |   A   |   B   |        |   A   |   B   |
//               [selection]     ->       |   src   |
//
// Tracks of `movie` without any media are removed. Throws Refused like InsertMovieSegment.
void AddMovieSelection(const MovieRecord& source, MovieRecord& movie);

// Lays [from, from + length) of the track `source` into `track` at `at`, each in its own movie's
// units; later edits move right. The tracks hold the same kind of media; media time scales are
// brought together, but not those of sound.
//
// Throws Refused: noMediaHandler, mediaTypesDontMatch, invalidTime, invalidDuration,
// couldNotResolveDataRef, invalidSampleTable, featureUnsupported (encrypted samples); then nothing
// has changed.
void InsertTrackSegment(const TrackRecord& source, TrackRecord& track, MovieTime from,
                        MovieTime length, MovieTime at);

}  // namespace toolbox
