// Plans the export of a movie as an MPEG-4 file (ISO/IEC 14496-14). Samples are copied as they are;
// the atoms around them are converted from QuickTime to ISO/IEC 14496-12.
#pragma once

#include <cstdint>

#include "toolbox/mpeg4/export_settings.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// Plans a self-contained file with the enabled video track and the enabled sound track of the
// movie, and with its chapters: every text track that a track refers to as chapters ('chap').
// Chapter tracks become disabled. If `only` is not null, no other video or sound track is exported.
// Nothing is written, and the movie does not change. The plan owns the converted copy that it
// refers to. `unit` is FilePlan::unit.
//
// Throws Refused, with the codes of PlanFlattened and these:
//   featureUnsupported        the media would have to be encoded again, no track is left, or there
//                             are two enabled tracks of one kind
//   invalidSampleDescription  a description lacks what a decoder needs
//   invalidSampleTable        samples that are shown are in no chunk
//   invalidDuration           a sample lasts too long for a file
FilePlan PlanMpeg4(const MovieRecord& movie, const TrackRecord* only, const Mpeg4Settings& settings,
                   std::uint64_t unit = 1);

}  // namespace toolbox
