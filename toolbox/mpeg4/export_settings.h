// The settings of the MPEG-4 exporter, and the exporter that keeps them between two calls.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"

namespace toolbox {

struct Mpeg4Settings {
  bool keepsCoding = true;  // false: encode again, which is not supported
  bool hasHints = false;  // whether to add hint tracks for streaming servers
  std::uint32_t packetSize = 1450;  // the largest packet in bytes, RTP header included
  std::uint32_t packetDuration = 100;  // the most sound in a packet, in milliseconds
};

// An open exporter component. It starts with the default settings.
struct ExporterRecord {
  Mpeg4Settings settings;
};

// Reads a container of settings; atoms/export_settings.h has its form. A setting that is not in the
// container keeps its default, and unknown settings are ignored. Throws Refused: paramErr (the
// container is malformed).
Mpeg4Settings ReadMpeg4Settings(ByteSpan container);

}  // namespace toolbox
