// Removes playback rates from edits, because MPEG-4 files have no rates other than 1 and 0
// (ISO/IEC 14496-12 8.6.6).
#pragma once

#include "toolbox/movie/track.h"

namespace toolbox {

// Moves the rates of the edits into the samples: each sample then lasts as long as its edit shows
// it, and the edit has rate 1.
//
//   edit   |     A x 2     |               |      A' x 1     |
//   media  |a a a a a a a a|    ->         |aaaaaaaa|           each sample half as long
//
// Samples that are shown at several rates are in the table once for each rate. Samples that no edit
// needs are left out. An edit of rate 0, which holds one sample, keeps its rate. Changes nothing if
// all rates are 1 or 0. The time scale of the media may become finer; that of sound stays.
// Throws Refused: invalidDuration (a sample becomes too long for a file).
void FoldRates(TrackRecord& track);

}  // namespace toolbox
