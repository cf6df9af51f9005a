#include "toolbox/mpeg4/session_description.h"

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <iterator>
#include <optional>
#include <utility>

#include "toolbox/atoms/base64.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/mpeg4/mpeg4_descriptions.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

std::string Hex(ByteSpan bytes) {
  std::string text;
  boost::algorithm::hex(bytes.begin(), bytes.end(), std::back_inserter(text));
  return text;
}

// RFC 6184 8.1. Packetization mode 1 allows the fragments that MakeHintSamples makes.
DescribedPayload DescribeAvc(const AvcConfig& config) {
  std::string sets;
  for (const Bytes& set : config.parameterSets) sets += (sets.empty() ? "" : ",") + Base64(set);
  return {.payload = {.kind = Payload::Kind::kAvc, .lengthSize = config.lengthSize},
          .encoding = "H264/90000",
          .parameters = "profile-level-id=" + Hex(config.profile) +
                        "; packetization-mode=1; sprop-parameter-sets=" + sets};
}

// RFC 6416 7.1. The profile is left out if the configuration does not state it.
DescribedPayload DescribeVisual(const ElementaryStream& stream) {
  const ByteSpan specific = stream.Specific();
  std::string parameters = "config=" + Hex(specific);
  if (const auto profile = VisualProfile(specific)) {
    parameters = "profile-level-id=" + std::to_string(*profile) + "; " + parameters;
  }
  return {.payload = {}, .encoding = "MP4V-ES/90000", .parameters = parameters};
}

// RFC 3640 4.1. The three lengths at the end are the bits of the unit headers in mode AAC-hbr, and
// the RTP clock is the sample rate.
DescribedPayload DescribeAudio(const ElementaryStream& stream, std::uint32_t channels,
                               std::int32_t scale) {
  const ByteSpan specific = stream.Specific();
  const AudioConfig config = ValueOrRefuse(ReadAudioConfig(specific));
  const int profile = AudioProfile(config).value_or(ProfileLevels::kUnspecified);
  return {.payload = {.kind = Payload::Kind::kAudio, .clock = scale},
          .encoding = "mpeg4-generic/" + std::to_string(scale) + "/" + std::to_string(channels),
          .parameters = "streamtype=5; profile-level-id=" + std::to_string(profile) +
                        "; mode=AAC-hbr; config=" + Hex(specific) +
                        "; SizeLength=13; IndexLength=3; IndexDeltaLength=3"};
}

// The bandwidth line. RFC 4566 5.8 counts in kilobits a second. The rate is rounded up.
std::string Bandwidth(std::uint64_t bitRate) {
  return "b=AS:" + std::to_string((bitRate + 999) / 1000) + "\r\n";
}

// Describes the samples of one description of the media.
DescribedPayload Describe(const MediaRecord& media, const SampleDescription& described) {
  const ByteSpan description = described.bytes;
  if (described.Format() == FourCC{"avc1"}) {
    return DescribeAvc(ValueOrRefuse(AvcConfigIn(description)));
  }
  const ElementaryStream stream = ValueOrRefuse(StreamIn(description));
  if (media.Type() == FourCC{"soun"} && stream.objectType == ElementaryStream::kAudio) {
    return DescribeAudio(stream, ValueOrRefuse(ReadSoundEntry(description)).channels,
                         media.header.scale);
  }
  // Other codings have other RTP payloads, which the toolbox does not make.
  if (media.Type() == FourCC{"vide"} && stream.objectType == ElementaryStream::kVisual) {
    return DescribeVisual(stream);
  }
  throw Refused{invalidSampleDescription, "there are no RTP packets for this coding"};
}

}  // namespace

DescribedPayload DescribePayload(const MediaRecord& media) {
  DescribedPayload first = Describe(media, media.descriptions.at(0));
  for (const SampleDescription& description : media.descriptions) {
    if (Describe(media, description) != first) {
      throw Refused{invalidSampleDescription, "the track changes its coding"};
    }
  }
  return first;
}

std::string DescribeTrack(const DescribedPayload& described, FourCC mediaType, std::uint32_t id,
                          std::uint64_t bitRate) {
  const std::string number = std::to_string(described.payload.number);
  std::string text = mediaType == FourCC{"soun"} ? "m=audio" : "m=video";
  text += " 0 RTP/AVP " + number + "\r\n" + Bandwidth(bitRate);
  text += "a=rtpmap:" + number + " " + described.encoding + "\r\n";
  text += "a=fmtp:" + number + " " + described.parameters + "\r\n";
  return text + "a=control:trackID=" + std::to_string(id) + "\r\n";
}

std::string DescribeMovie(const MovieRecord& movie, std::uint64_t bitRate) {
  MovieTime end;
  for (const auto& track : movie.tracks) end = std::max(end, track->edits.Duration());
  const std::int64_t length = Rescale(end.units, movie.header.scale, 1000, Rounding::kUp);
  // The added 1000 keeps the zeros at the front.
  const std::string thousandths = std::to_string(1000 + length % 1000).substr(1);
  return Bandwidth(bitRate) + "a=range:npt=0-" + std::to_string(length / 1000) + "." + thousandths +
         "\r\n";
}

}  // namespace toolbox
