#include "toolbox/text/encoding.h"

#include "tests/toolbox/bytes.h"
#include "toolbox/text/language.h"
#include "toolbox/text/unicode.h"

namespace toolbox {
namespace {

constexpr TextEncoding kArabic = 4, kHebrew = 5, kThai = 21, kFarsi = 140;

EncodedText Encode(const std::string& text, TextEncoding encoding) {
  return EncodeText(Utf16(text), encoding, 0, SIZE_MAX);
}

TEST(TextEncoding, HasTheBytesOfItsTable) {
  const std::tuple<TextEncoding, const char*, const char*> rows[] = {
      {kMacRoman, "“Café” – €Ω", "xd24361668ed320d020dbbd"},
      {2, "中國", "xa4a4b0ea"},
      {kArabic, "سلام،", "xd3e4c7e5ac"},
      {kHebrew, "שלום", "xf9ece5ed"},
      {7, "Київ", "x8ae8bbe2"},
      {kThai, "ไทย", "xe4b7c2"},
      {25, "中国", "xd6d0b9fa"},
      {37, "Þór Ýð", "xde977220a0dd"},
      {kFarsi, "۱۲", "xb1b2"},
      {kUtf16, "aЖ𝄞", "x00610416d834dd1e"},
      {kUtf8, "aЖ𝄞", "x61d096f09d849e"}};
  for (const auto& [encoding, text, bytes] : rows) {
    const EncodedText encoded = Encode(text, encoding);
    EXPECT_EQ(encoded.bytes, Made(bytes)) << text;
    EXPECT_EQ(encoded.length, Utf16(text).size()) << text;
    EXPECT_EQ(DecodeText(encoded.bytes, encoding, false), text) << encoding;
  }
}

TEST(TextEncoding, GivesBackEveryByteThatStandsForACharacter) {
  for (const TextEncoding encoding : {0U, 4U, 5U, 6U, 7U, 21U, 29U, 35U, 36U, 37U, 38U, 140U}) {
    int holes = 0;
    for (int byte = 0; byte < 256; ++byte) {
      const auto text = DecodeText(Bytes{static_cast<std::uint8_t>(byte)}, encoding, false);
      holes += !text;
      if (!text) continue;
      const Bytes again = Encode(*text, encoding).bytes;
      EXPECT_EQ(DecodeText(again, encoding, false), text) << encoding << ": " << byte;
      // Arabic and Farsi have the punctuation of ASCII twice, once for each direction of writing.
      if (encoding != kArabic && encoding != kFarsi) EXPECT_EQ(again.at(0), byte) << encoding;
    }
    EXPECT_EQ(holes, encoding == kHebrew ? 101 : encoding == kThai ? 41 : 0) << encoding;
  }
}

TEST(TextEncoding, ComposesAndStopsAtOrReplacesWhatItLacks) {
  for (const auto& [text, encoding, loss, most, bytes, length] :
       {std::tuple("Cafe\u0301", kMacRoman, '\0', 9U, "x4361668e", 5U),
        {"\u1100\u1161", 3U, '\0', 9U, "xb0a1", 2U},  // two letters, one syllable
        {"Cafx\u0301s", kMacRoman, '\0', 9U, "x436166",
         3U},  // a letter and its accent are not separated
        {"e\u0301", kUtf8, '\0', 9U, "x65cc81", 2U},  // UTF-8 keeps it decomposed
        {"aЖb", kMacRoman, '\0', 9U, "x61", 1U},
        {"aЖ𝄞x\u0301b", kMacRoman, '?', 9U, "x613f3f783f62", 7U},
        {"日本", 1U, '\0', 3U, "x93fa", 1U},  // no character is split
        {"a", 9U, '?', 9U, "'?'", 1U}}) {  // an unknown encoding
    const EncodedText encoded =
        EncodeText(Utf16(text), encoding, static_cast<std::uint8_t>(loss), most);
    EXPECT_EQ(encoded.bytes, Made(bytes)) << text;
    EXPECT_EQ(encoded.length, length) << text;
  }
}

TEST(TextEncoding, RefusesBytesThatAreNotInIt) {
  const std::pair<TextEncoding, const char*> bad[] = {
      {kUtf8, "xC3"},    {kUtf8, "xEDA080"},    {kUtf8, "xC080"}, {kUtf16, "x00"},
      {kUtf16, "xD800"}, {kUtf16, "xDC410000"}, {1, "x93"},       {1, "x9320"},
      {3, "xC7"},        {kHebrew, "x6181"},    {9, "x61"},       {256 + 9, "x61"}};
  for (const auto& [encoding, text] : bad) {
    EXPECT_EQ(DecodeText(Made(text), encoding, true), std::nullopt) << encoding << " " << text;
  }
  // A byte-order mark is only looked for at the start of a whole text.
  EXPECT_EQ(DecodeText(Made("xFEFF0061"), kUtf16, true), "a");
  EXPECT_EQ(DecodeText(Made("xFFFE6100"), kUtf16, true), "a");
  EXPECT_EQ(DecodeText(Made("xFFFE6100"), kUtf16, false), "\uFEFF\x61");
  EXPECT_EQ(DecodeText(Made("xEFBBBF61"), kUtf8, true), "a");
}

TEST(Utf16, CarriesBytesThatAreNotUtf8) {
  for (const std::string text : {"a\xFFz", "\xC3(", "\xF0\x9D\x84", "\xED\xB2\xA9", "é𝄞"}) {
    EXPECT_EQ(Utf8(Utf16(text)), text);
  }
  EXPECT_EQ(Utf16("\xC3(").substr(1), u"(");
  EXPECT_FALSE(IsValid(Utf16("a\xFF")));
}

TEST(Language, HasTheEncodingOfItsScript) {
  // The encoding of each language from 0 on, as a letter.
  constexpr char kLanguages[] =
      "RRRRRRRRRRHJARGiRucTA-hKEEEEERiFCSR-RoEEcHCCCCCCCCA--CCCC-CAAAA-----------------"
      "-RRRA---RRRRRRR----------------------------------RRRRRRCA-RRRR-----RGRRR-";
  const std::map<char, TextEncoding> encodings{
      {'R', 0},  {'J', 1},  {'T', 2},  {'K', 3},  {'A', 4},  {'H', 5},  {'G', 6},  {'C', 7},
      {'h', 21}, {'S', 25}, {'E', 29}, {'u', 35}, {'c', 36}, {'i', 37}, {'o', 38}, {'F', 140}};
  for (std::int16_t language = 0; kLanguages[language] != 0; ++language) {
    const auto known = encodings.find(kLanguages[language]);
    const auto expected = known == encodings.end() ? std::nullopt : std::optional(known->second);
    EXPECT_EQ(EncodingOf(kAnyScriptOrLanguage, language), expected) << language;
  }
  EXPECT_EQ(EncodingOf(kAnyScriptOrLanguage, -1), std::nullopt);
  EXPECT_EQ(EncodingOf(7, kAnyScriptOrLanguage), 7U);
  EXPECT_EQ(EncodingOf(9, kAnyScriptOrLanguage), std::nullopt);
  EXPECT_EQ(EncodingOf(kAnyScriptOrLanguage, kAnyScriptOrLanguage), std::nullopt);
}

}  // namespace
}  // namespace toolbox
