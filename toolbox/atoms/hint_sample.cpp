#include "toolbox/atoms/hint_sample.h"

#include <algorithm>

#include "toolbox/atoms/fields.h"

namespace toolbox {

void HintSample::Clear(std::int32_t timeOffset) {
  bytes_.assign(4, 0);  // number of packets, reserved
  packetSizes_.clear();
  timeOffset_ = timeOffset;
}

void HintSample::StartPacket(std::uint8_t payload, std::uint16_t sequence) {
  packetSizes_.push_back(kRtpHeader);
  ToBigEndian(static_cast<std::uint16_t>(packetSizes_.size()), bytes_.data());
  packetAt_ = bytes_.size();
  packet_ = {.payload = payload, .sequence = sequence};
  if (timeOffset_ != 0) packet_.flags = HintPacket::kHasExtra;
  AppendRow(bytes_, packet_);
  if (timeOffset_ == 0) return;
  // The extra information: its size, then the atom 'rtpo', ISO/IEC 14496-12 9.1.3.1.
  AppendBigEndian(bytes_, std::uint32_t{16});
  AppendBigEndian(bytes_, std::uint32_t{12});
  AppendBigEndian(bytes_, FourCC{"rtpo"}.value);
  AppendBigEndian(bytes_, timeOffset_);
}

void HintSample::CountEntry(std::size_t length) {
  ++packet_.entries;
  EncodeRow(packet_, &bytes_[packetAt_]);
  packetSizes_.back() += static_cast<std::uint32_t>(length);
}

void HintSample::AddBytes(ByteSpan bytes) {
  while (!bytes.empty()) {
    const ByteSpan piece = bytes.first(std::min<std::size_t>(bytes.size(), 14));
    CountEntry(piece.size());
    // The entry has 16 bytes: mode 1, the number of bytes in the payload, room for 14 of them.
    const std::size_t at = bytes_.size();
    bytes_.resize(at + 16);
    bytes_[at] = 1;
    bytes_[at + 1] = static_cast<std::uint8_t>(piece.size());
    std::ranges::copy(piece, &bytes_[at + 2]);
    bytes = bytes.subspan(piece.size());
  }
}

void HintSample::AddMedia(std::uint32_t sample, std::uint64_t offset, std::uint64_t length) {
  if (length == 0) return;
  CountEntry(length);
  // The entry has 16 bytes: mode 2, track 0 (the one that is hinted), which bytes of which sample,
  // and blocks of 1 byte and 1 sample, which means that the media is not packed in blocks.
  AppendBigEndian(bytes_, std::uint16_t{0x0200});
  AppendBigEndian(bytes_, static_cast<std::uint16_t>(length));
  AppendBigEndian(bytes_, sample);
  AppendBigEndian(bytes_, static_cast<std::uint32_t>(offset));
  AppendBigEndian(bytes_, std::uint32_t{0x00010001});
}

void HintSample::Mark() {
  if (packetSizes_.empty()) return;
  packet_.payload |= HintPacket::kMarker;
  EncodeRow(packet_, &bytes_[packetAt_]);
}

std::uint32_t NalUnitLength(ByteSpan lengthBytes) {
  std::uint32_t length = 0;
  for (const std::uint8_t byte : lengthBytes) length = length << 8 | byte;
  return length;
}

std::array<std::uint8_t, 2> NalFragmentHeader(std::uint8_t header, bool isFirst, bool isLast) {
  constexpr std::uint8_t kFragment = 28, kFirst = 0x80, kLast = 0x40, kUnitType = 0x1F;
  const int part = (header & kUnitType) | (isFirst ? kFirst : 0) | (isLast ? kLast : 0);
  return {static_cast<std::uint8_t>((header & ~kUnitType) | kFragment),
          static_cast<std::uint8_t>(part)};
}

Bytes SoundUnitHeaders(std::span<const std::uint64_t> sizes) {
  Bytes headers;
  AppendBigEndian(headers, static_cast<std::uint16_t>(16 * sizes.size()));  // bits
  for (const std::uint64_t size : sizes) {
    AppendBigEndian(headers, static_cast<std::uint16_t>(size << 3));  // 3 bits for an index of 0
  }
  return headers;
}

}  // namespace toolbox
