// The configurations that decoders of AAC, MPEG-4 video and AVC need before the first sample.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/bytes.h"

namespace toolbox {

// The sample rate in Hz for an AAC frequency index, ISO/IEC 14496-3 1.6.3.4; 0 if the index has no
// rate.
std::uint32_t AacRate(std::uint32_t index);
// The number of channels for an AAC channel configuration; 0 if only the coded sound states it.
std::uint32_t AacChannels(std::uint32_t layout);

// The parameters of MPEG-4 sound, ISO/IEC 14496-3 1.6.2.1. Only the fields that AAC needs.
struct AudioConfig {
  static constexpr std::uint32_t kLowComplexity = 2;  // the object type of ordinary AAC

  std::uint32_t objectType = 0, rate = 0;  // the rate is in Hz
  std::uint32_t channels = 0;  // 0: only the coded sound states it
  friend bool operator==(const AudioConfig&, const AudioConfig&) = default;
};
// `specific` is the decoder-specific information of an 'esds'. Returns nothing if it is cut short.
std::optional<AudioConfig> ReadAudioConfig(ByteSpan specific);
// Makes the two bytes of decoder-specific information. The rate must be one that AacRate returns,
// and the object type must be less than 31: other values need a longer form.
Bytes Encode(const AudioConfig& config);

// The profile and level that sound with this configuration needs, ISO/IEC 14496-3 1.5.2.4. Returns
// nothing if the AAC profile does not cover it.
std::optional<std::uint8_t> AudioProfile(const AudioConfig& config);

// The profile and level in the header of an MPEG-4 visual sequence, ISO/IEC 14496-2 6.2.2.
// `specific` is the decoder-specific information. Returns nothing if it has no such header.
std::optional<std::uint8_t> VisualProfile(ByteSpan specific);

// 'avcC', ISO/IEC 14496-15 5.3.3.1: the configuration of AVC.
struct AvcConfig {
  std::array<std::uint8_t, 3> profile{};  // profile, constraints, level
  std::uint32_t lengthSize = 0;  // bytes of the length before each NAL unit
  std::vector<Bytes> parameterSets;  // those of the sequence, then those of pictures
};
// `content` is that of an 'avcC'. Returns nothing if it is cut short.
std::optional<AvcConfig> ReadAvcConfig(ByteSpan content);

}  // namespace toolbox
