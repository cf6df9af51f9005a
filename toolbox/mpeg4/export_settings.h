// The settings of the MPEG-4 exporter.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"

namespace toolbox {

struct Mpeg4Settings {
  bool keepsCoding = true;  // false: pictures or sound would have to be encoded again
  bool hasHints = false;  // whether to add hint tracks for streaming servers
  std::uint32_t packetSize = 1450;  // at most: bytes, with the RTP header
  std::uint32_t packetDuration = 100;  // of sound, at most: milliseconds
};

// An open exporter, which starts with the default settings.
struct ExporterRecord {
  Mpeg4Settings settings;
};

// Reads a container of settings, as in atoms/export_settings.h. A setting that is not in it keeps
// its default. Throws Refused (paramErr).
Mpeg4Settings ReadMpeg4Settings(ByteSpan container);

}  // namespace toolbox
