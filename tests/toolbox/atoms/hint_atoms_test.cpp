#include "toolbox/atoms/hint_atoms.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/hint_sample.h"

namespace toolbox {
namespace {

TEST(HintAtoms, AreTheseBytes) {
  EXPECT_EQ(Encode(HintHeader{.largestPacket = 1450,
                              .averagePacket = 1200,
                              .highestBitRate = 0x01020304,
                              .averageBitRate = 0x00020304}),
            Atom("hmhd", U32(0), U16(1450), U16(1200), U32(0x01020304), U32(0x00020304), U32(0)));
  EXPECT_EQ(Encode(RtpHintEntry{.packetSize = 1450, .clock = {90000}}),
            Atom("rtp ", Zeros(6), U16(1), U16(1), U16(1), U32(1450), Atom("tims", U32(90000))));
  EXPECT_EQ(Encode(TrackSessionText{Text("m=audio")}), Atom("sdp ", Text("m=audio")));
  EXPECT_EQ(Encode(MovieSessionText{.text = Text("b=AS:1")}), Atom("rtp ", Text("sdp b=AS:1")));
}

TEST(HintSample, StatesItsTimeOffsetInEachPacket) {
  HintSample sample;
  sample.Clear(-2);
  sample.Mark();  // no packet yet
  sample.StartPacket(96, 0x0102);
  sample.AddBytes(Text("fifteen letters"));
  sample.StartPacket(96, 0x0103);
  sample.AddMedia(7, 0x10, 0x20);
  sample.Mark();
  const auto packet = [](std::uint8_t payload, std::uint16_t sequence, std::uint16_t entries) {
    return Join(U32(0), U8(0x80), U8(payload), U16(sequence), U16(4), U16(entries), U32(16),
                Atom("rtpo", U32(0xFFFFFFFE)));
  };
  const ByteSpan content = sample.Content();
  EXPECT_EQ(Bytes(content.begin(), content.end()),
            Join(U16(2), U16(0), packet(96, 0x0102, 2), U8(1), U8(14), Text("fifteen letter"),
                 U8(1), U8(1), Text("s"), Zeros(13), packet(0x80 | 96, 0x0103, 1), U8(2), U8(0),
                 U16(0x20), U32(7), U32(0x10), U16(1), U16(1)));
  EXPECT_EQ(sample.PacketSizes()[0], 12U + 15U);
  EXPECT_EQ(sample.PacketSizes()[1], 12U + 0x20U);
}

}  // namespace
}  // namespace toolbox
