// The formats of single values: sound formats, tags and sample descriptions.
#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/atoms/sound_format.h"
#include "toolbox/atoms/tag_atoms.h"

namespace toolbox {
namespace {

using namespace std::string_literals;

// Such as "2x16 48000 signed little".
std::string FormatOf(ByteSpan entry) {
  const SoundFormat format = ReadSoundFormat(entry);
  std::ostringstream text;
  text << format.channels << 'x' << format.bits << ' ' << format.rate;
  text << (format.isFloat ? " float" : format.isSigned ? " signed" : " unsigned");
  if (format.isLittleEndian) text << " little";
  return text.str();
}

// The start of an entry, up to its version; its usual fields: stereo, 16 bits, 44100 Hz; the start
// of an AAC configuration.
#define V0 " *7 1/1 0/2 *6 "
#define USUAL "2/2 16/2 0 44100/2 0/2 "
#define AAC " esds{ 0 x0319 1/2 x0004 17/1 x4015 *11 x0502"

// Entries of every kind, each with the format that it states.
const std::pair<const char*, const char*> kCases[] = {
    {"twos{" V0 USUAL "}", "2x16 44100 signed"},
    {"sowt{" V0 "1/2 16/2 0 8000/2 0x8000/2 }", "1x16 8000.5 signed little"},
    {"raw{" V0 "1/2 8/2 0 11025/2 0/2 }", "1x8 11025 unsigned"},
    {"in24{" V0 USUAL "}", "2x24 44100 signed"},
    {"fl64{" V0 USUAL "}", "2x64 44100 float"},
    // Version 1 has 16 bytes of sizes before the atoms.
    {"fl32{ *7 1/1 1/2 *6 " USUAL "*16 wave{ frma{ 'fl32' } enda{ 1/2 } } }",
     "2x32 44100 float little"},
    // Version 2: its size, 96000 Hz as a double, 6 channels, a constant, 24 bits, flags, sizes.
    {"lpcm{ *7 1/1 2/2 *6 3/2 16/2 -2/2 0/2 0x10000 72 x40F7700000000000 6 0x7F000000 24 12 18 1 }",
     "6x24 96000 signed little"},
    {"ipcm{" V0 USUAL "pcmC{ 0 x0118 } }", "2x24 44100 signed little"},
    {"samr{" V0 USUAL "}", "1x16 44100 signed"},
    {"ac-3{" V0 USUAL "dac3{ x103DE0 } }", "6x16 44100 signed"},
    {"ac-3{" V0 USUAL "dac3{ x10 } }", "2x16 44100 signed"},
    {"ec-3{" V0 USUAL "dec3{ x0600200200 } }", "1x16 44100 signed"},
    {"alac{" V0 USUAL "alac{ 0 4096 x0018280A0E06 x00FF 0 0 96000 } }", "6x24 96000 signed"},
    {"fLaC{" V0 USUAL "dfLa{ 0 x80000022 4096/2 4096/2 *6 x1770037000000000 } }",
     "2x24 96000 signed"},
    {"Opus{" V0 USUAL "dOps{ x0001 312/2 16000 *3 } }", "1x16 48000 signed"},
    {"mp4a{" V0 USUAL AAC " x1208 x060102 } }", "1x16 44100 signed"},
    {"mp4a{" V0 USUAL AAC " x11B8 x060102 } }", "8x16 48000 signed"},
    // The rate in the entry is right if it is twice that of the configuration, 24000 Hz.
    {"mp4a{" V0 "2/2 16/2 0 48000/2 0/2" AAC " x1310 x060102 } }", "2x16 48000 signed"},
};

TEST(SoundFormat, IsThatOfTheDecoderIfTheEntryHasAWholeConfiguration) {
  for (const auto& [text, expected] : kCases) {
    const Bytes entry = Made(text);
    EXPECT_EQ(FormatOf(entry), expected) << text;
    for (std::size_t size = 0; size < entry.size(); ++size) {
      const SoundFormat cut = ReadSoundFormat(ByteSpan(entry).first(size));
      EXPECT_EQ(cut.channels == 0, size < 36) << text << " " << size;
    }
  }
}

std::string TextOf(ByteSpan bytes) { return {bytes.begin(), bytes.end()}; }

// "type domain name kind value" of each tag.
std::string TagsIn(const std::string& meta) {
  std::string lines;
  const Bytes bytes = Made(meta);
  for (const Tag& tag : ReadTags(bytes)) {
    lines += tag.type.Text() + ' ' + TextOf(tag.domain) + ' ' + TextOf(tag.name) + ' ' +
             std::to_string(tag.kind) + ' ' + TextOf(tag.value) + '\n';
  }
  return lines;
}

TEST(Tags, HaveATypeOrANameOfTheirOwnOrAKey) {
  const std::string handler = "hdlr{ *8 'mdir' *13 } ";
  const std::string items =
      handler +
      "ilst{ desc{ data{ 1 0 'Hi' } }"
      " covr{ data{ 13 0 'jpeg' } name{ 'x' } data{ 14 0 'png' } }"
      " ----{ mean{ 0 'org.x' } name{ 0 'ID' } data{ 0 0 '7' } } none{ } shrt{ data{ *7 } } }";
  const std::string expected = "desc   1 Hi\ncovr   13 jpeg\ncovr   14 png\n---- org.x ID 0 7\n";
  EXPECT_EQ(TagsIn("0 " + items), expected);
  EXPECT_EQ(TagsIn(items), expected) << "QuickTime has no version";
  EXPECT_EQ(TagsIn("0 " + handler), "");
  // The type may be the number of a key.
  const Bytes keys = Made(handler +
                              "keys{ 0 2 mdta{ 'make' } mdta{ 'model' } } ilst{ 24 0 $ 24 1 $"
                              " 24 2 $ 24 3 $ }",
                          std::vector(4, Made("data{ 1 0 }")));
  std::string names;
  for (const Tag& tag : ReadTags(keys)) names += TextOf(tag.name) + '|';
  EXPECT_EQ(names, "|make|model||");
}

TEST(Tags, HaveNumbersOfTheirKind) {
  const auto number = [](std::uint32_t kind, const char* text) {
    const Bytes value = Made(text);
    const Tag tag{.kind = kind, .value = value};
    EXPECT_FALSE(tag.Integer() && tag.Real());
    return tag.Integer() ? std::to_string(*tag.Integer())
           : tag.Real()  ? std::to_string(*tag.Real())
                         : "none";
  };
  EXPECT_EQ(number(Tag::kSignedNumber, "-5/1"), "-5");
  EXPECT_EQ(number(Tag::kSignedNumber, "251/2"), "251");
  EXPECT_EQ(number(Tag::kSignedNumber, "-65536/3"), "-65536");
  EXPECT_EQ(number(Tag::kUnsignedNumber, "0x0102030405060708/8"), "72623859790382856");
  EXPECT_EQ(number(Tag::kUnsignedNumber, "*9"), "none");
  EXPECT_EQ(number(Tag::kFloat, "0xBFC00000"), "-1.500000");
  EXPECT_EQ(number(Tag::kDouble, "0x4004000000000000/8"), "2.500000");
  EXPECT_EQ(number(Tag::kFloat, "0x4004000000000000/8"), "none");
  EXPECT_EQ(number(Tag::kUtf8Text, "'1'"), "none");
  const Bytes track = Made("3 268/2 0/2"), genre = Made("265/2");
  using Pair = std::pair<std::uint16_t, std::uint16_t>;
  EXPECT_EQ(Tag{.value = track}.NumberAndTotal(), Pair(3, 268));
  EXPECT_EQ(Tag{.value = ByteSpan(track).first(5)}.NumberAndTotal(), Pair(3, 0));
  EXPECT_EQ(Tag{.value = genre}.Genre(), 265);
}

TEST(AssetText, EndsAtAZeroUnlessItIsUtf16) {
  const auto text = [](FourCC type, const char* payload) {
    const Bytes bytes = Made(payload);
    const auto found = ReadAssetText(type, bytes);
    return found ? std::to_string(found->language) + TextOf(found->text) : "none";
  };
  EXPECT_EQ(text(FourCC{"titl"}, "0 5575/2 'Hi' 0/1 'x'"), "5575Hi");
  EXPECT_EQ(text(FourCC{"auth"}, "0 1/2 xFEFF00480069"), "1\xFE\xFF\0H\0i"s);
  EXPECT_EQ(text(FourCC{"perf"}, "0 1/2"), "1");
  EXPECT_EQ(text(FourCC{"perf"}, "*5"), "none");
  EXPECT_EQ(text(FourCC{"loci"}, "0 1/2 'Hi'"), "none");
}

// --- Sample descriptions

constexpr FourCC kPicture{"vide"}, kSound{"soun"};

Bytes Picture(std::uint16_t reference, const std::string& atoms) {
  return Made("avc1{ *6 $ *70 $ }", {U16(reference), Made(atoms)});
}

// An AAC description; QuickTime: version 1, 'esds' in 'wave'.
Bytes Aac(std::uint32_t rate, std::uint8_t profile, bool isQuickTime) {
  const Bytes esds = Made("esds{ 0 3/1 x808019 *3 4/1 17/1 x4015 *3 $ $ 5/1 2/1 $ 0x10/1 }",
                          {U32(2 * rate), U32(rate), Bytes{profile}});
  return Made(
      isQuickTime ? "mp4a{ *6 1/2 1/2 *34 wave{ frma{ 'mp4a' } $ } }" : "mp4a{ *6 1/2 0/2 *18 $ }",
      {esds});
}

TEST(SampleDescription, IsTheSameWithOtherDataReferencesAndBitRates) {
  const std::string plain = "avcC{ 1 }", slow = plain + " btrt{ 0 5 5 }",
                    fast = plain + " btrt{ 0 6 6 }", hdr = plain + " mdcv{ *24 }";
  const auto expectSame = [](const Bytes& a, const Bytes& b, bool same, FourCC type = kPicture) {
    EXPECT_EQ(DecodeAlike(a, b, type), same) << testing::PrintToString(a);
    EXPECT_EQ(DecodeAlike(b, a, type), same) << testing::PrintToString(b);
  };
  expectSame(Picture(1, plain), Picture(2, plain), true);
  expectSame(Picture(1, slow + " 0"), Picture(1, fast + " 0"), true);
  expectSame(Picture(1, slow), Picture(1, plain), true);
  expectSame(Picture(1, plain), Picture(1, "avcC{ 2 }"), false);
  expectSame(Picture(1, plain), Picture(1, hdr), false);
  expectSame(Picture(1, slow), Picture(1, fast), false, FourCC{"meta"});
  expectSame(Picture(1, slow + " 'no atom'"), Picture(1, fast + " 'no atom'"), false);
  for (const bool isQuickTime : {false, true}) {
    const Bytes aac = Aac(96000, 0x11, isQuickTime);
    expectSame(aac, Aac(64000, 0x11, isQuickTime), true, kSound);
    expectSame(aac, Aac(96000, 0x12, isQuickTime), false, kSound);
    expectSame(aac, Aac(96000, 0x11, !isQuickTime), false, kSound);
    for (std::size_t size = 1; size < aac.size(); ++size) {  // truncated descriptions never match
      Bytes other = First(aac, size);
      other.back() ^= 1;
      if (size > 20) expectSame(First(aac, size), other, false, kSound);
    }
  }
}

TEST(SampleDescription, HasADataReferenceNumberUnlessTextIsInItsPlace) {
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
