// What a decoder needs before the first sample: the set-up of AAC, of MPEG-4 pictures and of AVC.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/bytes.h"

namespace toolbox {

// The rate in Hz that AAC numbers `index`, ISO/IEC 14496-3 1.6.3.4; 0 when it numbers none.
std::uint32_t AacRate(std::uint32_t index);
// The number of channels in the AAC layout 0 to 15; 0 when the sound itself says it.
std::uint32_t AacChannels(std::uint32_t layout);

// How MPEG-4 sound is coded, ISO/IEC 14496-3 1.6.2.1.
struct AudioConfig {
  static constexpr std::uint32_t kLowComplexity = 2;

  std::uint32_t objectType = 0, rate = 0;
  std::uint32_t channels = 0;  // 0: the sound itself says it
  friend bool operator==(const AudioConfig&, const AudioConfig&) = default;
};
// `specific` is the decoder-specific information; nothing when it is cut short.
std::optional<AudioConfig> ReadAudioConfig(ByteSpan specific);
// Two bytes. The rate is one of AacRate, the object type is below 31.
Bytes Encode(const AudioConfig& config);

// The profile and level of sound that is coded like that, ISO/IEC 14496-3 1.5.2.4; nothing when it
// is none of the AAC profile.
std::optional<std::uint8_t> AudioProfile(const AudioConfig& config);

// The profile and level at the start of an MPEG-4 visual sequence, ISO/IEC 14496-2 6.2.2; nothing
// when there are none.
std::optional<std::uint8_t> VisualProfile(ByteSpan specific);

// 'avcC', ISO/IEC 14496-15 5.3.3.1.
struct AvcConfig {
  std::array<std::uint8_t, 3> profile{};  // profile, constraints, level
  std::uint32_t lengthSize = 0;  // bytes of the length before each NAL unit
  std::vector<Bytes> parameterSets;  // sequence, then picture
};
// `content` is that of an 'avcC'; nothing when it is cut short.
std::optional<AvcConfig> ReadAvcConfig(ByteSpan content);

}  // namespace toolbox
