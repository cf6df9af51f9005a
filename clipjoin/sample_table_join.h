// Joining tracks by their sample tables: the samples of one track become part of another track's
// media.
#pragma once

#include "toolbox/toolbox.h"

namespace clipjoin {

// Appends all samples of the media of `source` to the media of `track`, by reference, and shows
// them at the end of `track`. All samples are shown, including those that the edits of `source`
// hide. Failed steps are reported. Different time scales are reported too, unless `quiet`. Returns
// 1 if the media have different time scales, or the code of the step that failed. If the last step,
// showing the samples, fails, it returns noErr all the same.
toolbox::OSErr JoinTrackBySampleTable(toolbox::Track track, toolbox::Track source, bool quiet);

// Does the same for a track of the output. A track that shows nothing yet starts at `at`, in units
// of its movie; any other continues at its end.
//
//   | track |      ->   | track | source |          | nothing |   ->   |       | source |
//                                                                              ^ at
toolbox::OSErr myAppendTrack(toolbox::Track track, toolbox::Track source, toolbox::TimeValue at,
                             bool quiet);

}  // namespace clipjoin
