// What a decoder is told before the first sample, read out of sample descriptions.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/bytes.h"

namespace toolbox {

// An MPEG-4 elementary stream, ISO/IEC 14496-1 7.2.6.5.
struct ElementaryStream {
  static constexpr std::uint8_t kVisual = 0x20, kAudio = 0x40;

  std::uint8_t objectType = 0;
  Bytes decoder;  // what the decoder configuration descriptor holds
  Bytes specific;  // what the decoder-specific information in it holds; empty where there is none
};

// `content` is that of an 'esds'; nothing when it describes no stream.
std::optional<ElementaryStream> ReadElementaryStream(ByteSpan content);

// The whole 'esds' for an MPEG-4 file: a stream that is named by its track alone.
Bytes EncodeElementaryStream(const ElementaryStream& stream);

// How MPEG-4 sound is coded, ISO/IEC 14496-3 1.6.2.1.
struct AudioConfig {
  static constexpr std::uint32_t kLowComplexity = 2;

  std::uint32_t objectType = 0, rate = 0;
  std::uint32_t channels = 0;  // 0: told inside the sound
};
// `specific` is the decoder-specific information; nothing when it is cut short.
std::optional<AudioConfig> ReadAudioConfig(ByteSpan specific);

// The profile and level of sound coded like that, ISO/IEC 14496-3 1.5.2.4; nothing when it has no
// number here.
std::optional<std::uint8_t> AudioProfile(const AudioConfig& config);

// The profile and level that an MPEG-4 visual sequence starts with, ISO/IEC 14496-2 6.2.2; nothing
// when it does not say.
std::optional<std::uint8_t> VisualProfile(ByteSpan specific);

// 'avcC', ISO/IEC 14496-15 5.3.3.1.
struct AvcConfig {
  std::array<std::uint8_t, 3> profile{};  // profile, constraints, level
  std::uint32_t lengthSize = 0;  // bytes in front of each NAL unit
  std::vector<Bytes> parameterSets;  // sequence, then picture
};
// `content` is that of an 'avcC'; nothing when it is cut short.
std::optional<AvcConfig> ReadAvcConfig(ByteSpan content);

}  // namespace toolbox
