// The atoms of hint tracks. A hint track describes how a server sends another track by RTP.
#pragma once

#include <array>
#include <cstdint>

#include "toolbox/atoms/fields.h"

namespace toolbox {

struct HintHeader {  // 'hmhd', ISO/IEC 14496-12 12.4.2
  static constexpr FourCC kType{"hmhd"};
  std::uint32_t versionAndFlags = 0;
  std::uint16_t largestPacket = 0, averagePacket = 0;  // bytes
  std::uint32_t highestBitRate = 0, averageBitRate = 0;  // bits a second
  std::uint32_t reserved = 0;
  static void Fields(auto& io, auto& header) {
    io("largestPacket", header.largestPacket);
    io("averagePacket", header.averagePacket);
    io("highestBitRate", header.highestBitRate);
    io("averageBitRate", header.averageBitRate);
    io("reserved", header.reserved);
  }
};

struct RtpClock {  // 'tims' in 'rtp ', ISO/IEC 14496-12 9.1.2.1
  static constexpr FourCC kType{"tims"};
  std::int32_t clock = 0;  // units a second
  static void Fields(auto& io, auto& clock) { io("clock", clock.clock); }
};

// 'rtp ' in 'stsd', ISO/IEC 14496-12 9.1.2. It can only be written: PutAtom in its fields does not
// compile with a FieldReader.
struct RtpHintEntry {
  static constexpr FourCC kType{"rtp "};
  std::array<std::uint8_t, 6> reserved{};
  std::uint16_t dataReference = 1;  // number
  std::uint16_t version = 1, lastCompatible = 1;
  std::uint32_t packetSize = 0;  // of the largest packet, bytes
  RtpClock clock;
  static void Fields(auto& io, auto& entry) {
    io("reserved", entry.reserved);
    io("dataReference", entry.dataReference);
    io("version", entry.version);
    io("lastCompatible", entry.lastCompatible);
    io("packetSize", entry.packetSize);
    PutAtom(io, entry.clock);
  }
};

struct TrackSessionText {  // 'sdp ' in the 'hnti' of a track, ISO/IEC 14496-12 9.1.4.2
  static constexpr FourCC kType{"sdp "};
  Bytes text;
  static void Fields(auto& io, auto& session) { io.Rest("text", session.text); }
};

struct MovieSessionText {  // 'rtp ' in the 'hnti' of a movie, ISO/IEC 14496-12 9.1.4.1
  static constexpr FourCC kType{"rtp "};
  FourCC format{"sdp "};
  Bytes text;
  static void Fields(auto& io, auto& session) {
    io("format", session.format);
    io.Rest("text", session.text);
  }
};

}  // namespace toolbox
