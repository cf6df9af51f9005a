#include "clipjoin/values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <optional>
#include <tuple>

#include "tests/commands/parsing.h"

namespace clipjoin {
namespace {

// What is refused is told by the text that the exception carries.
std::optional<std::string> RefusedDuration(const std::string& text) try {
  ParseDuration(text);
  return std::nullopt;
} catch (const BadDuration& bad) {
  return bad.text;
}

TEST(Duration, IsSecondsOrHoursMinutesAndSeconds) {
  const std::map<std::string, double> durations{
      {"75", 75},        {"3600", 3600},  {"100.45", 100.45},        {"1:10", 70},
      {"01:10.4", 70.4}, {"61:10", 3670}, {"1:01:10", 3670},         {"48:00:00", 172800},
      {"1:59:59", 7199}, {".5", 0.5},     {"100:59:59.5", 363599.5},
  };
  for (const auto& [text, seconds] : durations) EXPECT_EQ(ParseDuration(text), seconds) << text;
}

TEST(Duration, MayLeaveFieldsEmptyZeroOrUnfinished) {
  const std::map<std::string, double> durations{
      {"", 0},           {":", 0},           {"::", 0},
      {".", 0},          {"1:", 60},         {"1.", 1},
      {"0:75", 75},      {"0:0:75", 75},     {"0:0:1:10", 70},
      {"0:1:2:3", 3723}, {":::5", 5},        {"1.5.5", 1.5},
      {"1.5 s", 1.5},    {"1:2.5:60", 62.5}, {"4294967297", 1},
      {"1.x", 1},        {"0:99:00", 5940},  {"2147483648", -2147483648.0},
  };
  for (const auto& [text, seconds] : durations) EXPECT_EQ(ParseDuration(text), seconds) << text;
}

TEST(Duration, IsRefusedWithItsWholeText) {
  for (const char* text : {"1:75", "0:1:75", "1:60:00", "1:0:60", "1:00:60.5", "1:2:3:4", "1:0:0:0",
                           "10s", "ten", "-1", "+1", " 1", "1 ", "1,5", "1;10", "1:1x.5"}) {
    EXPECT_EQ(RefusedDuration(text), text);
  }
}

TEST(Number, IsWhateverCanBeReadOfTheText) {
  EXPECT_EQ(ParseNumber("2"), 2);
  EXPECT_EQ(ParseNumber("-1.5"), -1.5);
  EXPECT_EQ(ParseNumber("1e2"), 100);
  EXPECT_EQ(ParseNumber("1.5x"), 1.5);
  EXPECT_EQ(ParseNumber("1/2"), 0.5);
  EXPECT_EQ(ParseNumber("-3/4th"), -0.75);
  EXPECT_EQ(ParseNumber("2/0"), HUGE_VAL);
  EXPECT_TRUE(std::isnan(ParseNumber("0/0")));
}

TEST(FixedNumber, IsRoundedToTheNearestAndTiesToEven) {
  EXPECT_EQ(ParseFixed("1/3"), 21845);
  EXPECT_EQ(ParseFixed("2/3"), 43691);
  EXPECT_EQ(ParseFixed("0.5"), 32768);
  EXPECT_EQ(ParseFixed("-1"), -65536);
  EXPECT_EQ(ParseFixed("1/131072"), 0);
  EXPECT_EQ(ParseFixed("3/131072"), 2);
}

// The factor of `words`, and what is left of them.
std::tuple<Factor, Words, std::string> TakeFactor(const Words& words) {
  const Redirected err(std::cerr);
  const auto pointers = Pointers(words);
  Cursor next(pointers);
  const Factor factor = ParseFactor(next);
  Words rest;
  while (!next.AtEnd()) rest.emplace_back(next());
  return {factor, rest, err.Text()};
}

TEST(Factors, MayBeAboutAPoint) {
  const auto expect = [](const Words& words, Factor expected, const Words& expectedRest,
                         const std::string& expectedText = "") {
    const auto [factor, rest, said] = TakeFactor(words);
    EXPECT_EQ(std::tie(factor.value, factor.aboutX, factor.aboutY),
              std::tie(expected.value, expected.aboutX, expected.aboutY));
    EXPECT_EQ(rest, expectedRest);
    EXPECT_EQ(said, expectedText);
  };
  constexpr toolbox::Fixed kOne = 0x10000;
  expect({"2", "one.mov"}, {2 * kOne, 0, 0}, {"one.mov"});
  expect({"2", "-about", "10", "-1/2", "-about"}, {2 * kOne, 10 * kOne, -kOne / 2}, {"-about"});
  expect({"2", "one.mov", "-about", "1", "2"}, {2 * kOne, 0, 0}, {"one.mov", "-about", "1", "2"});
  expect({"2", "-About", "1", "2"}, {2 * kOne, 0, 0}, {"-About", "1", "2"});
  const char* complaint = "Error: -about requires two arguments\n";
  expect({"2", "-about", "10"}, {2 * kOne, 0, 0}, {}, complaint);
  expect({"2", "-about"}, {2 * kOne, 0, 0}, {}, complaint);
  EXPECT_THROW(TakeFactor({}), NeedMoreArguments);
}

// Mode, red, green, blue, and what is said.
using Transparency = std::tuple<std::int32_t, int, int, int, std::string>;

Transparency TakeTransparency(const Words& words) {
  const Redirected err(std::cerr);
  const auto pointers = Pointers(words);
  Cursor next(pointers);
  toolbox::RGBColor color;
  const std::int32_t mode = ParseTransparency(next, color);
  if (mode == 0) color = {};
  return {mode, color.red, color.green, color.blue, err.Text()};
}

TEST(TransparencyModes, TakeTheirColors) {
  using Is = Transparency;
  EXPECT_EQ(TakeTransparency({"none"}), Is(0, 0, 0, 0, ""));
  EXPECT_EQ(TakeTransparency({"straight-alpha"}), Is(0x100, 0, 0, 0, ""));
  EXPECT_EQ(TakeTransparency({"transparent", "255,128,1"}), Is(0x24, 0xFF00, 0x8000, 0x100, ""));
  EXPECT_EQ(TakeTransparency({"transparent", "1/2x3 more"}), Is(0x24, 0x100, 0x200, 0x300, ""));
  EXPECT_EQ(TakeTransparency({"transparent16", "65535, 128 ,1"}), Is(0x24, 65535, 128, 1, ""));
}

TEST(TransparencyModes, BlendGreenAndBlueCrosswise) {
  EXPECT_EQ(TakeTransparency({"blend", "1,0,0.5"}), Transparency(0x20, 65535, 32767, 0, ""));
  EXPECT_EQ(TakeTransparency({"blend", "0,0.25,1"}), Transparency(0x20, 0, 65535, 16383, ""));
}

TEST(TransparencyModes, AreExplainedWhenTheyCannotBeTaken) {
  const std::string help =
      "Error getting transparency mode. Correct syntax is one of:\n"
      "-transparency-mode none \t\tNo transparency.\n"
      "-transparency-mode straight-alpha \n"
      "\tUse the alpha channel that's in the movie.\n"
      "-transparency-mode transparent red,green,blue\n"
      "\tThe specified color is transparent; all others\n"
      "\tare opaque. red, green, and blue should be between 0 and 255.\n"
      "-transparency-mode transparent16 red,green,blue\n"
      "\tThe specified color is transparent; all others\n"
      "\tare opaque. red, green, and blue should be between 0 and 65535.\n"
      "-transparency-mode blend red-prop,green-prop,blue-prop\n"
      "\tBlend the two images using the\n"
      "\tspecified proportion for each channel. red-prop, green-prop, and\n"
      "\tblue-prop should be real numbers between 0 and 1.\n";
  const std::vector<std::pair<Words, std::string>> said{
      {{"help"}, ""},
      {{"-help"}, ""},
      {{"Blend", "1,1,1"}, "Unrecognized transparency mode Blend.\n"},
      {{""}, "Unrecognized transparency mode .\n"},
      {{"transparent", "red"}, "Error getting transparent color.\n"},
      {{"transparent16", "1,2"}, "Error getting transparent color.\n"},
      {{"transparent16", "1,2,70000"}, "Error getting transparent color.\n"},
      {{"blend", "1,,1"}, "Error getting blend proportions.\n"},
      {{}, "Need more arguments in -transparency-mode\n"},
      {{"blend"}, "Need more arguments in -transparency-mode\n"},
  };
  for (const auto& [words, complaint] : said) {
    EXPECT_EQ(TakeTransparency(words), Transparency(0, 0, 0, 0, complaint + help));
  }
}

}  // namespace
}  // namespace clipjoin
