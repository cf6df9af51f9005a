// Edits of whole movies: stretches of one movie laid into another.
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
// Throws Refused: invalidTime, invalidDuration; then nothing has changed.
void InsertMovieSegment(const MovieRecord& source, MovieRecord& movie, MovieTime from,
                        MovieTime length, MovieTime at);

}  // namespace toolbox
