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
    for (const std::size_t i : {0U, 1U, 3U, 4U, 6U, 7U}) text_ << matrix[i] / 65536.0 << ';';
  }
  void Put(const std::optional<std::string>& text) { text_ << text.value_or("nothing"); }
  void Put(const auto& value) { text_ << value; }

  std::ostringstream text_;
};

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
  MEMBER(scaleToOutput), MEMBER(addedChaptersSeen), MEMBER(outputPath);
  MEMBER(setAutoPlay), MEMBER(unsetAutoPlay), MEMBER(setLooping), MEMBER(unsetLooping);
  MEMBER(removeOutputEditList), MEMBER(namesFromStdin);
#undef MEMBER
  std::ostringstream chapters;
  for (const Chapter& added : output.addedChapters) {
    chapters << added.title << '@' << static_cast<double>(added.start) / added.scale << ';';
  }
  all("addedChapters", chapters.str(), std::string());
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

// A run that ends with a complaint, and the usage of the command behind it.
void ExpectRefused(const Parsed& parsed, const std::string& complaint, const std::string& command) {
  EXPECT_EQ(parsed.Status(), 1);
  ASSERT_TRUE(parsed.said.starts_with(complaint)) << parsed.said;
  const std::string rest = parsed.said.substr(complaint.size());
  EXPECT_TRUE(rest.starts_with(command + " version 1.2.4 (August 24, 2006)\n")) << rest;
}

TEST(Options, ChangeTheirRecordUnderTheCommandsThatKnowThem) {
  for (const Case& row : kCases) {
    SCOPED_TRACE(testing::PrintToString(row.words));
    for (std::size_t mode = 0; mode < kCommands.size(); ++mode) {
      const Words command{"bin/" + kCommands[mode]};
      const Parsed before = Parse(command + row.words + Words{"1", "2"});
      const Parsed between = Parse(command + Words{"1"} + row.words + Words{"2"});
      if ((row.commands >> mode & 1U) == 0) {
        ExpectRefused(before, "Unrecognized option " + row.words[0] + '\n', kCommands[mode]);
        continue;
      }
      ASSERT_EQ(before.said + between.said, "");
      EXPECT_EQ(before.Line().output.mode, static_cast<CommandMode>(mode));
      EXPECT_EQ(Changes(before.File(0)), row.file) << "a global option is for every file";
      EXPECT_EQ(Changes(before.File(1)), row.file);
      EXPECT_EQ(Changes(between.File(0)), row.file) << "one behind a file is for that file alone";
      EXPECT_EQ(Changes(between.File(1)), "");
      EXPECT_EQ(Changes(before.Line().output), row.output);
      EXPECT_EQ(Changes(between.Line().output), row.output);
    }
  }
}

TEST(Options, AreAllTestedHere) {
  // These have tests of their own.
  std::set<std::string> tested{"-clipjoin",
                               "-clipstak",
                               "-cliptune",
                               "-",
                               "-names-from-stdin",
                               "-name-from-stdin",
                               "-trimToLengthOfMovie",
                               "-scaleToLengthOfMovie",
                               "-scaleMovieToLengthOfMovie"};
  for (const Case& row : kCases) tested.insert(row.words.begin(), row.words.end());
  for (const Option& option : Options()) EXPECT_TRUE(tested.contains(option.name)) << option.name;
}

TEST(Options, SayWhenAValueIsMissing) {
  const std::set<std::string> withValues{"-chapter-tool-xml",
                                         "-chapter-track",
                                         "-placeAt",
                                         "-trimToLengthOf",
                                         "-scaleToLengthOf",
                                         "-trimToLengthOfMovie",
                                         "-scaleToLengthOfMovie",
                                         "-scaleMovieToLengthOfMovie",
                                         "-startAt",
                                         "-trimTo",
                                         "-duration",
                                         "-trimBy",
                                         "-scaleTo",
                                         "-scaleMovieTo",
                                         "-chapter",
                                         "-nochapter",
                                         "-track",
                                         "-notrack",
                                         "-enable",
                                         "-disable",
                                         "-sscale",
                                         "-vscale",
                                         "-hscale",
                                         "-vtranslate",
                                         "-htranslate",
                                         "-rotate",
                                         "-msscale",
                                         "-mvscale",
                                         "-mhscale",
                                         "-mrotate",
                                         "-rate",
                                         "-timescale",
                                         "-chapter-name",
                                         "-add-chapter",
                                         "-o"};
  const auto expectMissing = [](const std::string& command, const Words& words) {
    ExpectRefused(Parse(Words{command, "1"} + words),
                  "Option " + words[0] + " needs more arguments\n", command);
  };
  for (const Option& option : Options()) {
    SCOPED_TRACE(option.name);
    for (std::size_t mode = 0; mode < kCommands.size(); ++mode) {
      if ((option.commands >> mode & 1U) == 0) continue;
      if (withValues.contains(option.name)) {
        expectMissing(kCommands[mode], {option.name});
      } else {
        EXPECT_EQ(Parse({kCommands[mode], "1", option.name}).Status(), 0);
      }
    }
  }
  expectMissing("clipjoin", {"-add-chapter", "a"});
  expectMissing("cliptune", {"-timescale", "-sameAsTrack"});
}

