// Makes chapter tracks that every reader of chapters understands: most read only one track, and
// ignore its edits.
#pragma once

#include "toolbox/movie/movie.h"

namespace toolbox {

// Moves the chapters of a track into one chapter track: the first that the track refers to gets the
// chapters of the others, which are removed. They can differ in language or time scale. A chapter
// track stays if it is enabled, shows chapters while the first one does, or has samples that cannot
// be in the first one.
//
//   first   |A|B|- - -|E|        |A|B|C|D|E|
//   second  |- -|C|D|       ->
//
// Returns false if nothing has changed.
bool JoinChapterTracks(MovieRecord& movie);

// Makes a new table of the samples of a chapter track. Then one edit of rate 1 shows all samples,
// and each sample lasts as long as it was shown. A gap belongs to the chapter before it; the empty
// edit before the first chapter stays. A track that would have more than a million samples, because
// many edits show many samples each, keeps its edits. The samples must not be encrypted.
//
//   edits  |- -|A|B|- -|  C  |          |- -|    1 edit   |
//   media  | A  |  B  |  C  |     ->        |A|  B  |  C      |
//
// Throws Refused: invalidDuration (a chapter is too long for a file), invalidSampleTable (a sample
// is in no chunk).
void LayOutChapters(TrackRecord& track);

}  // namespace toolbox
