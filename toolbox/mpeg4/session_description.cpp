#include "toolbox/mpeg4/session_description.h"

#include <boost/algorithm/hex.hpp>
#include <iterator>

#include "toolbox/atoms/fields.h"
#include "toolbox/mpeg4/mpeg4_descriptions.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

std::string Hex(ByteSpan bytes) {
  std::string text;
  boost::algorithm::hex(bytes.begin(), bytes.end(), std::back_inserter(text));
  return text;
}

// RFC 4648 4.
std::string Base64(ByteSpan bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t three = 0;
    for (std::size_t i = at; i < at + 3; ++i)
      three = three << 8 | (i < bytes.size() ? bytes[i] : 0U);
    for (int shift = 18; shift >= 0; shift -= 6) text += kDigits[three >> shift & 63];
  }
  const std::size_t padding = (3 - bytes.size() % 3) % 3;
  text.replace(text.size() - padding, padding, padding, '=');
  return text;
}

DescribedPayload DescribeAvc(const AvcConfig& config) {
  DescribedPayload described;
  described.payload.kind = Payload::Kind::kAvc;
  described.payload.lengthSize = config.lengthSize;
  described.encoding = "H264/90000";
  std::string sets;
  for (const Bytes& set : config.parameterSets) sets += (sets.empty() ? "" : ",") + Base64(set);
  described.parameters = "profile-level-id=" + Hex(config.profile) +
                         "; packetization-mode=1; sprop-parameter-sets=" + sets;
  return described;
}

DescribedPayload DescribeVisual(const ElementaryStream& stream) {
  DescribedPayload described;
  described.encoding = "MP4V-ES/90000";
  if (const auto profile = VisualProfile(stream.specific)) {
    described.parameters = "profile-level-id=" + std::to_string(*profile) + "; ";
  }
  described.parameters += "config=" + Hex(stream.specific);
  return described;
}

DescribedPayload DescribeAudio(const ElementaryStream& stream, std::uint32_t channels,
                               std::int32_t scale) {
  constexpr std::uint8_t kNoProfile = 0xFE;
  const auto config = ReadAudioConfig(stream.specific);
  if (!config) throw Refused{invalidSampleDescription};
  DescribedPayload described;
  described.payload.kind = Payload::Kind::kAudio;
  described.payload.clock = scale;
  described.encoding = "mpeg4-generic/" + std::to_string(scale) + "/" + std::to_string(channels);
  described.parameters = "streamtype=5; profile-level-id=" +
                         std::to_string(AudioProfile(*config).value_or(kNoProfile)) +
                         "; mode=AAC-hbr; config=" + Hex(stream.specific) +
                         "; SizeLength=13; IndexLength=3; IndexDeltaLength=3";
  return described;
}

std::string Bandwidth(std::uint64_t bitRate) {
  return "b=AS:" + std::to_string((bitRate + 999) / 1000) + "\r\n";
}

DescribedPayload Describe(const MediaRecord& media, const SampleDescription& described) {
  const ByteSpan description = described.bytes;
  if (described.Format() == FourCC{"avc1"}) {
    const auto config = AvcConfigIn(description);
    if (!config) throw Refused{invalidSampleDescription};
    return DescribeAvc(*config);
  }
  const auto stream = StreamIn(description);
  if (!stream) throw Refused{invalidSampleDescription};
  if (media.Type() == FourCC{"soun"} && stream->objectType == ElementaryStream::kAudio) {
    return DescribeAudio(*stream, FromBigEndian<std::uint16_t>(&description[24]),
                         media.header.scale);
  }
  // Pictures and sound may also be coded in ways that have other payloads.
  if (media.Type() != FourCC{"vide"} || stream->objectType != ElementaryStream::kVisual) {
    throw Refused{invalidSampleDescription};
  }
  return DescribeVisual(*stream);
}

}  // namespace

DescribedPayload DescribePayload(const MediaRecord& media) {
  DescribedPayload first = Describe(media, media.descriptions.at(0));
  for (const SampleDescription& description : media.descriptions) {
    if (Describe(media, description) != first) throw Refused{invalidSampleDescription};
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
  const std::int64_t length =
      Rescale(movie.Duration().units, movie.header.scale, 1000, Rounding::kUp);
  const std::string thousandths = std::to_string(1000 + length % 1000).substr(1);
  return Bandwidth(bitRate) + "a=range:npt=0-" + std::to_string(length / 1000) + "." + thousandths +
         "\r\n";
}

}  // namespace toolbox
