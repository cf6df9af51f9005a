#include "clipjoin/command_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "clipjoin/option_rows.h"
#include "tests/commands/parsing.h"
#include "tests/toolbox/bytes.h"

namespace clipjoin {
namespace {

const Words kCommands{"clipjoin", "clipstak", "cliptune"};  // by CommandMode

// The members that are not what a fresh record holds, as "name=value " each.
class Differences {
 public:
  template <class Value>
  Differences& operator()(const char* name, const Value& value, const Value& fresh) {
    if (value == fresh) return *this;
    text_ << name << '=';
    Put(value);
    text_ << ' ';
    return *this;
  }
  std::string Text() const { return text_.str(); }

 private:
  void Put(const std::set<std::string>& names) {
    for (const std::string& name : names) text_ << name << ';';
  }
  void Put(const toolbox::MatrixRecord& matrix) {
    for (const std::size_t i : {0, 1, 3, 4, 6, 7}) text_ << matrix[i] / 65536.0 << ';';
  }
  void Put(const std::vector<chapter::Chapter>& chapters) {
    for (const auto& added : chapters) {
      text_ << added.title << '@' << static_cast<double>(added.start) / added.scale << ';';
    }
  }
  void Put(const std::optional<std::string>& text) { text_ << text.value_or("nothing"); }
  void Put(const auto& value) { text_ << value; }

