// What the command line asks for: the settings of the whole run and the settings of each input.
//
// The four command folders share this header and clipjoin/report.h.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "toolbox/toolbox.h"

namespace clipjoin {

// The values are bit numbers in the tables of options and of usage entries.
enum class CommandMode : std::uint8_t {
  kConcatenate = 0,  // clipjoin: one input after the other
  kMultiplex = 1,  // clipstak: inputs at the same time
  kModify = 2,  // cliptune: one input
};

// The name of the command in messages.
constexpr const char* CommandName(CommandMode mode) {
  constexpr const char* kNames[] = {"clipjoin", "clipstak", "cliptune"};
  return kNames[static_cast<std::size_t>(mode)];
}

// How the length of an input is changed. The low four bits say what is done, the next two where the
// new length comes from. The values must not change: the tests of the command line compare them.
enum LengthMode : std::uint8_t {
  kKeepLength = 0,
  kChangeLength = 0x01,
  kTrimTo = 0x02,
  kTrimBy = 0x04,
  kScaleTracks = 0x06,
  kScaleMovie = 0x08,
  kLengthOperation = 0x0E,  // mask
  kLongestTrack = 0x10,
  kShortestTrack = 0x20,
  kNamedTrack = 0x30,
  kLengthSource = 0x30,  // mask; 0: FileOptions::lengthTarget
};

// One chapter of a movie.
struct Chapter {
  std::int32_t scale = 600;  // units per second; > 0
  std::int64_t start = 0;  // in units of `scale`
  std::int64_t duration = 0;  // in units of `scale`; 0 until a chapter track is built
  std::string title;  // UTF-8
};

// The settings of one input. They start as a copy of the global settings; the options after the
// file name change them.
struct FileOptions {
  std::string path;  // as given
  bool quiet = false;  // no warnings; a copy of OutputOptions::quiet
  std::string chapterName;  // of the automatic chapter; empty: the movie's name or the file name
  // Names. If any are included, only those are kept. Excluded ones are never kept.
  std::set<std::string> includeTracks, excludeTracks;
  std::set<std::string> includeChapters, excludeChapters;
  // Disabling is done last, so a track in both sets is disabled.
  std::set<std::string> enableTracks, disableTracks;
  bool listTracks = false, listChapters = false;
  unsigned lengthMode = kKeepLength;  // bits of LengthMode
  double lengthTarget = 0;  // seconds
  std::string lengthReferenceTrack;
  double startAt = 0, placeAt = 0;  // seconds
  std::int16_t openFlags = toolbox::newMovieDontAskUnresolvedDataRefs;
  // The matrices of the options are applied after those of the movie or, with reset, instead of
  // them.
  bool resetTrackMatrices = false, resetMovieMatrix = false;
  toolbox::MatrixRecord trackMatrix = Identity(), movieMatrix = Identity();
  double rate = 1.0;  // 2: twice as fast
  std::int32_t graphicsMode = 0;  // a graphics transfer mode; 0: none
  toolbox::RGBColor opColor;
  bool saveInPlace = false;
  bool useSettings = false;  // the output takes the settings of this movie
  bool noTagConversion = false;
  std::int32_t timeScale = 0;  // units per second; 0: the movie's own
  std::string timeScaleReferenceTrack;
  bool fixRoundoffErrors = false;
  bool removeEditList = false;

 private:
  static toolbox::MatrixRecord Identity() {
    toolbox::MatrixRecord matrix;
    toolbox::SetIdentityMatrix(&matrix);
    return matrix;
  }
};

// The settings of the whole run. Their options may be anywhere on the command line.
struct OutputOptions {
  CommandMode mode = CommandMode::kConcatenate;
  bool quiet = false;
  bool selfContained = false;
  std::uint32_t flattenFlags =
      toolbox::flattenCompressMovieResource | toolbox::flattenForceMovieResourceBeforeMovieData;
  // How tracks are joined. If several are set, forceSameTracks overrides uniqueTracks, and both
  // override manualJoin.
  bool uniqueTracks = false, forceSameTracks = false, manualJoin = false;
  bool mpeg4 = false;
  std::optional<std::string> chapterToolXml;  // path as given
  std::optional<std::string> chapterTrackName;
  bool autoChapters = false, autoChaptersMerge = false;  // the second implies the first
  bool scaleToOutput = false;  // clipstak: later inputs end where the output ends
  bool addedChaptersSeen = false;
  std::vector<Chapter> addedChapters;  // in command-line order
  std::optional<std::string> outputPath;  // as given; none: a file on the desktop
  // Setting a flag wins over unsetting it.
  bool setAutoPlay = false, unsetAutoPlay = false, setLooping = false, unsetLooping = false;
  bool removeOutputEditList = false;
  bool namesFromStdin = false;
};

}  // namespace clipjoin
