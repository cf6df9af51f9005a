#include "toolbox/text/encoding.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "tests/toolbox/bytes.h"
#include "toolbox/text/language.h"
#include "toolbox/text/unicode.h"

namespace toolbox {
namespace {

constexpr TextEncoding kArabic = 4, kHebrew = 5, kThai = 21, kFarsi = 140;

// Bytes from hexadecimal digits.
std::string Hex(const Bytes& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) text += {kDigits[byte >> 4], kDigits[byte & 15]};
  return text;
}

EncodedText Encode(const std::string& text, TextEncoding encoding, std::uint8_t loss = 0,
                   std::size_t most = SIZE_MAX) {
  return EncodeText(Utf16(text), encoding, loss, most);
}

TEST(TextEncoding, HasTheBytesOfItsTable) {
  struct Row {
    TextEncoding encoding;
    const char *text, *bytes;
  };
  constexpr Row kRows[] = {
      {kMacRoman, "“Café” – €Ω", "d2436166 8ed320d0 20dbbd"},
      {1, "日本ΑБ", "93fa967b 839f8441"},
      {2, "中國", "a4a4b0ea"},
      {3, "한국어", "c7d1b1b9 beee"},
      {kArabic, "سلام،", "d3e4c7e5 ac"},
      {kHebrew, "שלום", "f9ece5ed"},
      {6, "Ελλάδα", "b6ececc0 e4e1"},
      {7, "Київ", "8ae8bbe2"},
      {kThai, "ไทย", "e4b7c2"},
      {25, "中国", "d6d0b9fa"},
      {29, "Łódź", "fc976490"},
      {35, "İstanbul ğ", "dc737461 6e62756c 20db"},
      {36, "Čeština Đž", "c865b974 696e6120 d0be"},
      {37, "Þór Ýð", "de977220 a0dd"},
      {38, "Țară", "de6172be"},
      {kFarsi, "۱۲", "b1b2"},
      {kUtf16, "aЖ𝄞", "00610416 d834dd1e"},
      {kUtf8, "aЖ𝄞", "61d096f0 9d849e"},
  };
  for (const Row& row : kRows) {
    std::string bytes = row.bytes;
    std::erase(bytes, ' ');
    const EncodedText encoded = Encode(row.text, row.encoding);
    EXPECT_EQ(Hex(encoded.bytes), bytes) << row.text;
    EXPECT_EQ(encoded.length, Utf16(row.text).size()) << row.text;
    EXPECT_EQ(DecodeText(encoded.bytes, row.encoding, false), row.text) << row.encoding;
  }
}

TEST(TextEncoding, GivesBackEveryByteThatStandsForACharacter) {
  for (const TextEncoding encoding : {0U, 4U, 5U, 6U, 7U, 21U, 29U, 35U, 36U, 37U, 38U, 140U}) {
    int count = 0, differing = 0;
    for (int byte = 0; byte < 256; ++byte) {
      const Bytes one{static_cast<std::uint8_t>(byte)};
      const auto text = DecodeText(one, encoding, false);
      if (!text) continue;
      const Bytes again = Encode(*text, encoding).bytes;
      EXPECT_EQ(DecodeText(again, encoding, false), text) << encoding << ": " << byte;
      ++count;
      differing += again != one;
    }
    const int holes = encoding == kHebrew ? 101 : encoding == kThai ? 41 : 0;
    EXPECT_EQ(count, 256 - holes) << encoding;
    // Arabic and Farsi have the punctuation of ASCII twice, once for each direction of writing.
    const bool hasTwins = encoding == kArabic || encoding == kFarsi;
    EXPECT_EQ(differing > 0, hasTwins) << encoding;
  }
}

TEST(TextEncoding, ComposesBeforeItConverts) {
  const EncodedText decomposed = Encode("Cafe\u0301", kMacRoman);
  EXPECT_EQ(Hex(decomposed.bytes), "4361668e");
  EXPECT_EQ(decomposed.length, 5U);
  EXPECT_EQ(Hex(Encode("\u1100\u1161", 3).bytes), "b0a1") << "two letters, one syllable";
  EXPECT_EQ(Encode("Cafx\u0301s", kMacRoman).length, 3U) << "whole or not at all";
  EXPECT_EQ(Hex(Encode("e\u0301", kUtf8).bytes), "65cc81") << "as it is";
}

TEST(TextEncoding, StopsAtWhatDoesNotFitOrPutsALossByteThere) {
  EXPECT_EQ(Hex(Encode("aЖb", kMacRoman).bytes), "61");
  EXPECT_EQ(Encode("aЖb", kMacRoman).length, 1U);
  EXPECT_EQ(Hex(Encode("aЖ𝄞x\u0301b", kMacRoman, '?').bytes), "613f3f783f62");
  EXPECT_EQ(Hex(Encode("日本", 1, 0, 3).bytes), "93fa") << "no character is split";
  EXPECT_EQ(Encode("日本", 1, 0, 3).length, 1U);
  EXPECT_EQ(Encode("a", 9, '?').bytes, Bytes{'?'}) << "no converter";
}

TEST(TextEncoding, RefusesBytesThatAreNotInIt) {
  const std::vector<std::pair<TextEncoding, Bytes>> bad{
      {kUtf8, {0xC3}},
      {kUtf8, {0xED, 0xA0, 0x80}},
      {kUtf8, {0xC0, 0x80}},
      {kUtf16, {0}},
      {kUtf16, {0xD8, 0x00}},
      {kUtf16, {0xDC, 0x41, 0, 0}},
      {1, {0x93}},
      {1, {0x93, 0x20}},
      {3, {0xC7}},
      {kHebrew, {'a', 0x81}},
      {9, {'a'}},
      {256 + 9, {'a'}},
  };
  for (const auto& [encoding, bytes] : bad) {
    EXPECT_EQ(DecodeText(bytes, encoding, true), std::nullopt) << encoding << " " << Hex(bytes);
  }
}

TEST(TextEncoding, GoesByTheByteOrderMark) {
  EXPECT_EQ(DecodeText(Bytes{0xFE, 0xFF, 0, 'a'}, kUtf16, true), "a");
  EXPECT_EQ(DecodeText(Bytes{0xFF, 0xFE, 'a', 0}, kUtf16, true), "a");
  EXPECT_EQ(DecodeText(Bytes{0xFF, 0xFE, 'a', 0}, kUtf16, false),
            "\uFEFF"
            "a");
  EXPECT_EQ(DecodeText(Bytes{0xEF, 0xBB, 0xBF, 'a'}, kUtf8, true), "a");
}

TEST(Utf16, CarriesBytesThatAreNotUtf8) {
  for (const std::string text : {"a\xFFz", "\xC3(", "\xF0\x9D\x84", "\xED\xB2\xA9", "é𝄞"}) {
    EXPECT_EQ(Utf8(Utf16(text)), text);
  }
  EXPECT_EQ(Utf16("\xC3(").substr(1), u"(");
  EXPECT_FALSE(IsValid(Utf16("a\xFF")));
}

TEST(Language, HasTheEncodingOfItsScript) {
  const std::map<std::int16_t, TextEncoding> first{
      {0, 0},   {10, 5},  {11, 1}, {12, 4},  {14, 6},   {15, 37}, {17, 35}, {18, 36},
      {19, 2},  {22, 21}, {23, 3}, {24, 29}, {31, 140}, {32, 7},  {33, 25}, {37, 38},
      {38, 29}, {40, 36}, {45, 7}, {62, 4},  {94, 0},   {148, 6}, {151, 0},
  };
  for (const auto& [language, encoding] : first) {
    EXPECT_EQ(EncodingOf(kAnyScriptOrLanguage, language), encoding) << language;
  }
  for (const int language : {21, 35, 52, 57, 63, 79, 95, 127, 128, 143, 146, 152, -1}) {
    EXPECT_EQ(EncodingOf(kAnyScriptOrLanguage, static_cast<std::int16_t>(language)), std::nullopt);
  }
  EXPECT_EQ(EncodingOf(7, kAnyScriptOrLanguage), 7U);
  EXPECT_EQ(EncodingOf(9, kAnyScriptOrLanguage), std::nullopt);
  EXPECT_EQ(EncodingOf(kAnyScriptOrLanguage, kAnyScriptOrLanguage), std::nullopt);
}

}  // namespace
}  // namespace toolbox
