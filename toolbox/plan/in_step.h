// Lays out the time line of a media so that it runs in step with the time line of the movie.
//
// Most players do not follow several edits: some use only the first one, others show half of the
// pictures. All of them show one edit alike.
#pragma once

#include <memory>

#include "toolbox/movie/movie.h"

namespace toolbox {

// A copy of the movie for a self-contained file, in which as many tracks as possible have one edit
// (after an empty one at the start). It can be null if no track changes.
//
//   edits  | A  |    B    |- -|  C  |          |          1 edit         |
//   media  | A  |xx|    B    |x| C  |    ->    | A  |    B    |   |  C  |    x: not shown
//
// Pictures are held through gaps. Sound and subtitles get empty samples there. Chapters last until
// the next one. Sample data stays as it is. A track keeps its edits if
//   - an edit has a rate other than 1, or media is not shown in its own order, or shown twice
//   - an edit needs pictures that it does not show, except at the very start and end
//   - another video track shows something in a gap between its pictures
//   - it is compressed sound for which NeedsOnePacketBefore is false
//   - it is not video, sound or text, or is encrypted, or has a hint track
// Throws Refused: invalidDuration (a chapter is too long for a file), invalidSampleTable (a sample
// is in no chunk).
std::unique_ptr<MovieRecord> LaidOutInStep(const MovieRecord& movie);

}  // namespace toolbox
