// Gives chapters their movie times, because most readers of chapters ignore edits.
#pragma once

#include "toolbox/movie/track.h"

namespace toolbox {

// Makes a new table of the samples of a chapter track. Then one edit of rate 1 shows all samples,
// and each sample lasts as long as it was shown. A gap belongs to the chapter before it; the empty
// edit before the first chapter stays. A track that would have more than a million samples, because
// many edits show many samples each, keeps its edits. The samples must not be encrypted.
//
//   edits  |- -|A|B|- -|  C  |          |- -|    1 edit   |
//   media  | A  |  B  |  C  |     ->        |A|  B  |  C  |
//
// Throws Refused: invalidDuration (a chapter is too long for a file), invalidSampleTable (a sample
// is in no chunk).
void LayOutChapters(TrackRecord& track);

}  // namespace toolbox
