// The headers in a file of raw AAC: those of its frames, and that of an ID3 tag before them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "toolbox/atoms/decoder_config.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The header of one frame, ISO/IEC 13818-7 6.2. A frame has one or more blocks of coded sound.
struct AdtsHeader {
  static constexpr std::size_t kSize = 7;  // without a checksum

  AudioConfig config;
  std::uint32_t headerSize = kSize;  // bytes, with the checksum
  std::uint32_t frameSize = 0;  // bytes, with the header
  std::uint32_t blocks = 1;  // blocks of coded sound in the frame
};

// Reads the header at the start of `bytes`. Returns nothing if there is none or if its rate or size
// is impossible. The frame itself may be longer than `bytes`.
std::optional<AdtsHeader> ReadAdtsHeader(ByteSpan bytes);

inline constexpr std::size_t kId3HeaderSize = 10;
// The size in bytes of the ID3v2 tag at the start of `bytes`, its header and footer included.
// Returns nothing if `bytes` does not start with such a tag.
std::optional<std::uint64_t> Id3TagSize(ByteSpan bytes);

}  // namespace toolbox
