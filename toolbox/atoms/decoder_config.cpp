#include "toolbox/atoms/decoder_config.h"

#include <algorithm>
#include <iterator>

#include "toolbox/atoms/fields.h"

namespace toolbox {
namespace {

// The sample rates in Hz by their frequency index. The indexes 13 and 14 are reserved; 15 means
// that a rate of 24 bits follows.
constexpr std::uint32_t kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                    22050, 16000, 12000, 11025, 8000,  7350};
// The channels of configuration 7. Configurations 1 to 6 are equal to their number of channels.
constexpr std::uint32_t kSeventhLayout = 8;

}  // namespace

std::uint32_t AacRate(std::uint32_t index) { return index < std::size(kRates) ? kRates[index] : 0; }

std::uint32_t AacChannels(std::uint32_t layout) { return layout == 7 ? kSeventhLayout : layout; }

std::optional<AudioConfig> ReadAudioConfig(ByteSpan specific) {
  BitReader bits(specific);
  AudioConfig config;
  config.objectType = bits.Take(5);
  // 31 is an escape: the object type has six more bits.
  if (config.objectType == 31) config.objectType = 32 + bits.Take(6);
  const std::uint32_t index = bits.Take(4);
  config.rate = index == 15 ? bits.Take(24) : AacRate(index);
  config.channels = AacChannels(bits.Take(4));
  if (bits.IsPastEnd()) return std::nullopt;
  return config;
}

Bytes Encode(const AudioConfig& config) {
  // In bits: 5 object type | 4 rate | 4 channels | 3 zeros (frames of 1024 samples, no extension)
  const auto index = static_cast<std::uint32_t>(std::ranges::find(kRates, config.rate) - kRates);
  const std::uint32_t layout = config.channels == kSeventhLayout ? 7 : config.channels;
  Bytes bytes;
  AppendBigEndian(bytes,
                  static_cast<std::uint16_t>(config.objectType << 11 | index << 7 | layout << 3));
  return bytes;
}

std::optional<std::uint8_t> AudioProfile(const AudioConfig& config) {
  struct Level {
    std::uint32_t channels, rate;  // at most
    std::uint8_t profile;
  };
  // Levels 2, 4 and 5 of the AAC profile, the smallest first: the first level that fits is used.
  static constexpr Level kLevels[] = {{2, 48'000, 0x29}, {6, 48'000, 0x2A}, {6, 96'000, 0x2B}};
  if (config.objectType != AudioConfig::kLowComplexity || config.channels == 0) return std::nullopt;
  for (const Level& level : kLevels) {
    if (config.channels <= level.channels && config.rate <= level.rate) return level.profile;
  }
  return std::nullopt;
}

std::optional<std::uint8_t> VisualProfile(ByteSpan specific) {
  static constexpr std::uint8_t kSequenceStart[] = {0, 0, 1, 0xB0};
  const auto start = std::search(specific.begin(), specific.end(), std::begin(kSequenceStart),
                                 std::end(kSequenceStart));
  if (specific.end() - start <= std::ssize(kSequenceStart)) return std::nullopt;
  return start[std::ssize(kSequenceStart)];
}

std::optional<AvcConfig> ReadAvcConfig(ByteSpan content) try {
  AvcConfig config;
  FieldReader reader(content);
  std::uint8_t version = 0, lengthSize = 0;
  reader("version", version);
  reader("profile", config.profile);
  reader("lengthSize", lengthSize);
  config.lengthSize = (lengthSize & 3U) + 1;
  // Sequence parameter sets are counted in five bits, picture parameter sets in eight.
  for (const std::uint8_t mask : std::array<std::uint8_t, 2>{0x1F, 0xFF}) {
    std::uint8_t count = 0;
    reader("count", count);
    for (count = count & mask; count != 0; --count) {
      std::uint16_t size = 0;
      reader("size", size);
      const ByteSpan set = reader.Take("parameterSet", size);
      config.parameterSets.emplace_back(set.begin(), set.end());
    }
  }
  return config;
} catch (const Malformed&) {
  return std::nullopt;
}

}  // namespace toolbox
