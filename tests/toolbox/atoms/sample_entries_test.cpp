#include "toolbox/atoms/sample_entries.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

constexpr FourCC kPicture{"vide"}, kSound{"soun"};

Bytes Picture(std::uint16_t reference, const std::string& atoms) {
  return Made("avc1{ *6 $ *70 $ }", {U16(reference), Made(atoms)});
}

// An AAC description; QuickTime: version 1, 'esds' in 'wave'.
Bytes Aac(std::uint32_t rate, std::uint8_t profile, bool isQuickTime) {
  const Bytes esds =
      Made("esds{ 0 3/1 x808019 $ 0/1 4/1 17/1 0x40/1 0x15/1 *3 $ $ 5/1 2/1 $ 0x10/1 }",
           {U16(static_cast<std::uint16_t>(rate)), U32(2 * rate), U32(rate), U8(profile)});
  return isQuickTime ? Made("mp4a{ *6 1/2 1/2 *18 *16 wave{ frma{ 'mp4a' } $ } }", {esds})
                     : Made("mp4a{ *6 1/2 0/2 *18 $ }", {esds});
}

TEST(SampleDescription, IsTheSameWhateverItSaysOfFilesAndBitRates) {
  const std::string plain = "avcC{ 1 }", slow = plain + " btrt{ 0 5 5 }",
                    fast = plain + " btrt{ 0 6 6 }", hdr = plain + " mdcv{ *24 }";
  struct Case {
    Bytes a, b;
    FourCC type;
    bool same;
  };
  const Case cases[] = {
      {Picture(1, plain), Picture(2, plain), kPicture, true},
      {Picture(1, slow), Picture(1, fast), kPicture, true},
      {Picture(1, slow), Picture(1, plain), kPicture, true},
      {Picture(1, slow + " 0"), Picture(1, fast + " 0"), kPicture, true},
      {Picture(1, plain), Picture(1, "avcC{ 2 }"), kPicture, false},
      {Picture(1, plain), Picture(1, hdr), kPicture, false},
      {Picture(1, hdr), Picture(1, plain + " dvcC{ *24 }"), kPicture, false},
      {Picture(1, slow), Picture(1, fast), FourCC{"meta"}, false},
      {Picture(1, slow + " 'no atom'"), Picture(1, fast + " 'no atom'"), kPicture, false},
      {Aac(96000, 0x11, false), Aac(64000, 0x11, false), kSound, true},
      {Aac(96000, 0x11, true), Aac(64000, 0x11, true), kSound, true},
      {Aac(96000, 0x11, false), Aac(96000, 0x12, false), kSound, false},
      {Aac(96000, 0x11, true), Aac(96000, 0x12, true), kSound, false},
      {Aac(96000, 0x11, false), Aac(96000, 0x11, true), kSound, false},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(DecodeAlike(one.a, one.b, one.type), one.same) << &one - cases;
    EXPECT_EQ(DecodeAlike(one.b, one.a, one.type), one.same) << &one - cases;
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
  Bytes entry = Picture(0x0102, ""), text = Made("mett{ 'text/plain' }");
  EXPECT_EQ(ReferenceNumber(entry), 0x0102);
  SetReferenceNumber(entry, 0x10304);
  EXPECT_EQ(entry, Picture(0x0304, ""));
  EXPECT_EQ(ReferenceNumber(text), std::nullopt);
  SetReferenceNumber(text, 1);
  EXPECT_EQ(text, Made("mett{ 'text/plain' }"));
  EXPECT_EQ(ReferenceNumber(Made("mp4v{ *6 1/1 }")), std::nullopt);
}

}  // namespace
}  // namespace toolbox
