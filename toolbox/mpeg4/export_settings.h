// The settings of the MPEG-4 exporter.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"

namespace toolbox {

// An open exporter, which is only its settings. These are the defaults.
struct Mpeg4Settings {
  bool keepsCoding = true;  // false: encode again, which is not supported
  bool hasHints = false;  // whether to add hint tracks for streaming servers
  std::uint32_t packetSize = 1450;  // the largest packet in bytes, RTP header included
  std::uint32_t packetDuration = 100;  // the most sound in a packet, in milliseconds
};

// Reads a container of settings; atoms/export_settings.h has its form. A setting that is not in the
// container keeps its default, and unknown settings are ignored. Throws Refused: paramErr (the
// container is malformed).
Mpeg4Settings ReadMpeg4Settings(ByteSpan container);

}  // namespace toolbox
