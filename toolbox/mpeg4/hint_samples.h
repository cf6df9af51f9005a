// The samples of a hint track: how those of a media go into RTP packets.
#pragma once

#include <cstdint>
#include <functional>

#include "toolbox/atoms/hint_sample.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// How the samples of a media go into packets.
struct Payload {
  enum class Kind : std::uint8_t { kVisual, kAvc, kAudio };  // RFC 6416, 6184, 3640
  Kind kind = Kind::kVisual;
  std::uint8_t number = 96;  // payload type
  std::int32_t clock = 90'000;  // RTP units a second
  std::uint32_t room = 0;  // bytes a packet, after the RTP header; kLeastRoom or more
  std::int64_t longest = 0;  // sound a packet, in media units
  std::uint32_t lengthSize = 0;  // bytes of the length before each NAL unit

  static constexpr std::uint32_t kLeastRoom = 64;
  friend bool operator==(const Payload&, const Payload&) = default;
};

// Makes the samples of a hint track for track `track` (an index) of the plan and calls
// visit(sample, duration) for each in order, durations in units of the payload's clock. Reads
// nothing of the media but the lengths and first bytes of NAL units. Throws Refused:
// invalidSampleTable (media that is not as its description says), and what reading throws.
void MakeHintSamples(const FilePlan& plan, std::size_t track, const Payload& payload,
                     const std::function<void(const HintSample&, std::int64_t)>& visit);

}  // namespace toolbox
