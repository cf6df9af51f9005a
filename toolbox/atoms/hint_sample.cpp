#include "toolbox/atoms/hint_sample.h"

#include <algorithm>
#include <array>

#include "toolbox/atoms/fields.h"

namespace toolbox {
namespace {

// The extra information of a packet: its size, then the atom 'rtpo', ISO/IEC 14496-12 9.1.3.1.
struct TimeOffset {
  static constexpr std::size_t kSize = 16;
  std::uint32_t size = kSize, atomSize = 12, type = FourCC{"rtpo"}.value;
  std::int32_t offset = 0;  // units of the clock
  static void Fields(auto& io, auto& extra) {
    io("size", extra.size);
    io("atomSize", extra.atomSize);
    io("type", extra.type);
    io("offset", extra.offset);
  }
};

// An entry of a packet with up to 14 bytes of its own.
struct OwnData {
  static constexpr std::size_t kSize = 16, kMost = 14;
  std::uint8_t mode = 1, count = 0;
  std::array<std::uint8_t, kMost> bytes{};
  static void Fields(auto& io, auto& data) {
    io("mode", data.mode);
    io("count", data.count);
    for (auto& byte : data.bytes) io("byte", byte);
  }
};

// An entry of a packet that refers to bytes of a media sample.
struct MediaData {
  static constexpr std::size_t kSize = 16;
  std::uint8_t mode = 2, track = 0;  // 0: the track that is hinted
  std::uint16_t length = 0;
  std::uint32_t sample = 0, offset = 0;
  std::uint16_t bytesPerBlock = 1, samplesPerBlock = 1;  // 1: not packed in blocks
  static void Fields(auto& io, auto& data) {
    io("mode", data.mode);
    io("track", data.track);
    io("length", data.length);
    io("sample", data.sample);
    io("offset", data.offset);
    io("bytesPerBlock", data.bytesPerBlock);
    io("samplesPerBlock", data.samplesPerBlock);
  }
};

}  // namespace

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
  if (timeOffset_ != 0) AppendRow(bytes_, TimeOffset{.offset = timeOffset_});
}

void HintSample::CountEntry(std::size_t length) {
  ++packet_.entries;
  EncodeRow(packet_, &bytes_[packetAt_]);
  packetSizes_.back() += static_cast<std::uint32_t>(length);
}

void HintSample::AddBytes(ByteSpan bytes) {
  while (!bytes.empty()) {
    const ByteSpan piece = bytes.first(std::min(bytes.size(), OwnData::kMost));
    CountEntry(piece.size());
    OwnData data{.count = static_cast<std::uint8_t>(piece.size())};
    std::ranges::copy(piece, data.bytes.begin());
    AppendRow(bytes_, data);
    bytes = bytes.subspan(piece.size());
  }
}

void HintSample::AddMedia(std::uint32_t sample, std::uint64_t offset, std::uint32_t length) {
  CountEntry(length);
  AppendRow(bytes_, MediaData{.length = static_cast<std::uint16_t>(length),
                              .sample = sample,
                              .offset = static_cast<std::uint32_t>(offset)});
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
