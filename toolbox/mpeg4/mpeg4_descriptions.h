// Sample descriptions for MPEG-4 files, made of those that QuickTime writes.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"

namespace toolbox {

// The description as an MPEG-4 file has it; `scale` is the time scale of its media. Throws Refused:
// featureUnsupported (a format other than 'mp4v', 'avc1' and 'mp4a'), invalidSampleDescription (one
// that lacks what a decoder needs).
Bytes Mpeg4Description(ByteSpan description, std::int32_t scale);

}  // namespace toolbox