TEST(Options, WithAPointCutShortGoOnWithoutIt) {
  const Parsed parsed = Parse({"cliptune", "1", "-sscale", "2", "-about", "10"});
  EXPECT_EQ(parsed.said, "Error: -about requires two arguments\n");
  EXPECT_EQ(Changes(parsed.File(0)), "trackMatrix=2;0;0;2;0;0; ");
}

TEST(Options, WithABadTransparencyModeGoOnWithNone) {
  const Words words{"clipstak",           "1",      "-transparency-mode", "blend", "1,1,1",
                    "-transparency-mode", "opaque", "-placeAt",           "1"};
  const Parsed parsed = Parse(words);
  ASSERT_TRUE(parsed.IsAccepted());
  EXPECT_TRUE(parsed.said.starts_with("Unrecognized transparency mode opaque.\n")) << parsed.said;
  EXPECT_EQ(parsed.File(0).graphicsMode, 0);
  EXPECT_EQ(parsed.File(0).placeAt, 1);
}

TEST(Options, WithABadDurationEndTheRunWithoutUsage) {
  for (const Words& words : {Words{"-trimTo", "1:75"}, {"-add-chapter", "a", "1:75"}}) {
    const Parsed parsed = Parse(Words{"clipjoin", "1"} + words);
    EXPECT_EQ(parsed.Status(), 1);
    EXPECT_TRUE(parsed.said.starts_with("Error processing option " + words[0] +
                                        ": Bad duration syntax: 1:75\nDuration should be "))
        << parsed.said;
    EXPECT_TRUE(parsed.said.ends_with("\n48:00:00        48 hours.\n")) << parsed.said;
  }
}

TEST(Commands, AreChosenByTheProgramsNameAndByOptions) {
  const auto modeOf = [](const Words& words) { return Parse(words).Line().output.mode; };
  EXPECT_EQ(modeOf({"clipstak", "1"}), CommandMode::kMultiplex);
  EXPECT_EQ(modeOf({"/usr/bin/cliptune", "1"}), CommandMode::kModify);
  for (const char* name : {"clipjoin", "Clipstak", "clipstak2", "cliptune/x", ""}) {
    EXPECT_EQ(modeOf({name, "1"}), CommandMode::kConcatenate) << name;
  }
  EXPECT_EQ(modeOf({"cliptune", "-clipjoin", "1"}), CommandMode::kConcatenate);
  EXPECT_EQ(modeOf({"clipjoin", "1", "-clipstak"}), CommandMode::kMultiplex);
  EXPECT_EQ(modeOf({"clipstak", "-cliptune", "-save-in-place", "1"}), CommandMode::kModify);
  EXPECT_STREQ(CommandName(modeOf({"a/program", "-cliptune", "1"})), "cliptune");
}

TEST(Commands, KnowTheirOptionsFromWhereTheyAreChosen) {
  EXPECT_TRUE(Parse({"clipjoin", "-clipstak", "-placeAt", "1", "1"}).IsAccepted());
  EXPECT_TRUE(Parse({"clipjoin", "-unique-tracks", "-clipstak", "-scale", "1"}).IsAccepted());
  ExpectRefused(Parse({"clipjoin", "-placeAt", "1", "-clipstak", "1"}),
                "Unrecognized option -placeAt\n", "clipjoin");
}

TEST(FileNames, StartWithWhatTheGlobalOptionsSayThen) {
  const Parsed parsed = Parse({"clipjoin", "-list", "-sscale", "2", "-track", "a", "1", "-nolist",
                               "-sscale", "2", "-track", "b", "2", "3", "-rate", "2"});
  ASSERT_EQ(parsed.Line().inputs.size(), 3U);
  EXPECT_EQ(parsed.File(0).path, "1");
  EXPECT_EQ(Changes(parsed.File(0)), "includeTracks=a;b; trackMatrix=4;0;0;4;0;0; ");
  EXPECT_EQ(parsed.File(1).path, "2");
  EXPECT_EQ(Changes(parsed.File(1)), "includeTracks=a; listTracks=1 trackMatrix=2;0;0;2;0;0; ");
  EXPECT_EQ(Changes(parsed.File(2)),
            "includeTracks=a; listTracks=1 trackMatrix=2;0;0;2;0;0; rate=2 ");
}

