#include "clipjoin/option_rows.h"

#include <gtest/gtest.h>

#include <boost/crc.hpp>
#include <map>
#include <regex>

#include "clipjoin/command_line.h"
#include "clipjoin/usage.h"
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

}  // namespace
}  // namespace clipjoin
