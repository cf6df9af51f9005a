// What a sample entry says about its sound: channels, rate, and the form of uncompressed samples.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"

namespace toolbox {

// Numbers that the entry does not state are 0.
struct SoundFormat {
  std::uint32_t channels = 0;
  double rate = 0;  // Hz
  std::uint32_t bits = 0;  // of a sample; for compressed sound of no meaning in many files
  // Only of uncompressed samples.
  bool isFloat = false, isSigned = true, isLittleEndian = false;
};

// Reads the format from a sound entry. The configuration of a decoder (AAC, ALAC, AC-3, E-AC-3,
// FLAC, Opus) is believed more than the fields of the entry, because many writers set these to 2
// channels of 16 bits for every codec, and they have no room for rates above 65535 Hz.
SoundFormat ReadSoundFormat(ByteSpan entry);

}  // namespace toolbox
