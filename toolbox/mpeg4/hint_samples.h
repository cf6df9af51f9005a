// The samples of a hint track: how those of a media go into RTP packets, ISO/IEC 14496-12 9.1.3.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "toolbox/plan/plan.h"

namespace toolbox {

inline constexpr std::uint32_t kRtpHeader = 12;  // bytes

// How the samples of a media go into packets.
struct Payload {
  enum class Kind : std::uint8_t { kVisual, kAvc, kAudio };  // RFC 6416, 6184, 3640
  Kind kind = Kind::kVisual;
  std::uint8_t number = 96;  // payload type
  std::int32_t clock = 90'000;  // RTP units a second
  std::uint32_t room = 0;  // bytes a packet, behind the RTP header; kLeastRoom or more
  std::int64_t longest = 0;  // sound a packet, in media units
  std::uint32_t lengthSize = 0;  // bytes in front of each NAL unit

  static constexpr std::uint32_t kLeastRoom = 64;
  friend bool operator==(const Payload&, const Payload&) = default;
};

// One sample of a hint track while it is made: packets, each a list of what goes into it.
class HintSample {
 public:
  // Starts anew. The RTP time of its packets is that of the sample and `timeOffset` more.
  void Clear(std::int32_t timeOffset);
  void StartPacket(const Payload& payload, std::uint16_t sequence);
  // Adds to the packet at hand: bytes that stand in no media sample, or a piece of one (a number).
  void AddBytes(ByteSpan bytes);
  void AddMedia(std::uint32_t sample, std::uint64_t offset, std::uint32_t length);
  // Sets the marker of the packet at hand, if there is one.
  void Mark();

  ByteSpan Content() const { return bytes_; }
  // In bytes, RTP headers included.
  std::span<const std::uint32_t> PacketSizes() const { return packets_; }

 private:
  void CountEntry(std::size_t length);

  Bytes bytes_;
  std::vector<std::uint32_t> packets_;
  std::size_t packet_ = 0;  // where the one at hand starts
  std::int32_t timeOffset_ = 0;
};

// Makes the samples of a hint track for track `track` (an index) of the plan, one after the other:
// calls visit(sample, duration), durations in units of the payload's clock. Reads no more of the
// media than the lengths of NAL units. Throws Refused: invalidSampleTable (media that is not what
// its description says), and what reading throws.
void MakeHintSamples(const FilePlan& plan, std::size_t track, const Payload& payload,
                     const std::function<void(const HintSample&, std::int64_t)>& visit);

}  // namespace toolbox