  std::ostringstream text_;
};

bool operator==(const chapter::Chapter& a, const chapter::Chapter& b) {
  return std::tie(a.scale, a.start, a.duration, a.title) ==
         std::tie(b.scale, b.start, b.duration, b.title);
}

std::string Changes(const FileOptions& file) {
  const FileOptions fresh;
  Differences all;
#define MEMBER(name) all(#name, file.name, fresh.name)
  MEMBER(chapterName), MEMBER(includeTracks), MEMBER(excludeTracks), MEMBER(includeChapters);
  MEMBER(excludeChapters), MEMBER(enableTracks), MEMBER(disableTracks), MEMBER(listTracks);
  MEMBER(listChapters), MEMBER(lengthMode), MEMBER(lengthTarget), MEMBER(lengthReferenceTrack);
  MEMBER(startAt), MEMBER(placeAt), MEMBER(openFlags), MEMBER(resetTrackMatrices);
  MEMBER(resetMovieMatrix), MEMBER(trackMatrix), MEMBER(movieMatrix), MEMBER(rate);
  MEMBER(graphicsMode), MEMBER(opColor.red), MEMBER(opColor.green), MEMBER(opColor.blue);
  MEMBER(saveInPlace), MEMBER(useSettings), MEMBER(noTagConversion), MEMBER(timeScale);
  MEMBER(timeScaleReferenceTrack), MEMBER(fixRoundoffErrors), MEMBER(removeEditList);
#undef MEMBER
  return all.Text();
}

std::string Changes(const OutputOptions& output) {
  const OutputOptions fresh;
  Differences all;
#define MEMBER(name) all(#name, output.name, fresh.name)
  MEMBER(quiet), MEMBER(selfContained), MEMBER(flattenFlags), MEMBER(uniqueTracks);
  MEMBER(forceSameTracks), MEMBER(manualJoin), MEMBER(mpeg4), MEMBER(chapterToolXml);
  MEMBER(chapterTrackName), MEMBER(autoChapters), MEMBER(autoChaptersMerge);
  MEMBER(scaleToOutput), MEMBER(addedChaptersSeen), MEMBER(addedChapters), MEMBER(outputPath);
  MEMBER(setAutoPlay), MEMBER(unsetAutoPlay), MEMBER(setLooping), MEMBER(unsetLooping);
  MEMBER(removeOutputEditList), MEMBER(namesFromStdin);
#undef MEMBER
  return all.Text();
}

// What an option does: to the file named last or, before any, to all files; and to the output.
struct Case {
  unsigned commands;
  Words words;
  std::string file, output;
};

const std::vector<Case> kCases{
    {kEvery, {"-q"}, "", "quiet=1 "},
    {kEvery, {"-self-contained"}, "", "selfContained=1 "},
    {kEvery, {"-no-fast-start"}, "", "flattenFlags=32 "},
    {kEvery, {"-no-compressed-header"}, "", "flattenFlags=64 "},
    {kClipjoin, {"-unique-tracks"}, "", "uniqueTracks=1 "},
    {kClipjoin, {"-force-same-tracks"}, "", "forceSameTracks=1 "},
    {kClipjoin, {"-manual-join"}, "", "manualJoin=1 "},
    {kEvery, {"-mp4"}, "", "mpeg4=1 "},
    {kEvery, {"-chapter-tool-xml", "a.xml"}, "", "chapterToolXml=a.xml "},
    {kEvery, {"-chapter-track", "a"}, "", "chapterTrackName=a "},
    {kClipjoin, {"-auto-chapters"}, "", "autoChapters=1 "},
    {kClipjoin, {"-auto-chapters-merge"}, "", "autoChapters=1 autoChaptersMerge=1 "},
    {kClipstak, {"-scale"}, "", "scaleToOutput=1 "},
    {kClipstak, {"-scale", "-noscale"}, "", ""},
    {kClipstak, {"-placeAt", "1:10.5"}, "placeAt=70.5 ", ""},
    {kEvery, {"-trimToShortestTrack"}, "lengthMode=35 ", ""},
    {kEvery, {"-scaleToShortestTrack"}, "lengthMode=39 ", ""},
    {kEvery, {"-scaleToLongestTrack"}, "lengthMode=23 ", ""},
    {kEvery, {"-trimToLengthOf", "a"}, "lengthMode=51 lengthReferenceTrack=a ", ""},
    {kEvery, {"-scaleToLengthOf", "a"}, "lengthMode=55 lengthReferenceTrack=a ", ""},
    {kEvery, {"-startAt", "2.5"}, "startAt=2.5 ", ""},
    {kEvery, {"-trimTo", "10"}, "lengthMode=3 lengthTarget=10 ", ""},
    {kEvery, {"-duration", "10"}, "lengthMode=3 lengthTarget=10 ", ""},
    {kEvery, {"-trimBy", "1:10"}, "lengthMode=5 lengthTarget=70 ", ""},
    {kEvery, {"-scaleTo", "10"}, "lengthMode=7 lengthTarget=10 ", ""},
    {kEvery, {"-scaleMovieTo", "10"}, "lengthMode=9 lengthTarget=10 ", ""},
    {kEvery, {"-trimTo", "10", "-trimBy", "2"}, "lengthMode=5 lengthTarget=2 ", ""},
    {kEvery, {"-chapter", "a"}, "includeChapters=a; ", ""},
    {kEvery, {"-nochapter", "a"}, "excludeChapters=a; ", ""},
    {kEvery, {"-chaplist"}, "listChapters=1 ", ""},
    {kEvery, {"-chaplist", "-nochaplist"}, "", ""},
    {kEvery, {"-track", "b", "-track", "a", "-track", "b"}, "includeTracks=a;b; ", ""},
    {kEvery, {"-notrack", "-q"}, "excludeTracks=-q; ", ""},
    {kEvery, {"-enable", "a"}, "enableTracks=a; ", ""},
    {kEvery, {"-disable", ""}, "disableTracks=; ", ""},
    {kEvery, {"-list"}, "listTracks=1 ", ""},
    {kEvery, {"-list", "-nolist"}, "", ""},
    {kEvery, {"-noresolve"}, "openFlags=6 ", ""},
    {kClipjoin | kClipstak, {"-use-settings"}, "useSettings=1 ", ""},
    {kEvery, {"-no-convert-tags"}, "noTagConversion=1 ", ""},
    {kEvery, {"-sscale", "2"}, "trackMatrix=2;0;0;2;0;0; ", ""},
    {kEvery, {"-sscale", "2", "-sscale", "2"}, "trackMatrix=4;0;0;4;0;0; ", ""},
    {kEvery, {"-sscale", "2", "-about", "10", "1"}, "trackMatrix=2;0;0;2;-10;-1; ", ""},
    {kEvery, {"-vscale", "1/2", "-about", "8", "4"}, "trackMatrix=1;0;0;0.5;0;2; ", ""},
    {kEvery, {"-hscale", "1/2", "-about", "8", "4"}, "trackMatrix=0.5;0;0;1;4;0; ", ""},
    {kEvery, {"-vtranslate", "-3"}, "trackMatrix=1;0;0;1;0;-3; ", ""},
    {kEvery, {"-htranslate", "3.5"}, "trackMatrix=1;0;0;1;3.5;0; ", ""},
    {kEvery, {"-htranslate", "3", "-sscale", "2"}, "trackMatrix=2;0;0;2;6;0; ", ""},
    {kEvery, {"-sscale", "2", "-htranslate", "3"}, "trackMatrix=2;0;0;2;3;0; ", ""},
    {kEvery, {"-rotate", "90", "-about", "10", "20"}, "trackMatrix=0;1;-1;0;30;10; ", ""},
    {kEvery, {"-msscale", "2", "-about", "3", "4"}, "movieMatrix=2;0;0;2;-3;-4; ", ""},
    {kEvery, {"-mvscale", "2"}, "movieMatrix=1;0;0;2;0;0; ", ""},
    {kEvery, {"-mhscale", "2"}, "movieMatrix=2;0;0;1;0;0; ", ""},
    {kEvery, {"-mrotate", "180", "-about", "1", "2"}, "movieMatrix=-1;0;0;-1;2;4; ", ""},
    {kEvery, {"-resetmatrix"}, "resetTrackMatrices=1 ", ""},
    {kEvery, {"-resetmmatrix"}, "resetMovieMatrix=1 ", ""},
    {kEvery, {"-rate", "1/2"}, "rate=0.5 ", ""},
    {kEvery, {"-timescale", "90000Hz"}, "timeScale=90000 ", ""},
    {kEvery, {"-timescale", "9", "-timescale", "abc"}, "", ""},
    {kEvery,
     {"-timescale", "9", "-timescale", "-sameAsTrack", "a"},
     "timeScaleReferenceTrack=a ",
     ""},
    {kClipstak,
     {"-transparency-mode", "transparent", "1,2,3"},
     "graphicsMode=36 opColor.red=256 opColor.green=512 opColor.blue=768 ",
     ""},
    {kClipjoin, {"-chapter-name", "a"}, "chapterName=a ", ""},
    {kEvery,
     {"-add-chapter", "b", "1:01", "-add-chapter", "a", "0.5"},
     "",
     "addedChaptersSeen=1 addedChapters=b@61;a@0.5; "},
    {kEvery, {"-o", "a.mov", "-o", "-q"}, "", "outputPath=-q "},
    {kCliptune, {"-save-in-place"}, "saveInPlace=1 ", ""},
    {kEvery, {"-set-auto-play"}, "", "setAutoPlay=1 "},
    {kEvery, {"-unset-auto-play"}, "", "unsetAutoPlay=1 "},
    {kEvery, {"-set-looping"}, "", "setLooping=1 "},
    {kEvery, {"-unset-looping"}, "", "unsetLooping=1 "},
    {kEvery, {"-fix-roundoff-errors"}, "fixRoundoffErrors=1 ", ""},
    {kEvery, {"-remove-edit-list"}, "removeEditList=1 ", ""},
    {kEvery, {"-remove-output-edit-list"}, "", "removeOutputEditList=1 "},
};

bool StartsWithUsage(const std::string& text, const std::string& command) {
  return text.starts_with(command + " version 1.2.4 (August 24, 2006)\n");
}

class EveryOption : public testing::TestWithParam<Case> {};

TEST_P(EveryOption, IsTakenByTheCommandsThatKnowIt) {
  const Case& row = GetParam();
  for (std::size_t mode = 0; mode < kCommands.size(); ++mode) {
    const Words command{"bin/" + kCommands[mode]};
    const Parsed before = Parse(command + row.words + Words{"1", "2"});
    const Parsed between = Parse(command + Words{"1"} + row.words + Words{"2"});
    if ((row.commands >> mode & 1U) == 0) {
      const std::string complaint = "Unrecognized option " + row.words[0] + '\n';
      EXPECT_EQ(before.Status(), 1);
      ASSERT_TRUE(before.said.starts_with(complaint)) << before.said;
      EXPECT_TRUE(StartsWithUsage(before.said.substr(complaint.size()), kCommands[mode]));
      continue;
    }
    ASSERT_EQ(before.said + between.said, "");
    EXPECT_EQ(before.Line().mode, static_cast<CommandMode>(mode));
    EXPECT_EQ(Changes(before.File(0)), row.file) << "a global option is for every file";
    EXPECT_EQ(Changes(before.File(1)), row.file);
    EXPECT_EQ(Changes(between.File(0)), row.file) << "one behind a file is for that file alone";
    EXPECT_EQ(Changes(between.File(1)), "");
    EXPECT_EQ(Changes(before.Line().output), row.output);
    EXPECT_EQ(Changes(between.Line().output), row.output);
  }
}

TEST_P(EveryOption, SaysSoWhenAValueIsMissing) {
  Words words = GetParam().words;
  const auto isOption = [](const std::string& word) {
    return std::ranges::find(Options(), word, &Option::name) != Options().end();
  };
  // The last option of the row, which has its last value taken away.
  const auto start = std::find_if(words.rbegin(), words.rend(), [&](const std::string& word) {
    return isOption(word) && &word != &words.back();
  });
  const bool explainsItself = words[0] == "-transparency-mode";
  if (start == words.rend() || isOption(words[0] == "-o" ? "" : words.back())) return;
  if (explainsItself || std::ranges::find(words, "-about") != words.end()) return;
  const std::string option = *start;
  words.pop_back();
  const std::size_t mode = (GetParam().commands & kClipjoin) != 0 ? 0
                           : (GetParam().commands & kClipstak) != 0 ? 1 : 2;
  const Parsed parsed = Parse(Words{kCommands[mode], "1"} + words);
  const std::string complaint = "Option " + option + " needs more arguments\n";
  EXPECT_EQ(parsed.Status(), 1);
  ASSERT_TRUE(parsed.said.starts_with(complaint)) << parsed.said;
  EXPECT_TRUE(StartsWithUsage(parsed.said.substr(complaint.size()), kCommands[mode]));
}
