// Lays out the time line of a media so that it runs in step with the time line of the movie.
//
// By the standard, several edits show what they say. Most players do not do so: some use only the
// first edit, others show half of the pictures. One edit is shown alike by all of them.
#pragma once

#include <memory>

#include "toolbox/movie/movie.h"

namespace toolbox {

// A copy of the movie for a self-contained file, in which as many tracks as possible have one edit
// (after an empty one at the start). Null if every track stays as it is.
//
//   edits  | A  |    B    |- -|  C  |          |          1 edit         |
//   media  | A  |xx|    B    |x| C  |    ->    | A  |    B    |   |  C  |    x: not shown
//
// Pictures are held through gaps. Sound and subtitles get empty samples there. Chapters last until
// the next one. Sample data stays as it is. A track keeps its edits if
//   - an edit has a rate other than 1, or media is not shown in its own order, or shown twice
//   - samples that are not shown must be decoded for a later edit
//   - a gap between pictures shows the pictures of another track
//   - its samples depend on more than the sample before (see HasIndependentPackets), or are of
//     another kind
// Throws Refused: invalidDuration (a chapter is too long for a file).
std::unique_ptr<MovieRecord> LaidOutInStep(const MovieRecord& movie);

}  // namespace toolbox
