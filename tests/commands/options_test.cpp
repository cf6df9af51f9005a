#include "clipjoin/option_rows.h"

#include <gtest/gtest.h>

#include <boost/crc.hpp>
#include <cmath>
#include <map>
#include <regex>
#include <tuple>
#include <utility>
#include <vector>

#include "clipjoin/command_line.h"
#include "clipjoin/report.h"
#include "clipjoin/usage.h"
#include "clipjoin/values.h"
#include "utils/mpeg4_export.h"

namespace clipjoin {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using Values = std::map<std::string, bool>;  // by option: whether a value must follow it

Values Listed(CommandMode mode) {
  CaptureStderr();
  PrintUsage(CommandName(mode), mode, CommandName(mode));
  const std::string usage = GetCapturedStderr();
  const std::regex entry("\n {3,4}(-[^ \n]*)( [a-z])?");
  Values listed;
  for (std::sregex_iterator at(usage.begin(), usage.end(), entry), end; at != end; ++at) {
    listed.emplace((*at)[1], (*at)[2].matched);
  }
  listed["-transparency-mode"] = false;  // without a value, the modes are explained
  if (mode != CommandMode::kMultiplex) listed.erase("-transparency-mode");
  listed.erase("-about");  // it only follows other options
  return listed;
}

Values Accepted(CommandMode mode) {
  Values accepted;
  for (const Option& option : Options()) {
    CaptureStderr();
    const char* const words[] = {CommandName(mode), "one.mov", option.name};
    std::ignore = ParseCommandLine(words, false);
    const std::string said = GetCapturedStderr();
    if (said.starts_with("Unrecognized option")) continue;
    accepted.emplace(option.name, said.find("needs more arguments\n") != std::string::npos);
  }
  for (const char* unlisted : {"-clipjoin", "-clipstak", "-cliptune", "-manual-join"}) {
    accepted.erase(unlisted);
  }
  accepted.erase(mode == CommandMode::kModify ? "-names-from-stdin" : "-name-from-stdin");
  return accepted;
}

TEST(Options, AreThoseOfTheUsageTextAndHaveTheValuesThatItNames) {
  for (const CommandMode mode :
       {CommandMode::kConcatenate, CommandMode::kMultiplex, CommandMode::kModify}) {
    EXPECT_EQ(Accepted(mode), Listed(mode));
  }
}

// The settings are a promise to other exporters.
TEST(ExportSettings, KeepTheirBytes) {
  const auto bytes = utils::ExportSettings();
  boost::crc_32_type sum;
  sum.process_bytes(bytes.data(), bytes.size());
  EXPECT_EQ(sum.checksum(), 3427588868U);
}

// A field may be empty. A fraction ends the text. Fields that are 0 at the start do not count; of
// the others there are at most three, and only the first can be 60 or more. A field has 32 bits.
TEST(Duration, IsSecondsOrHoursMinutesAndSeconds) {
  constexpr std::pair<const char*, double> kDurations[] = {
      {"75", 75},       {"1:10", 70},      {"100.45", 100.45}, {"100:59:59.5", 363599.5},
      {"", 0},          {"61:10", 3670},   {"1.5.5 s", 1.5},   {"2147483648", -0x1p31},
      {"1.", 1},        {"0:75", 75},      {"1:59:59", 7199},  {"4294967297", 1},
      {":::5", 5},      {"01:10.4", 70.4}, {"1:2.5:60", 62.5}, {"0:1:2:3", 3723},
      {"0:99:00", 5940}};
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
      {"2", 2},     {"-1.5", -1.5},    {"1e2", 100},     {"1.5x", 1.5},
      {"1/2", 0.5}, {"-3/4th", -0.75}, {"2/0", HUGE_VAL}};
  for (const auto& [text, number] : kNumbers) EXPECT_EQ(ParseNumber(text), number) << text;
  EXPECT_TRUE(std::isnan(ParseNumber("0/0")));
}

TEST(FixedNumber, IsRoundedToTheNearestAndTiesToEven) {
  const std::map<std::string, toolbox::Fixed> numbers{
      {"1/3", 21845}, {"2/3", 43691}, {"-1", -65536}, {"1/131072", 0}, {"3/131072", 2}};
  for (const auto& [text, number] : numbers) EXPECT_EQ(ParseFixed(text), number) << text;
}

TEST(TransparencyModes, TakeTheirColors) {
  using Colors = std::vector<int>;
  const std::tuple<std::vector<const char*>, int, Colors> rows[] = {
      {{"straight-alpha"}, 0x100, {0, 0, 0}},
      {{"transparent", "255,128,1"}, 0x24, {0xFF00, 0x8000, 0x100}},
      {{"transparent", "1/2x3 more"}, 0x24, {0x100, 0x200, 0x300}},
      {{"transparent16", "65535, 128 ,1"}, 0x24, {65535, 128, 1}},
      // Green and blue are exchanged.
      {{"blend", "1,0,0.5"}, 0x20, {65535, 32767, 0}},
      {{"blend", "0,0.25,1e99"}, 0x20, {0, 65535, 16383}}};
  for (const auto& [words, mode, colors] : rows) {
    Cursor next(words);
    toolbox::RGBColor color;
    EXPECT_EQ(ParseTransparency(next, color), mode);
    EXPECT_EQ((Colors{color.red, color.green, color.blue}), colors) << words.back();
  }
}

}  // namespace
}  // namespace clipjoin
