// Makes session descriptions (SDP, RFC 4566), which a streaming server sends to its clients before
// it sends media. Their lines end with CR and LF.
#pragma once

#include <cstdint>
#include <string>

#include "toolbox/mpeg4/hint_samples.h"

namespace toolbox {

// How the samples of a media are split into packets, and how a session description names that.
struct DescribedPayload {
  Payload payload;
  std::string encoding;  // "H264/90000"
  std::string parameters;  // "profile-level-id=42C01E; ..."
  friend bool operator==(const DescribedPayload&, const DescribedPayload&) = default;
};

// Returns the payload of the media, with its defaults for `number`, `room` and `maxDuration`. The
// descriptions of the media come from Mpeg4Description, and there is at least one. Throws Refused:
// invalidSampleDescription (the coding has no payload here, or the descriptions need different
// ones: a session description can state only one for each track).
DescribedPayload DescribePayload(const MediaRecord& media);

// The lines for a track. `id` is the id of its hint track, `bitRate` that of the packets in bits a
// second.
std::string DescribeTrack(const DescribedPayload& described, FourCC mediaType, std::uint32_t id,
                          std::uint64_t bitRate);

// The lines for the whole movie: bandwidth and length, which is that of its longest hint or other
// track. `bitRate` is the sum for all tracks, in bits a second.
std::string DescribeMovie(const MovieRecord& movie, std::uint64_t bitRate);

}  // namespace toolbox
