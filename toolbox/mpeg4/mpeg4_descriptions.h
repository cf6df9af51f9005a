// Sample descriptions as ISO has them, made of those that QuickTime writes.
#pragma once

#include <cstdint>
#include <optional>

#include "toolbox/bytes.h"
#include "toolbox/mpeg4/decoder_config.h"

namespace toolbox {

// The description as an MPEG-4 file has it; `scale` is the time scale of its media. Throws Refused:
// featureUnsupported (a format other than 'mp4v', 'avc1' and 'mp4a'), invalidSampleDescription (one
// that does not tell how to decode).
Bytes Mpeg4Description(ByteSpan description, std::int32_t scale);

// What a description that Mpeg4Description gave tells the decoder; nothing when it is of another
// kind.
std::optional<ElementaryStream> StreamIn(ByteSpan description);
std::optional<AvcConfig> AvcConfigIn(ByteSpan description);

}  // namespace toolbox
