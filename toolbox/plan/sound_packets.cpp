#include "toolbox/plan/sound_packets.h"

#include "toolbox/atoms/sample_entries.h"

namespace toolbox {

std::optional<AudioConfig> LowComplexityConfig(ByteSpan description) {
  constexpr std::uint32_t kMaxHidden = 24'000;
  const auto stream = StreamIn(description);
  if (!stream || stream->objectType != ElementaryStream::kAudio) return std::nullopt;
  const auto config = ReadAudioConfig(stream->Specific());
  const bool isPlain = config && config->objectType == AudioConfig::kLowComplexity;
  return isPlain && config->rate > kMaxHidden ? config : std::nullopt;
}

bool NeedsOnePacketBefore(ByteSpan description) {
  const FourCC format = EntryFormat(description);
  if (format == FourCC{"mp4a"}) return LowComplexityConfig(description).has_value();
  return format == FourCC{"alac"} || format == FourCC{"ac-3"};
}

std::uint64_t DelayPackets(const SampleTable& samples, std::uint64_t first) {
  constexpr std::uint32_t kMaxDelay = 3;
  const SampleSlice& slice = samples.SliceOf(first);
  const std::uint32_t row = slice.RowOf(first);
  return slice.part.from == 0 && row <= kMaxDelay ? row : 0;
}

}  // namespace toolbox
