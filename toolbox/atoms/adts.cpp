#include "toolbox/atoms/adts.h"

namespace toolbox {

// The header in bits:
//   12 sync | 1 MPEG-2 | 2 layer | 1 no checksum | 2 profile | 4 rate | 1 private | 3 channels
//   1 original | 1 home | 2 copyright | 13 frame size | 11 fullness | 2 blocks - 1
std::optional<AdtsHeader> ReadAdtsHeader(ByteSpan bytes) {
  if (bytes.size() < AdtsHeader::kSize || bytes[0] != 0xFF || (bytes[1] & 0xF6) != 0xF0) return {};
  AdtsHeader header;
  // The profile of ADTS is the audio object type minus 1.
  header.config.objectType = (bytes[2] >> 6U) + 1U;
  header.config.rate = AacRate(bytes[2] >> 2U & 15U);
  header.config.channels = AacChannels((bytes[2] & 1U) << 2U | bytes[3] >> 6U);
  header.headerSize = (bytes[1] & 1U) != 0 ? 7 : 9;
  header.frameSize = (bytes[3] & 3U) << 11U | std::uint32_t{bytes[4]} << 3U | bytes[5] >> 5U;
  header.blocks = (bytes[6] & 3U) + 1U;
  // The sync bits also occur in other bytes; these checks reject most of them.
  if (header.config.rate == 0 || header.frameSize < header.headerSize) return {};
  return header;
}

std::optional<std::uint64_t> Id3TagSize(ByteSpan bytes) {
  constexpr std::uint8_t kHasFooter = 0x10;
  if (bytes.size() < kId3HeaderSize || bytes[0] != 'I' || bytes[1] != 'D' || bytes[2] != '3') {
    return {};
  }
  std::uint64_t size = 0;  // without header and footer, in seven bits a byte
  for (const std::uint8_t byte : bytes.subspan(6, 4)) size = size << 7U | (byte & 0x7FU);
  return kId3HeaderSize + size + ((bytes[5] & kHasFooter) != 0 ? kId3HeaderSize : 0);
}

}  // namespace toolbox
