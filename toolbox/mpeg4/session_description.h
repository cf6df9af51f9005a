// Session descriptions, which a streaming server sends to its clients, RFC 4566.
#pragma once

#include <cstdint>
#include <string>

#include "toolbox/mpeg4/hint_samples.h"

namespace toolbox {

// How the samples of a description go into packets, and the text that says so.
struct DescribedPayload {
  Payload payload;
  std::string encoding;  // "H264/90000"
  std::string parameters;  // "profile-level-id=42C01E; ..."
  friend bool operator==(const DescribedPayload&, const DescribedPayload&) = default;
};

// For a media with descriptions made by Mpeg4Description. Throws Refused (invalidSampleDescription)
// when they have no payload or more than one; a session description has room for one.
DescribedPayload DescribePayload(const MediaRecord& media);

// The lines for a track. `id` is that of its hint track; `bitRate` is in bits a second.
std::string DescribeTrack(const DescribedPayload& described, FourCC mediaType, std::uint32_t id,
                          std::uint64_t bitRate);

// The lines for the whole movie.
std::string DescribeMovie(const MovieRecord& movie, std::uint64_t bitRate);

}  // namespace toolbox
