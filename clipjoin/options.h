// What the command line asks for: settings of the whole run and settings of each input.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "chapter/chapter.h"
#include "toolbox/toolbox.h"

namespace clipjoin {

enum class CommandMode : std::uint8_t {
  kConcatenate = 0,  // clipjoin: end to end
  kMultiplex = 1,  // clipstak: in parallel
  kModify = 2,  // cliptune: one movie
};

// How the length of an input is changed: what is done, and where the length comes from. Bits.
enum LengthMode : std::uint8_t {
  kKeepLength = 0,
  kChangeLength = 0x01,
  kTrimTo = 0x02,
  kTrimBy = 0x04,
  kScaleTracks = 0x06,
  kScaleMovie = 0x08,
  kLengthOperation = 0x0E,
  kLongestTrack = 0x10,
  kShortestTrack = 0x20,
  kNamedTrack = 0x30,
  kLengthSource = 0x30,
};

// The settings of one input: a copy of the global ones, changed by the options behind its name.
struct FileOptions {
  std::string path;  // as given
  std::string chapterName;
  std::set<std::string> includeTracks, excludeTracks;
  std::set<std::string> includeChapters, excludeChapters;
  std::set<std::string> enableTracks, disableTracks;
  bool listTracks = false, listChapters = false;
  unsigned lengthMode = kKeepLength;  // bits of LengthMode
  double lengthTarget = 0;  // seconds
  std::string lengthReferenceTrack;
  double startAt = 0, placeAt = 0;  // seconds
  std::int16_t openFlags = toolbox::newMovieDontAskUnresolvedDataRefs;
  bool resetTrackMatrices = false, resetMovieMatrix = false;
  toolbox::MatrixRecord trackMatrix = Identity(), movieMatrix = Identity();
  double rate = 1.0;
  std::int32_t graphicsMode = 0;  // a graphics transfer mode; 0: none
  toolbox::RGBColor opColor;
  bool saveInPlace = false;
  bool useSettings = false;
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

struct OutputOptions {
  bool quiet = false;
  bool selfContained = false;
  std::uint32_t flattenFlags =
      toolbox::flattenCompressMovieResource | toolbox::flattenForceMovieResourceBeforeMovieData;
  bool uniqueTracks = false, forceSameTracks = false, manualJoin = false;
  bool mpeg4 = false;
  std::optional<std::string> chapterToolXml;  // path as given
  std::optional<std::string> chapterTrackName;
  bool autoChapters = false, autoChaptersMerge = false;
  bool scaleToOutput = false;
  bool addedChaptersSeen = false;
  std::vector<chapter::Chapter> addedChapters;
  std::optional<std::string> outputPath;  // as given
  bool setAutoPlay = false, unsetAutoPlay = false, setLooping = false, unsetLooping = false;
  bool removeOutputEditList = false;
  bool namesFromStdin = false;
};

}  // namespace clipjoin
