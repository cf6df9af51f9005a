// Joining tracks by their sample tables: the samples of a track become part of another's media.
#pragma once

#include "toolbox/toolbox.h"

namespace clipjoin {

// Appends all samples of the media of `source` to that of `track`, by reference, and shows them at
// the end of the track, whatever the source's edits show of them. Steps that fail are reported.
// Returns noErr, also when only showing them failed; 1 where the media have different time scales;
// else the code of the step that failed.
toolbox::OSErr JoinTrackBySampleTable(toolbox::Track track, toolbox::Track source);

// The same for a track of the output: one that shows nothing yet starts at `at`, in units of its
// movie, any other goes on at its end.
//
//   | track |      ->   | track | source |          | nothing |   ->   |       | source |
//                                                                              ^ at
toolbox::OSErr myAppendTrack(toolbox::Track track, toolbox::Track source, toolbox::TimeValue at);

}  // namespace clipjoin
