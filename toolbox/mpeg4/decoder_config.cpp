#include "toolbox/mpeg4/decoder_config.h"

#include <algorithm>
#include <iterator>

#include "toolbox/atoms/fields.h"

namespace toolbox {
namespace {

enum Tag : std::uint8_t {
  kStreamTag = 3,
  kDecoderTag = 4,
  kSpecificTag = 5,
  kSyncLayerTag = 6,
};

struct Descriptor {
  std::uint8_t tag = 0;
  ByteSpan content;
};

// Takes a descriptor off the front. One that claims more than is there gets what is there: writers
// count its own head in, or what they did not write.
std::optional<Descriptor> TakeDescriptor(ByteSpan& bytes) {
  constexpr int kMostLengthBytes = 4;
  if (bytes.size() < 2) return std::nullopt;
  Descriptor descriptor{bytes[0], {}};
  std::size_t length = 0, at = 1;
  bool goesOn = true;
  for (int i = 0; goesOn && i < kMostLengthBytes && at < bytes.size(); ++i, ++at) {
    length = length << 7 | (bytes[at] & 0x7FU);
    goesOn = (bytes[at] & 0x80) != 0;
  }
  length = std::min(length, bytes.size() - at);
  descriptor.content = bytes.subspan(at, length);
  bytes = bytes.subspan(at + length);
  return descriptor;
}

std::optional<ByteSpan> FindDescriptor(ByteSpan bytes, Tag tag) {
  while (const auto descriptor = TakeDescriptor(bytes)) {
    if (descriptor->tag == tag) return descriptor->content;
  }
  return std::nullopt;
}

// What follows the fixed fields of an elementary stream descriptor.
std::optional<ByteSpan> PartsOfStream(ByteSpan stream) {
  if (stream.size() < 3) return std::nullopt;
  const std::uint8_t flags = stream[2];
  std::size_t at = 3;
  if ((flags & 0x80) != 0) at += 2;  // the stream it depends on
  if ((flags & 0x40) != 0) at += at < stream.size() ? 1U + stream[at] : 1U;  // its URL
  if ((flags & 0x20) != 0) at += 2;  // the stream of its clock
  if (at > stream.size()) return std::nullopt;
  return stream.subspan(at);
}

// Takes bits off the front of bytes; those behind the end are 0.
class BitReader {
 public:
  explicit BitReader(ByteSpan bytes) : bytes_(bytes) {}
  bool IsPastEnd() const { return at_ > 8 * bytes_.size(); }
  std::uint32_t Take(int bits) {
    std::uint32_t value = 0;
    for (; bits > 0; --bits, ++at_) {
      const bool isSet = at_ / 8 < bytes_.size() && (bytes_[at_ / 8] >> (7 - at_ % 8) & 1) != 0;
      value = value << 1 | (isSet ? 1U : 0U);
    }
    return value;
  }

 private:
  ByteSpan bytes_;
  std::size_t at_ = 0;  // bits
};

std::uint32_t TakeRate(BitReader& bits) {
  static constexpr std::uint32_t kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                             22050, 16000, 12000, 11025, 8000,  7350};
  const std::uint32_t index = bits.Take(4);
  if (index == 15) return bits.Take(24);
  return index < std::size(kRates) ? kRates[index] : 0;
}

}  // namespace

std::optional<ElementaryStream> ReadElementaryStream(ByteSpan content) {
  constexpr std::size_t kDecoderSize = 13;  // up to what is specific to the decoder
  if (content.size() < 4) return std::nullopt;
  const auto stream = FindDescriptor(content.subspan(4), kStreamTag);
  const auto parts = stream ? PartsOfStream(*stream) : std::nullopt;
  const auto decoder = parts ? FindDescriptor(*parts, kDecoderTag) : std::nullopt;
  if (!decoder || decoder->size() < kDecoderSize) return std::nullopt;
  ElementaryStream found{(*decoder)[0], {decoder->begin(), decoder->end()}, {}};
  if (const auto specific = FindDescriptor(decoder->subspan(kDecoderSize), kSpecificTag)) {
    found.specific.assign(specific->begin(), specific->end());
  }
  return found;
}

Bytes EncodeElementaryStream(const ElementaryStream& stream) {
  constexpr std::uint32_t kHead = 5;  // of a descriptor: tag, length in four bytes
  const auto put = [](auto& io, Tag tag, std::size_t size) {
    io("tag", static_cast<std::uint8_t>(tag));
    for (int shift = 21; shift >= 0; shift -= 7) {
      io("length", static_cast<std::uint8_t>((size >> shift & 0x7F) | (shift > 0 ? 0x80 : 0)));
    }
  };
  return Encoded([&](auto& io) {
    io.Atom(FourCC{"esds"}, [&] {
      io("version", std::uint32_t{0});
      put(io, kStreamTag, 3 + kHead + stream.decoder.size() + kHead + 1);
      io("stream", std::uint16_t{0});
      io("flags", std::uint8_t{0});
      put(io, kDecoderTag, stream.decoder.size());
      io.Append(stream.decoder);
      put(io, kSyncLayerTag, 1);
      io("predefined", std::uint8_t{2});
    });
  });
}

std::optional<AudioConfig> ReadAudioConfig(ByteSpan specific) {
  BitReader bits(specific);
  AudioConfig config;
  config.objectType = bits.Take(5);
  if (config.objectType == 31) config.objectType = 32 + bits.Take(6);
  config.rate = TakeRate(bits);
  config.channels = bits.Take(4);
  if (config.channels == 7) config.channels = 8;
  if (bits.IsPastEnd()) return std::nullopt;
  return config;
}

std::optional<std::uint8_t> AudioProfile(const AudioConfig& config) {
  struct Level {
    std::uint32_t channels, rate;  // at most
    std::uint8_t profile;
  };
  static constexpr Level kLevels[] = {{2, 48'000, 0x29}, {6, 48'000, 0x2A}, {6, 96'000, 0x2B}};
  if (config.objectType != AudioConfig::kLowComplexity || config.channels == 0) return std::nullopt;
  const auto level = std::ranges::find_if(kLevels, [&](const Level& candidate) {
    return config.channels <= candidate.channels && config.rate <= candidate.rate;
  });
  if (level == std::end(kLevels)) return std::nullopt;
  return level->profile;
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
      const ByteSpan rest = reader.Remaining();
      if (size > rest.size()) return std::nullopt;
      config.parameterSets.emplace_back(rest.begin(), rest.begin() + size);
      reader = FieldReader(rest.subspan(size));
    }
  }
  return config;
} catch (const Malformed&) {
  return std::nullopt;
}

}  // namespace toolbox
