// MPEG-4 descriptors, ISO/IEC 14496-1 8.3.3. A descriptor has a tag, a length field of one to four
// bytes, and a content, which can contain more descriptors.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "toolbox/atoms/decoder_config.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The size of the length field of each descriptor. Readers accept both. One byte is enough for a
// content of up to 127 bytes.
enum class LengthBytes : std::uint8_t { kOne = 1, kFour = 4 };

// An MPEG-4 elementary stream, by the fields of its decoder configuration descriptor (ISO/IEC
// 14496-1 7.2.6.6).
struct ElementaryStream {
  static constexpr std::uint8_t kVisual = 0x20, kAudio = 0x40;  // object types of MPEG-4

  std::uint8_t objectType = 0;
  std::uint32_t typeAndBuffer = 0;  // high 8 bits: kind of stream; low 24: buffer size in bytes
  std::uint32_t highestBitRate = 0, averageBitRate = 0;  // bits a second
  Bytes parts;  // the descriptors inside, encoded

  static void Fields(auto& io, auto& stream) {
    io("objectType", stream.objectType);
    io("typeAndBuffer", stream.typeAndBuffer);
    io("highestBitRate", stream.highestBitRate);
    io("averageBitRate", stream.averageBitRate);
    io.Rest("parts", stream.parts);
  }

  // The decoder-specific information, as a view of `parts`; empty if there is none.
  ByteSpan Specific() const;
};

// Describes a stream of AAC. `largestSample` is in bytes, `bitRate` in bits a second.
ElementaryStream AacStream(const AudioConfig& config, std::uint32_t largestSample,
                           std::uint32_t bitRate);

// `content` is that of an 'esds', ISO/IEC 14496-14 5.6. Returns nothing if it has no complete
// decoder configuration.
std::optional<ElementaryStream> ReadElementaryStream(ByteSpan content);
// Makes a whole 'esds'. The number of the stream is 0, because in a file the track id identifies
// it.
Bytes EncodeElementaryStream(const ElementaryStream& stream, LengthBytes lengths);

// Sets the number of the stream, the buffer size and both bit rates to 0 in `content`, the content
// of an 'esds'. Does nothing if it has no complete decoder configuration.
void ClearNumberAndRates(std::span<std::uint8_t> content);

// The profiles and levels of a whole file, ISO/IEC 14496-1 7.2.6.4. kNone: the file has no
// such streams. kUnspecified: it has some, with an unspecified profile. kAvc: pictures are AVC.
struct ProfileLevels {
  static constexpr std::uint8_t kNone = 0xFF, kUnspecified = 0xFE, kAvc = 0x7F;

  std::uint8_t objects = kNone, scene = kNone, sound = kNone, pictures = kNone, graphics = kNone;

  static void Fields(auto& io, auto& levels) {
    io("objects", levels.objects);
    io("scene", levels.scene);
    io("sound", levels.sound);
    io("pictures", levels.pictures);
    io("graphics", levels.graphics);
  }
};

// Makes a whole 'iods', ISO/IEC 14496-14 5.1.
Bytes EncodeObjectDescriptor(const ProfileLevels& levels);

}  // namespace toolbox
