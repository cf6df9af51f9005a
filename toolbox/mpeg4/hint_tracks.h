// Adds hint tracks, which a streaming server reads to send the other tracks by RTP.
// ISO/IEC 14496-12 9.1.
#pragma once

#include "toolbox/mpeg4/export_settings.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// Adds a hint track for each track of the plan, and the session descriptions for the tracks and the
// movie. A hint track that cannot be made is left out, because the movie plays without it. Reads
// the media of AVC tracks. The tracks of the plan must be converted for MPEG-4 already.
void AddHintTracks(FilePlan& plan, const Mpeg4Settings& settings);

}  // namespace toolbox
