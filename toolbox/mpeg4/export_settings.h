// What an exporter is told: a tree of settings in a container of atoms.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"

namespace toolbox {

struct Mpeg4Settings {
  bool keepsCoding = true;  // else pictures or sound would have to be coded anew
  bool hasHints = false;  // hint tracks for streaming servers
  std::uint32_t packetSize = 1450;  // at most: bytes, header included
  std::uint32_t packetDuration = 100;  // of sound, at most: milliseconds
};

// An open exporter, which starts with the default settings.
struct ExporterRecord {
  Mpeg4Settings settings;
};

// Reads a container: twelve bytes, then atoms with a head of twenty. What it does not mention keeps
// its default. Throws Refused (paramErr).
Mpeg4Settings ReadMpeg4Settings(ByteSpan container);

}  // namespace toolbox
