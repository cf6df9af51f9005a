// What a streaming server tells its clients of a track, RFC 4566.
#pragma once

#include <cstdint>
#include <string>

#include "toolbox/mpeg4/hint_samples.h"

namespace toolbox {

// How the samples of a description go into packets, and the words for it.
struct DescribedPayload {
  Payload payload;
  std::string encoding;  // "H264/90000"
  std::string parameters;  // "profile-level-id=42C01E; ..."
  friend bool operator==(const DescribedPayload&, const DescribedPayload&) = default;
};

// For a media whose descriptions Mpeg4Description gave. Throws Refused (invalidSampleDescription)
// where there is no payload for them, or not one for all: clients are told only once.
DescribedPayload DescribePayload(const MediaRecord& media);

// The lines for a track, `id` being that of its hint track and `bitRate` in bits a second.
std::string DescribeTrack(const DescribedPayload& described, FourCC mediaType, std::uint32_t id,
                          std::uint64_t bitRate);

// The lines for the whole movie.
std::string DescribeMovie(const MovieRecord& movie, std::uint64_t bitRate);

}  // namespace toolbox
