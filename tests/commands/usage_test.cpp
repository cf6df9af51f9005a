#include "clipjoin/usage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>

#include "clipjoin/option_rows.h"
#include "tests/commands/parsing.h"

namespace clipjoin {
namespace {

constexpr unsigned kJoinAndStack = kClipjoin | kClipstak;

struct Command {
  CommandMode mode;
  unsigned bit;
  const char* name;
};
constexpr Command kCommands[] = {{CommandMode::kConcatenate, kClipjoin, "clipjoin"},
                                 {CommandMode::kMultiplex, kClipstak, "clipstak"},
                                 {CommandMode::kModify, kCliptune, "cliptune"}};

std::string UsageOf(const Command& command) {
  const Redirected err(std::cerr);
  PrintUsage(std::string("../bin/") + command.name, command.mode, command.name);
  return err.Text();
}

Words Lines(const std::string& text) {
  Words lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The lines of a usage text that entries start with, without what they are indented by.
Words Heads(const std::string& usage) {
  static const std::regex entry("^ {3,4}(-.*)$");
  Words heads;
  for (const std::string& line : Lines(usage)) {
    std::smatch found;
    if (std::regex_match(line, found, entry)) heads.push_back(found[1]);
  }
  return heads;
}

TEST(Usage, ListsItsEntriesInOrder) {
  const std::vector<std::pair<unsigned, Words>> groups{
      {kEvery,
       {"-q", "-self-contained", "-no-fast-start", "-no-compressed-header", "-mp4",
        "-remove-output-edit-list", "-chapter-tool-xml filename", "-chapter-track name"}},
      {kClipjoin,
       {"-auto-chapters", "-auto-chapters-merge", "-unique-tracks", "-force-same-tracks"}},
      {kEvery,
       {"-add-chapter name time", "-set-auto-play", "-unset-auto-play", "-set-looping",
        "-unset-looping"}},
      {kCliptune, {"-name-from-stdin", "-save-in-place"}},
      {kJoinAndStack, {"-names-from-stdin"}},
      {kEvery, {"-o filename", "-", "-noresolve"}},
      {kJoinAndStack, {"-use-settings"}},
      {kEvery, {"-no-convert-tags", "-list", "-nolist", "-chaplist", "-nochaplist"}},
      {kClipstak, {"-scale", "-noscale", "-transparency-mode mode [color]", "-placeAt time"}},
      {kEvery,
       {"-sscale",
        "-vscale",
        "-hscale",
        "-rotate degrees",
        "-about X Y",
        "-vtranslate pixels",
        "-htranslate pixels",
        "-resetmatrix",
        "-msscale",
        "-mvscale",
        "-mhscale",
        "-mrotate",
        "-resetmmatrix",
        "-rate f",
        "-timescale scale",
        "-timescale -sameAsTrack trackName",
        "-fix-roundoff-errors",
        "-remove-edit-list",
        "-trimToShortestTrack",
        "-scaleToShortestTrack",
        "-scaleToLongestTrack",
        "-trimToLengthOf name",
        "-scaleToLengthOf name",
        "-trimToLengthOfMovie name",
        "-scaleToLengthOfMovie name",
        "-scaleMovieToLengthOfMovie name",
        "-startAt time",
        "-trimTo duration",
        "-duration duration",
        "-trimBy duration",
        "-scaleTo duration",
        "-scaleMovieTo duration",
        "-track name",
        "-notrack name",
        "-enable name",
        "-disable name",
        "-chapter name",
        "-nochapter name"}},
      {kClipjoin, {"-chapter-name name"}},
  };
  for (const Command& command : kCommands) {
    Words expected;
    for (const auto& [commands, heads] : groups) {
      if ((commands & command.bit) != 0) expected = expected + heads;
    }
    Words heads = Heads(UsageOf(command));
    ASSERT_EQ(heads.size(), expected.size()) << command.name;
    for (std::size_t i = 0; i < heads.size(); ++i) {
      EXPECT_TRUE((heads[i] + ' ').starts_with(expected[i] + ' ')) << heads[i];
    }
  }
}

TEST(Usage, NamesTheOptionsThatTheCommandKnowsAndNoOthers) {
  for (const Command& command : kCommands) {
    std::set<std::string> told, known;
    for (const std::string& head : Heads(UsageOf(command))) {
      told.insert(head.substr(0, head.find(' ')));
    }
    EXPECT_EQ(told.erase("-about"), 1U) << "it only stands behind other options";
    for (const Option& option : Options()) {
      if ((option.commands & command.bit) != 0) known.insert(option.name);
    }
    // Known, but told of under another name or nowhere.
    for (const char* untold : {"-clipjoin", "-clipstak", "-cliptune"}) known.erase(untold);
    known.erase("-manual-join");
    known.erase(command.bit == kCliptune ? "-names-from-stdin" : "-name-from-stdin");
    EXPECT_EQ(told, known) << command.name;
  }
}

TEST(Usage, HoldsTheseLines) {
  const std::vector<std::pair<unsigned, Words>> lines{
      {kEvery,
       {"        When used in conjuction with -self-contained, does not",
        "       time should be of the form hh:mm:ss.fractions.",
        "   -unset-looping   Set movie to play through ince when played",
        "        ~/Desktop/out.mov or ~/Desktop/out.mp4).",
        "    -no-convert-tags  Don't attempt to convert AAC tags.",
        "    Using both -track and -notrack on the same command line produces undefined",
        "    Using both -chapter and -nochapter on the same command line produces undefined"}},
      {kClipjoin,
       {"Usage: ../bin/clipjoin [global options] filename1 [file specific options] [filename2 "
        "[file specific options] ... ]"}},
      {kClipstak,
       {"Usage: ../bin/clipstak [global options] filename1 [file specific options] [filename2 "
        "[file specific options] ... ]"}},
      {kCliptune,
       {"Usage: ../bin/cliptune [options] filename [-o outfileName | -save-in-place]",
        "    -save-in-place   Save the changes to the same file."}},
      {kJoinAndStack,
       {"Global options:", "Global or file specific options:",
        "These options are global if they appear before any filenames and local if they",
        "appear after a filename.",
        "    -use-settings     Use the settings of this movie for the output movie."}},
  };
  const std::vector<std::pair<unsigned, Words>> parts{
      {kEvery,
       {"Be quiet: don't print informational messages\n",
        "Use the named chapter as a chapter track for the movie.\n",
        "Set movie to automatically play when opened\n",
        "Set movie to not automatically play when opened\n",
        "Set movie to loop (play over and over) when played\n",
        "Set playback rate to a fraction f of it's original value.\n"}},
      {kClipjoin, {"\n    -chapter-name name   When used with -auto-chapters"}},
      {kClipstak, {"../bin/clipstak -transparency-mode help\n"}},
  };
  for (const Command& command : kCommands) {
    const std::string usage = UsageOf(command);
    const std::string name = command.name;
    EXPECT_TRUE(usage.starts_with(name + " version 1.2.4 (August 24, 2006)\nType \"man " + name +
                                  "\" or \"man Reelwork\" for more information\nUsage: "));
    EXPECT_TRUE(usage.ends_with(".\n"));
    EXPECT_EQ(usage.find('%'), std::string::npos);
    const Words all = Lines(usage);
    for (const auto& [commands, expected] : lines) {
      for (const std::string& line : expected) {
        EXPECT_EQ(std::ranges::count(all, line), (commands & command.bit) != 0 ? 1 : 0)
            << name << ": " << line;
      }
    }
    for (const auto& [commands, expected] : parts) {
      for (const std::string& part : expected) {
        EXPECT_EQ(usage.find(part) != std::string::npos, (commands & command.bit) != 0)
            << name << ": " << part;
      }
    }
  }
}

TEST(Usage, IsLaidOutInColumns) {
  // In these the column is part of a line that stays as it is.
  const Words uneven{"-save-in-place ", "-unset-looping ", "-chapter-name "};
  const std::regex help(" (?:[A-Z][a-z]|The )");
  constexpr std::size_t kColumn = 18;  // from the option on
  for (const Command& command : kCommands) {
    std::size_t aligned = 0;
    const std::string usage = UsageOf(command);
    for (const std::string& head : Heads(usage)) {
      std::smatch found;
      const bool isUneven = std::ranges::any_of(
          uneven, [&](const std::string& start) { return head.starts_with(start); });
      if (isUneven || !std::regex_search(head, found, help)) continue;
      EXPECT_EQ(found.position() + 1, kColumn) << head;
      ++aligned;
    }
    EXPECT_GT(aligned, 25U);
    for (const std::string& line : Lines(usage)) {
      EXPECT_FALSE(line.ends_with(' ')) << line;
    }
  }
}

}  // namespace
}  // namespace clipjoin
