// Builds the samples of hint tracks (ISO/IEC 14496-12 9.1.3), and the headers at the start of the
// payload of RTP packets. A hint sample is a list of RTP packets. A packet is a list of entries,
// each of them bytes for its payload or a reference to bytes of a media sample.
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
  static constexpr std::uint16_t kHasExtra = 4;  // in `flags`: extra information comes next

  std::uint32_t sendTime = 0;  // relative to the time of the sample, units of the clock
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

// Builds one sample after the other, packet by packet. Reuses its memory for the next sample. Call
// Clear first, and StartPacket before adding anything.
class HintSample {
 public:
  static constexpr std::size_t kMaxPackets = UINT16_MAX;

  // Starts a new sample. The RTP time of its packets is the time of the sample plus `timeOffset`,
  // in units of the RTP clock.
  void Clear(std::int32_t timeOffset);
  // Adds an empty packet. `payload` is the RTP payload type, `sequence` the RTP sequence number.
  // The sample must have fewer than kMaxPackets packets.
  void StartPacket(std::uint8_t payload, std::uint16_t sequence);
  // Both add to the payload of the last packet. AddBytes copies bytes that are in no media sample.
  // AddMedia refers to `length` bytes at `offset` in the media sample with the number `sample`; the
  // first is number 1. `length` must fit in 16 bits and `offset` in 32. 0 bytes add no entry.
  void AddBytes(ByteSpan bytes);
  void AddMedia(std::uint32_t sample, std::uint64_t offset, std::uint64_t length);
  // Sets the marker of the last packet, if there is one.
  void Mark();

  // The sample so far; valid until the next change.
  ByteSpan Content() const { return bytes_; }
  // The size of each packet as sent, in bytes, RTP headers included.
  std::span<const std::uint32_t> PacketSizes() const { return packetSizes_; }

 private:
  // Adds an entry with `length` bytes of payload to the counts of the last packet.
  void CountEntry(std::size_t length);

  Bytes bytes_;
  std::vector<std::uint32_t> packetSizes_;
  HintPacket packet_;  // the last one
  std::size_t packetAt_ = 0;  // in `bytes_`
  std::int32_t timeOffset_ = 0;
};

// Decodes the length of a NAL unit in bytes from the length field before it, which has one to four
// bytes; ISO/IEC 14496-15 5.3.4.2.
std::uint32_t NalUnitLength(ByteSpan lengthBytes);

// The first bytes of a packet that contains a part of a NAL unit (FU-A, RFC 6184 5.8). `header` is
// the first byte of the unit. The parts do not contain it, because these bytes replace it.
std::array<std::uint8_t, 2> NalFragmentHeader(std::uint8_t header, bool isFirst, bool isLast);

// The first bytes of a packet that contains units of sound (RFC 3640 3.2.1, AAC-hbr). `sizes` are
// those of the units in bytes; each must be less than kLargestSoundUnit.
inline constexpr std::uint64_t kLargestSoundUnit = 1 << 13;
Bytes SoundUnitHeaders(std::span<const std::uint64_t> sizes);
// The number of bytes that SoundUnitHeaders returns for `units` units.
constexpr std::uint64_t SoundUnitHeadersSize(std::uint64_t units) { return 2 + 2 * units; }

}  // namespace toolbox
