// A sample of a hint track: RTP packets, each a list of what goes into it (ISO/IEC 14496-12 9.1.3),
// and the bytes that packets of pictures and sound start with.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "toolbox/bytes.h"

namespace toolbox {

inline constexpr std::uint32_t kRtpHeader = 12;  // bytes

// The fields of a packet in a hint sample.
struct HintPacket {
  static constexpr std::size_t kSize = 12;
  static constexpr std::uint8_t kMarker = 0x80;  // in `payload`
  static constexpr std::uint16_t kHasExtra = 4;

  std::uint32_t sendTime = 0;  // after that of the sample, in units of the clock
  std::uint8_t version = 2 << 6, payload = 0;
  std::uint16_t sequence = 0, flags = 0;
  std::uint16_t entries = 0;

  static void Fields(auto& io, auto& packet) {
    io("sendTime", packet.sendTime);
    io("version", packet.version);
    io("payload", packet.payload);
    io("sequence", packet.sequence);
    io("flags", packet.flags);
    io("entries", packet.entries);
  }
};

// Builds one sample after the other, packet by packet; keeps its memory.
class HintSample {
 public:
  static constexpr std::size_t kMostPackets = UINT16_MAX;

  // Starts a new sample. The RTP time of its packets is that of the sample plus `timeOffset`, both
  // in units of the clock.
  void Clear(std::int32_t timeOffset);
  // `payload` is the RTP payload type. The sample has fewer than kMostPackets.
  void StartPacket(std::uint8_t payload, std::uint16_t sequence);
  // Adds to the last packet: bytes that are in no media sample, or a piece of one. The first media
  // sample has number 1.
  void AddBytes(ByteSpan bytes);
  void AddMedia(std::uint32_t sample, std::uint64_t offset, std::uint32_t length);
  // Sets the marker of the last packet, if there is one.
  void Mark();

  ByteSpan Content() const { return bytes_; }
  // In bytes, RTP headers included.
  std::span<const std::uint32_t> PacketSizes() const { return packetSizes_; }

 private:
  void CountEntry(std::size_t length);

  Bytes bytes_;
  std::vector<std::uint32_t> packetSizes_;
  HintPacket packet_;  // the last one
  std::size_t packetAt_ = 0;
  std::int32_t timeOffset_ = 0;
};

// The length of a NAL unit, as the bytes before it state it; ISO/IEC 14496-15 5.3.4.2.
std::uint32_t NalUnitLength(ByteSpan lengthBytes);

// What a packet starts with that holds a part of a NAL unit (FU-A, RFC 6184 5.8). `header` is the
// first byte of the unit, which the parts leave out.
std::array<std::uint8_t, 2> NalFragmentHeader(std::uint8_t header, bool isFirst, bool isLast);

// What a packet starts with that holds units of sound (RFC 3640 3.2.1, AAC-hbr): their sizes in
// bytes, each less than kLargestSoundUnit.
inline constexpr std::uint64_t kLargestSoundUnit = 1 << 13;
Bytes SoundUnitHeaders(std::span<const std::uint64_t> sizes);
// The bytes of SoundUnitHeaders for so many units.
constexpr std::uint64_t SoundUnitHeadersSize(std::uint64_t units) { return 2 + 2 * units; }

}  // namespace toolbox
