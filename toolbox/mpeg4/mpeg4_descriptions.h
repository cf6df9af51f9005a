// Converts QuickTime sample descriptions to those of MPEG-4 files.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"

namespace toolbox {

// Returns the whole sample entry for an MPEG-4 file (ISO/IEC 14496-12 12.1.3 and 12.2.3,
// ISO/IEC 14496-14 5.6). `description` is a whole entry; it keeps its data-reference number.
// `scale` is the time scale of its media. Throws Refused: featureUnsupported (a format other than
// 'mp4v', 'avc1' and 'mp4a'), invalidSampleDescription (something that a decoder needs is missing).
Bytes Mpeg4Description(ByteSpan description, std::int32_t scale);

}  // namespace toolbox
