// Media for a file in which every edit shows them at their own speed.
#pragma once

#include "toolbox/movie/track.h"

namespace toolbox {

// Makes the samples last as long as edits of another rate show them, and those edits of rate 1:
//
//   edit   |     A x 2     |               |      A' x 1     |
//   media  |a a a a a a a a|    ->         |aaaaaaaa|           each sample half as long
//
// What edits show at several speeds is there once for each. An edit of rate 0, which dwells on one
// sample, stays as it is. Throws Refused (invalidDuration).
void FoldRates(TrackRecord& track);

}  // namespace toolbox