TEST(FileNames, AreAllThatFollowsALoneDash) {
  const Parsed parsed = Parse({"clipjoin", "", "-q", "-", "-q", "-", "--", "-unknown", "-o"});
  ASSERT_EQ(parsed.said, "");
  Words paths;
  for (const auto& input : parsed.Line().inputs) paths.push_back(input.options.path);
  EXPECT_EQ(paths, (Words{"", "-q", "-", "--", "-unknown", "-o"}));
  EXPECT_TRUE(parsed.Line().output.quiet);
  EXPECT_EQ(parsed.Line().output.outputPath, std::nullopt);
}

TEST(FileNames, MustBeThere) {
  for (const std::string& command : kCommands) {
    const Parsed parsed = Parse({command, "-q", "-"});
    EXPECT_EQ(parsed.Status(), 2);
    EXPECT_TRUE(parsed.said.starts_with("No movies found\n" + command + " version "));
  }
}

TEST(NamesFromStandardInput, AreItsLinesWithTheSettingsOfThatMoment) {
  for (const char* option : {"-names-from-stdin", "-name-from-stdin"}) {
    for (const std::string& command : kCommands) {
      const Parsed parsed =
          Parse({command, "-list", option, "-rate", "2"}, false, "a b.mov\n\n -q \r\nlast");
      ASSERT_EQ(parsed.said, "") << command << ' ' << option;
      Words paths;
      for (const auto& input : parsed.Line().inputs) {
        paths.push_back(input.options.path);
        EXPECT_EQ(Changes(input.options), "listTracks=1 ") << "later options are not theirs";
      }
      EXPECT_EQ(paths, (Words{"a b.mov", "", " -q \r", "last"}));
    }
  }
}

TEST(NamesFromStandardInput, TakeTheSettingsOfTheFileNamedBefore) {
  const Parsed parsed = Parse({"clipjoin", "-list", "1", "-rate", "3", "-names-from-stdin", "-rate",
                               "2", "ignored", "-nolist", "-", "-too"},
                              false, "2\n3\n");
  EXPECT_EQ(parsed.said,
            "Ignoring argument ignored because -names-from-stdin was passed\n"
            "Ignoring argument -too because -names-from-stdin was passed\n");
  ASSERT_EQ(parsed.Line().inputs.size(), 3U);
  EXPECT_EQ(Changes(parsed.File(0)), "rate=2 ") << "it stays the one that options change";
  EXPECT_EQ(Changes(parsed.File(1)), "listTracks=1 rate=3 ");
  EXPECT_EQ(Changes(parsed.File(2)), "listTracks=1 rate=3 ");
}

TEST(Quiet, MayBeTheUsersPreference) {
  EXPECT_TRUE(Parse({"clipjoin", "1"}, true).Line().output.quiet);
  EXPECT_FALSE(Parse({"clipjoin", "1"}, false).Line().output.quiet);
}

TEST(SavingInPlace, IsAskedForByTheFirstFile) {
  EXPECT_TRUE(Parse({"cliptune", "1", "-save-in-place", "2"}).Line().SavesInPlace());
  EXPECT_FALSE(Parse({"cliptune", "1", "2", "-save-in-place"}).Line().SavesInPlace());
  EXPECT_FALSE(Parse({"cliptune", "-save-in-place", "-clipjoin", "1"}).Line().SavesInPlace());
}

class LengthOfMovie : public toolbox::InFolder {};

TEST_F(LengthOfMovie, IsReadAtOnceWithoutTheGlobalSettings) {
  using namespace toolbox;  // the bytes of a movie
  const std::string movie =
      Store("3 s.mov",
            Join(Atom("mdat", Zeros(60)),
                 Atom("moov", MovieHeaderAtom(), TrackAtom({.table = PlainTable(6, 300, 10, 8)}))))
          .native();
  const std::string missing = (folder_ / "none.mov").native();
  const std::vector<std::pair<std::string, std::string>> modes{
      {"-trimToLengthOfMovie", "3"},
      {"-scaleToLengthOfMovie", "7"},
      {"-scaleMovieToLengthOfMovie", "9"},
  };
  for (const auto& [option, mode] : modes) {
    const Parsed parsed = Parse({"clipjoin", "-noresolve", "1", "-trimBy", "2", option, movie});
    EXPECT_EQ(parsed.said, "");
    EXPECT_EQ(Changes(parsed.File(0)), "lengthMode=" + mode + " lengthTarget=3 openFlags=6 ");

    const Parsed failed = Parse({"clipjoin", "1", "-trimBy", "2", option, missing, "-list"});
    EXPECT_TRUE(failed.said.ends_with("Error getting movie " + option + '\n')) << failed.said;
    EXPECT_EQ(Changes(failed.File(0)), "listTracks=1 lengthMode=5 lengthTarget=2 ")
        << "the settings stay, and parsing goes on";
  }
}

}  // namespace
}  // namespace clipjoin
