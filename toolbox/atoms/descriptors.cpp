#include "toolbox/atoms/descriptors.h"

#include <algorithm>

#include "toolbox/atoms/fields.h"

namespace toolbox {
namespace {

enum Tag : std::uint8_t {
  kStreamTag = 3,
  kDecoderTag = 4,
  kSpecificTag = 5,
  kSyncLayerTag = 6,
  kObjectTag = 0x10,
};

// The content of the first descriptor with that tag. Does not search inside other descriptors. If a
// length reaches past the end, the descriptor gets the bytes up to the end. Real files have such
// lengths: some writers include the tag and length field in the count, others count descriptors
// that they then omit.
std::optional<ByteSpan> FindDescriptor(ByteSpan bytes, Tag tag) {
  constexpr int kMaxLengthBytes = 4;
  while (bytes.size() >= 2) {
    std::size_t length = 0, at = 1;
    bool hasMore = true;
    for (int i = 0; hasMore && i < kMaxLengthBytes && at < bytes.size(); ++i, ++at) {
      length = length << 7 | (bytes[at] & 0x7FU);
      hasMore = (bytes[at] & 0x80) != 0;
    }
    length = std::min(length, bytes.size() - at);
    if (bytes[0] == tag) return bytes.subspan(at, length);
    bytes = bytes.subspan(at + length);
  }
  return std::nullopt;
}

// The length field has 7 bits of the length in each byte, the highest first. The top bit is set if
// another byte follows.
void PutDescriptor(auto& io, Tag tag, LengthBytes lengths, ByteSpan content) {
  io("tag", static_cast<std::uint8_t>(tag));
  for (int shift = 7 * (static_cast<int>(lengths) - 1); shift >= 0; shift -= 7) {
    io("length",
       static_cast<std::uint8_t>((content.size() >> shift & 0x7F) | (shift > 0 ? 0x80 : 0)));
  }
  io.Append(content);
}

// The descriptors after the fields of an elementary stream descriptor. Flags decide which of the
// fields exist.
std::optional<ByteSpan> PartsOfStream(ByteSpan stream) {
  if (stream.size() < 3) return std::nullopt;
  const std::uint8_t flags = stream[2];
  std::size_t at = 3;
  if ((flags & 0x80) != 0) at += 2;  // the number of the stream it depends on
  if ((flags & 0x40) != 0) at += at < stream.size() ? 1U + stream[at] : 1U;  // its URL
  if ((flags & 0x20) != 0) at += 2;  // the number of the stream with its clock
  if (at > stream.size()) return std::nullopt;
  return stream.subspan(at);
}

// The content of the decoder configuration descriptor in an 'esds'. Returns nothing if the
// descriptor is too short for its fixed fields.
std::optional<ByteSpan> FindDecoder(ByteSpan content) {
  constexpr std::size_t kFixedFields = 13;
  if (content.size() < 4) return std::nullopt;
  const auto stream = FindDescriptor(content.subspan(4), kStreamTag);
  const auto parts = stream ? PartsOfStream(*stream) : std::nullopt;
  const auto decoder = parts ? FindDescriptor(*parts, kDecoderTag) : std::nullopt;
  if (!decoder || decoder->size() < kFixedFields) return std::nullopt;
  return decoder;
}

}  // namespace

ByteSpan ElementaryStream::Specific() const {
  return FindDescriptor(parts, kSpecificTag).value_or(ByteSpan());
}

ElementaryStream AacStream(const AudioConfig& config, std::uint32_t largestSample,
                           std::uint32_t bitRate) {
  constexpr std::uint32_t kAudioStream = 0x15;
  ElementaryStream stream;
  stream.objectType = ElementaryStream::kAudio;
  stream.typeAndBuffer = kAudioStream << 24 | (largestSample & 0xFFFFFF);
  stream.averageBitRate = bitRate;
  stream.parts = Encoded(
      [&](auto& io) { PutDescriptor(io, kSpecificTag, LengthBytes::kOne, Encode(config)); });
  return stream;
}

std::optional<ElementaryStream> ReadElementaryStream(ByteSpan content) {
  const auto decoder = FindDecoder(content);
  if (!decoder) return std::nullopt;
  ElementaryStream stream;
  FieldReader reader(*decoder);
  ElementaryStream::Fields(reader, stream);
  return stream;
}

Bytes EncodeElementaryStream(const ElementaryStream& stream, LengthBytes lengths) {
  constexpr std::uint8_t kMp4 = 2;  // the synchronization layer that is predefined for MP4 files
  const Bytes decoder = Encoded([&](auto& io) { ElementaryStream::Fields(io, stream); });
  const Bytes content = Encoded([&](auto& io) {
    io("stream", std::uint16_t{0});
    io("flags", std::uint8_t{0});
    PutDescriptor(io, kDecoderTag, lengths, decoder);
    PutDescriptor(io, kSyncLayerTag, lengths, {&kMp4, 1});
  });
  return Encoded([&](auto& io) {
    io.Atom(FourCC{"esds"}, [&] {
      io("version", std::uint32_t{0});
      PutDescriptor(io, kStreamTag, lengths, content);
    });
  });
}

void ClearNumberAndRates(std::span<std::uint8_t> content) {
  // After object type and kind of stream: a buffer size of 24 bits and two bit rates of 32.
  constexpr std::ptrdiff_t kNumber = 2, kRatesAt = 2, kRates = 11;
  const auto decoder = FindDecoder(content);
  if (!decoder) return;
  const auto clear = [content](const std::uint8_t* from, std::ptrdiff_t count) {
    std::fill_n(content.begin() + (from - content.data()), count, std::uint8_t{0});
  };
  clear(FindDescriptor(content.subspan(4), kStreamTag)->data(), kNumber);
  clear(decoder->data() + kRatesAt, kRates);
}

Bytes EncodeObjectDescriptor(const ProfileLevels& levels) {
  constexpr std::uint16_t kIdAndFlags = 0x004F;  // id 1; no URL, no inline profiles
  const Bytes content = Encoded([&](auto& io) {
    io("idAndFlags", kIdAndFlags);
    ProfileLevels::Fields(io, levels);
  });
  return Encoded([&](auto& io) {
    io.Atom(FourCC{"iods"}, [&] {
      io("version", std::uint32_t{0});
      PutDescriptor(io, kObjectTag, LengthBytes::kFour, content);
    });
  });
}

}  // namespace toolbox
