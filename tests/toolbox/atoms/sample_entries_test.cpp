#include "toolbox/atoms/sample_entries.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

constexpr FourCC kPicture{"vide"}, kSound{"soun"};

template <std::same_as<Bytes>... Atoms>
Bytes Picture(std::uint16_t reference, const Atoms&... atoms) {
  return Atom("avc1", Zeros(6), U16(reference), Zeros(70), atoms...);
}

// An AAC description; QuickTime: version 1, 'esds' in 'wave'.
Bytes Aac(std::uint32_t rate, std::uint8_t profile, bool isQuickTime) {
  const Bytes decoder = Join(U8(0x40), U8(0x15), Zeros(3), U32(2 * rate), U32(rate), U8(5), U8(2),
                             U8(profile), U8(0x10));
  const Bytes esds = Atom("esds", U32(0), U8(3), U8(0x80), U8(0x80), U8(0x19),
                          U16(static_cast<std::uint16_t>(rate)), U8(0), U8(4),
                          U8(static_cast<std::uint8_t>(decoder.size())), decoder);
  const Bytes head = Join(Zeros(6), U16(1), U16(isQuickTime ? 1 : 0), Zeros(18));
  return isQuickTime ? Atom("mp4a", head, Zeros(16), Atom("wave", Atom("frma", Text("mp4a")), esds))
                     : Atom("mp4a", head, esds);
}

TEST(SampleDescription, IsTheSameWhateverItSaysOfFilesAndBitRates) {
  const auto rate = [](std::uint32_t bits) { return Atom("btrt", U32(0), U32(bits), U32(bits)); };
  const Bytes setUp = Atom("avcC", U32(1)), other = Atom("avcC", U32(2));
  const Bytes hdr = Atom("mdcv", Zeros(24)), dolby = Atom("dvcC", Zeros(24));
  struct Case {
    Bytes a, b;
    FourCC type;
    bool same;
  };
  const Case cases[] = {
      {Picture(1, setUp), Picture(2, setUp), kPicture, true},
      {Picture(1, setUp, rate(5)), Picture(1, setUp, rate(6)), kPicture, true},
      {Picture(1, setUp, rate(5)), Picture(1, setUp), kPicture, true},
      {Picture(1, setUp, rate(5), U32(0)), Picture(1, setUp, rate(6), U32(0)), kPicture, true},
      {Picture(1, setUp), Picture(1, other), kPicture, false},
      {Picture(1, setUp), Picture(1, setUp, hdr), kPicture, false},
      {Picture(1, setUp, hdr), Picture(1, setUp, dolby), kPicture, false},
      {Picture(1, setUp, rate(5)), Picture(1, setUp, rate(6)), FourCC{"meta"}, false},
      {Picture(1, rate(5), Text("no atom")), Picture(1, rate(6), Text("no atom")), kPicture, false},
      {Aac(96000, 0x11, false), Aac(64000, 0x11, false), kSound, true},
      {Aac(96000, 0x11, true), Aac(64000, 0x11, true), kSound, true},
      {Aac(96000, 0x11, false), Aac(96000, 0x12, false), kSound, false},
      {Aac(96000, 0x11, true), Aac(96000, 0x12, true), kSound, false},
      {Aac(96000, 0x11, false), Aac(96000, 0x11, true), kSound, false},
  };
  for (const Case& one : cases) {
    const auto number = &one - cases;
    EXPECT_EQ(DecodeAlike(one.a, one.b, one.type), one.same) << number;
    EXPECT_EQ(DecodeAlike(one.b, one.a, one.type), one.same) << number;
  }
}

TEST(SampleDescription, MayBeCutAnywhere) {
  for (const Bytes& whole : {Aac(1, 2, true), Aac(1, 2, false)}) {
    for (std::size_t size = 0; size < whole.size(); ++size) {
      const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      Bytes other = cut;
      if (size > 20) ++other[size - 1];
      EXPECT_TRUE(DecodeAlike(cut, cut, kSound));
      EXPECT_EQ(DecodeAlike(cut, other, kSound), size <= 20) << size;
    }
  }
}

TEST(SampleDescription, HasANumberOfADataReferenceUnlessTextIsThere) {
  Bytes entry = Picture(0x0102);
  EXPECT_EQ(ReferenceNumber(entry), 0x0102);
  SetReferenceNumber(entry, 0x10304);
  EXPECT_EQ(entry, Picture(0x0304));
  Bytes text = Atom("mett", Text("text/plain"));
  EXPECT_EQ(ReferenceNumber(text), std::nullopt);
  SetReferenceNumber(text, 1);
  EXPECT_EQ(text, Atom("mett", Text("text/plain")));
  EXPECT_EQ(ReferenceNumber(Atom("mp4v", Zeros(6), U8(1))), std::nullopt);
}

}  // namespace
}  // namespace toolbox
