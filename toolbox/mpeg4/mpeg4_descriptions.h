// Converts QuickTime sample descriptions to those of MPEG-4 files.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "toolbox/bytes.h"
#include "toolbox/refused.h"

namespace toolbox {

// The value of a part that every description must have. Throws Refused: invalidSampleDescription
// (there is none).
template <class T>
T ValueOrRefuse(std::optional<T> part) {
  if (!part) throw Refused{invalidSampleDescription, "it lacks something that a decoder needs"};
  return *std::move(part);
}

// Returns the whole sample entry for an MPEG-4 file (ISO/IEC 14496-12 12.1.3 and 12.2.3,
// ISO/IEC 14496-14 5.6). `description` is a whole entry; it keeps its data-reference number.
// `scale` is the time scale of its media. Throws Refused: featureUnsupported (a format other than
// 'mp4v', 'avc1' and 'mp4a'), invalidSampleDescription (something that a decoder needs is missing).
Bytes Mpeg4Description(ByteSpan description, std::int32_t scale);

}  // namespace toolbox
