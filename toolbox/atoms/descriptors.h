// MPEG-4 descriptors, ISO/IEC 14496-1 8.3.3: a tag, a length of one to four bytes, a content.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "toolbox/atoms/decoder_config.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The bytes that the length of each descriptor takes. Either is valid; one byte counts to 127.
enum class LengthBytes : std::uint8_t { kOne = 1, kFour = 4 };

// An MPEG-4 elementary stream: its decoder configuration descriptor, ISO/IEC 14496-1 7.2.6.6.
struct ElementaryStream {
  static constexpr std::uint8_t kVisual = 0x20, kAudio = 0x40;

  std::uint8_t objectType = 0;
  std::uint32_t typeAndBuffer = 0;  // 8 bits for the kind of stream, 24 for a buffer in bytes
  std::uint32_t highestBitRate = 0, averageBitRate = 0;
  Bytes parts;  // descriptors

  static void Fields(auto& io, auto& stream) {
    io("objectType", stream.objectType);
    io("typeAndBuffer", stream.typeAndBuffer);
    io("highestBitRate", stream.highestBitRate);
    io("averageBitRate", stream.averageBitRate);
    io.Rest("parts", stream.parts);
  }

  // The decoder-specific information in `parts`; empty when there is none.
  ByteSpan Specific() const;
};

// A stream of AAC; `largestSample` in bytes, `bitRate` in bits a second.
ElementaryStream AacStream(const AudioConfig& config, std::uint32_t largestSample,
                           std::uint32_t bitRate);

// `content` is that of an 'esds', ISO/IEC 14496-14 5.6; nothing when it describes no stream.
std::optional<ElementaryStream> ReadElementaryStream(ByteSpan content);
// The whole 'esds'. The stream has no number of its own; its track names it.
Bytes EncodeElementaryStream(const ElementaryStream& stream, LengthBytes lengths);

// Sets the buffer size and the bit rates to 0 in the content of an 'esds' that has them.
void ClearRates(std::span<std::uint8_t> content);

// Profiles and levels of a whole file, ISO/IEC 14496-1 7.2.6.4.
struct ProfileLevels {
  static constexpr std::uint8_t kNothingThere = 0xFF, kNotSaid = 0xFE, kAvc = 0x7F;

  std::uint8_t objects = kNothingThere, scene = kNothingThere, sound = kNothingThere,
               pictures = kNothingThere, graphics = kNothingThere;

  static void Fields(auto& io, auto& levels) {
    io("objects", levels.objects);
    io("scene", levels.scene);
    io("sound", levels.sound);
    io("pictures", levels.pictures);
    io("graphics", levels.graphics);
  }
};

// The whole 'iods', ISO/IEC 14496-14 5.1.
Bytes EncodeObjectDescriptor(const ProfileLevels& levels);

}  // namespace toolbox
