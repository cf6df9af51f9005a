#include "clipjoin/values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include "clipjoin/report.h"

namespace clipjoin {
namespace {

// Fields may be empty, and the fraction ends the text. Fields that are 0 do not count before the
// others, nor as the first one. Fields have 32 bits.
TEST(Duration, IsSecondsOrHoursMinutesAndSeconds) {
  constexpr std::pair<const char*, double> kDurations[] = {
      {"75", 75},
      {"100.45", 100.45},
      {"1:10", 70},
      {"01:10.4", 70.4},
      {"61:10", 3670},
      {"1:59:59", 7199},
      {"100:59:59.5", 363599.5},
      {"", 0},
      {":::5", 5},
      {"1.", 1},
      {"1.5.5 s", 1.5},
      {"1:2.5:60", 62.5},
      {"0:75", 75},
      {"0:99:00", 5940},
      {"0:1:2:3", 3723},
      {"4294967297", 1},
      {"2147483648", -2147483648.0},
  };
  for (const auto& [text, seconds] : kDurations) EXPECT_EQ(ParseDuration(text), seconds) << text;
}

TEST(Duration, IsRefusedWithItsWholeText) {
  for (const std::string text : {"1:60", "0:1:75", "1:60:00", "1:0:60", "1:00:60.5", "1:2:3:4",
                                 "1:0:0:0", "10s", "-1", "+1", " 1", "1 ", "1,5", "1:1x.5"}) {
    try {
      ParseDuration(text);
      ADD_FAILURE() << text;
    } catch (const BadDuration& bad) {
      EXPECT_EQ(bad.text, text);
    }
  }
}

TEST(Number, IsWhateverCanBeReadOfTheText) {
  constexpr std::pair<const char*, double> kNumbers[] = {
      {"2", 2},     {"-1.5", -1.5},    {"1e2", 100},      {"1.5x", 1.5},
      {"1/2", 0.5}, {"-3/4th", -0.75}, {"2/0", HUGE_VAL},
  };
  for (const auto& [text, number] : kNumbers) EXPECT_EQ(ParseNumber(text), number) << text;
  EXPECT_TRUE(std::isnan(ParseNumber("0/0")));
}

TEST(FixedNumber, IsRoundedToTheNearestAndTiesToEven) {
  const std::map<std::string, toolbox::Fixed> numbers{
      {"1/3", 21845}, {"2/3", 43691}, {"-1", -65536}, {"1/131072", 0}, {"3/131072", 2}};
  for (const auto& [text, number] : numbers) EXPECT_EQ(ParseFixed(text), number) << text;
}

TEST(TransparencyModes, TakeTheirColors) {
  struct Row {
    std::vector<const char*> words;
    std::int32_t mode;
    toolbox::RGBColor color;
  };
  const Row rows[] = {
      {{"none"}, 0, {}},
      {{"straight-alpha"}, 0x100, {}},
      {{"transparent", "255,128,1"}, 0x24, {0xFF00, 0x8000, 0x100}},
      {{"transparent", "1/2x3 more"}, 0x24, {0x100, 0x200, 0x300}},
      {{"transparent16", "65535, 128 ,1"}, 0x24, {65535, 128, 1}},
      // Green and blue are exchanged.
      {{"blend", "1,0,0.5"}, 0x20, {65535, 32767, 0}},
      {{"blend", "0,0.25,1e99"}, 0x20, {0, 65535, 16383}},
  };
  for (const Row& row : rows) {
    Cursor next(row.words);
    toolbox::RGBColor color;
    EXPECT_EQ(ParseTransparency(next, color), row.mode);
    EXPECT_EQ(std::tie(color.red, color.green, color.blue),
              std::tie(row.color.red, row.color.green, row.color.blue))
        << row.words.back();
  }
}

}  // namespace
}  // namespace clipjoin
