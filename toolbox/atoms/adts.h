// The headers in files of raw AAC: those of frames and those of tags before them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "toolbox/atoms/decoder_config.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The header of a frame, ISO/IEC 13818-7 Annex B.
struct AdtsHeader {
  static constexpr std::size_t kSize = 7;  // without a checksum

  AudioConfig config;
  std::uint32_t headerSize = kSize;  // bytes, with the checksum
  std::uint32_t frameSize = 0;  // bytes, with the header
  std::uint32_t blocks = 1;  // of raw data
};

// The header at the front of `bytes`; nothing when there is none.
std::optional<AdtsHeader> ReadAdtsHeader(ByteSpan bytes);

inline constexpr std::size_t kId3HeaderSize = 10;
// The size in bytes, with header and footer, of the ID3v2 tag at the front of `bytes`; nothing when
// there is no such header.
std::optional<std::uint64_t> Id3TagSize(ByteSpan bytes);

}  // namespace toolbox
