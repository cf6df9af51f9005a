// Makes the samples of a hint track, which describe RTP packets for the samples of a media.
// ISO/IEC 14496-12 9.1.
#pragma once

#include <cstdint>
#include <functional>

#include "toolbox/atoms/hint_sample.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// How the samples of a media are split into packets.
struct Payload {
  enum class Kind : std::uint8_t { kVisual, kAvc, kAudio };  // RFC 6416, RFC 6184, RFC 3640
  Kind kind = Kind::kVisual;
  std::uint8_t number = 96;  // RTP payload type; 96 is the first dynamic one
  std::int32_t clock = 90'000;  // RTP units a second
  std::uint32_t room = 0;  // bytes in a packet after the RTP header; at least kLeastRoom
  std::int64_t maxDuration = 0;  // the most sound in a packet, in media units
  std::uint32_t lengthSize = 0;  // of the field before each NAL unit, in bytes; only kAvc

  static constexpr std::uint32_t kLeastRoom = 64;
  friend bool operator==(const Payload&, const Payload&) = default;
};

// Makes the hint samples for the plan's track with the index `track`, and calls
// visit(sample, duration) for each in order. The duration is in units of the payload's clock. The
// sample is valid only during the call: the next one reuses its memory. The same arguments always
// make the same samples. Reads no media data but the lengths and first bytes of NAL units.
// Throws Refused: invalidSampleTable (the media data does not fit its description, or a sample
// needs too many packets); and whatever opening and reading the files throws.
void MakeHintSamples(const FilePlan& plan, std::size_t track, const Payload& payload,
                     const std::function<void(const HintSample&, std::int64_t)>& visit);

}  // namespace toolbox
