#include "clipjoin/option_rows.h"

#include <cstdlib>
#include <iostream>
#include <string>

#include "clipjoin/values.h"

namespace clipjoin {
namespace {

// Most options set one member, of the current file options or of the output options: to a value,
// to the next argument, or to a duration; or they add the next argument to a set.
template <auto kMember, auto kValue>
void SetFile(const char*, Cursor&, Parser& parser) {
  parser.Current().*kMember = kValue;
}
template <auto kMember, auto kValue>
void SetOutput(const char*, Cursor&, Parser& parser) {
  parser.line.output.*kMember = kValue;
}
template <auto kMember>
void TakeFile(const char*, Cursor& next, Parser& parser) {
  parser.Current().*kMember = next();
}
template <auto kMember>
void TakeOutput(const char*, Cursor& next, Parser& parser) {
  parser.line.output.*kMember = next();
}
template <auto kSet>
void AddTo(const char*, Cursor& next, Parser& parser) {
  (parser.Current().*kSet).insert(next());
}
template <auto kMember>
void TakeDuration(const char*, Cursor& next, Parser& parser) {
  parser.Current().*kMember = ParseDuration(next());
}

template <CommandMode kMode>
void SetMode(const char*, Cursor&, Parser& parser) {
  parser.line.output.mode = kMode;
}

template <std::uint32_t kFlag>
void ClearFlattenFlag(const char*, Cursor&, Parser& parser) {
  parser.line.output.flattenFlags &= ~kFlag;
}

// Options that change the length. The new length is a value, the length of a named track, that of
// the shortest or longest track, or that of another movie. A later one of these replaces an earlier
// one.
template <unsigned kOperation>
void LengthGiven(const char*, Cursor& next, Parser& parser) {
  const double target = ParseDuration(next());
  parser.Current().lengthMode = kChangeLength | kOperation;
  parser.Current().lengthTarget = target;
}
template <unsigned kOperation>
void LengthOfTrack(const char*, Cursor& next, Parser& parser) {
  parser.Current().lengthReferenceTrack = next();
  parser.Current().lengthMode = kChangeLength | kOperation | kNamedTrack;
}
template <unsigned kBits>
void LengthOfTracks(const char*, Cursor&, Parser& parser) {
  parser.Current().lengthMode = kChangeLength | kBits;
}
template <unsigned kOperation>
void LengthOfMovie(const char* name, Cursor& next, Parser& parser) {
  FileOptions settings;
  settings.path = next();
  input::InputMovie other(settings);
  const toolbox::Movie movie = other.Open();
  if (!other.IsOpen()) {
    // The option and not the file: scripts look for this text.
    std::cerr << "Error getting movie " << name << '\n';
    return;
  }
  parser.Current().lengthMode = kChangeLength | kOperation;
  parser.Current().lengthTarget = static_cast<double>(toolbox::GetMovieDuration(movie)) /
                                  static_cast<double>(toolbox::GetMovieTimeScale(movie));
}

// Options that change a matrix do so at once, so several of them add up in command-line order.
template <auto kMatrix, bool kHorizontal, bool kVertical>
void Scale(const char*, Cursor& next, Parser& parser) {
  const Factor factor = ParseFactor(next);
  toolbox::ScaleMatrix(&(parser.Current().*kMatrix), kHorizontal ? factor.value : toolbox::fixedOne,
                       kVertical ? factor.value : toolbox::fixedOne, factor.aboutX, factor.aboutY);
}
template <auto kMatrix>
void Rotate(const char*, Cursor& next, Parser& parser) {
  const Factor angle = ParseFactor(next);
  toolbox::RotateMatrix(&(parser.Current().*kMatrix), angle.value, angle.aboutX, angle.aboutY);
}
template <bool kHorizontal>
void Translate(const char*, Cursor& next, Parser& parser) {
  const toolbox::Fixed distance = ParseFixed(next());
  toolbox::TranslateMatrix(&parser.Current().trackMatrix, kHorizontal ? distance : 0,
                           kHorizontal ? 0 : distance);
}

void SetTimeScale(const char*, Cursor& next, Parser& parser) {
  FileOptions& options = parser.Current();
  if (next.Takes("-sameAsTrack")) {
    options.timeScaleReferenceTrack = next();
    options.timeScale = 0;
  } else {
    options.timeScale = static_cast<std::int32_t>(std::atol(next()));
  }
}

void SetTransparency(const char*, Cursor& next, Parser& parser) {
  FileOptions& options = parser.Current();
  options.graphicsMode = ParseTransparency(next, options.opColor);
}

void AddChapter(const char*, Cursor& next, Parser& parser) {
  Chapter added;
  added.title = next();
  added.start = static_cast<std::int64_t>(ParseDuration(next()) * added.scale);
  parser.line.output.addedChapters.push_back(added);
  parser.line.output.addedChaptersSeen = true;
}

void AutoChaptersMerge(const char*, Cursor&, Parser& parser) {
  parser.line.output.autoChapters = true;
  parser.line.output.autoChaptersMerge = true;
}

// Reads file names until standard input ends. The current settings do not move to these inputs.
void ReadNames(const char*, Cursor&, Parser& parser) {
  const FileOptions settings = parser.Current();
  for (std::string name; std::getline(std::cin, name);) parser.AddInput(settings, name);
  parser.line.output.namesFromStdin = true;
}

void EndOptions(const char*, Cursor&, Parser& parser) { parser.optionsAllowed = false; }

using F = FileOptions;
using O = OutputOptions;

constexpr Option kOptions[] = {
    {"-clipjoin", kEvery, SetMode<CommandMode::kConcatenate>},
    {"-clipstak", kEvery, SetMode<CommandMode::kMultiplex>},
    {"-cliptune", kEvery, SetMode<CommandMode::kModify>},
    {"-q", kEvery, SetOutput<&O::quiet, true>},
    {"-self-contained", kEvery, SetOutput<&O::selfContained, true>},
    {"-no-fast-start", kEvery, ClearFlattenFlag<toolbox::flattenForceMovieResourceBeforeMovieData>},
    {"-no-compressed-header", kEvery, ClearFlattenFlag<toolbox::flattenCompressMovieResource>},
    {"-unique-tracks", kClipjoin, SetOutput<&O::uniqueTracks, true>},
    {"-force-same-tracks", kClipjoin, SetOutput<&O::forceSameTracks, true>},
    {"-manual-join", kClipjoin, SetOutput<&O::manualJoin, true>},
    {"-mp4", kEvery, SetOutput<&O::mpeg4, true>},
    {"-chapter-tool-xml", kEvery, TakeOutput<&O::chapterToolXml>},
    {"-names-from-stdin", kEvery, ReadNames},
    {"-name-from-stdin", kEvery, ReadNames},
    {"-chapter-track", kEvery, TakeOutput<&O::chapterTrackName>},
    {"-auto-chapters", kClipjoin, SetOutput<&O::autoChapters, true>},
    {"-auto-chapters-merge", kClipjoin, AutoChaptersMerge},
    {"-scale", kClipstak, SetOutput<&O::scaleToOutput, true>},
    {"-noscale", kClipstak, SetOutput<&O::scaleToOutput, false>},
    {"-placeAt", kClipstak, TakeDuration<&F::placeAt>},
    {"-trimToShortestTrack", kEvery, LengthOfTracks<kTrimTo | kShortestTrack>},
    {"-scaleToShortestTrack", kEvery, LengthOfTracks<kScaleTracks | kShortestTrack>},
    {"-scaleToLongestTrack", kEvery, LengthOfTracks<kScaleTracks | kLongestTrack>},
    {"-trimToLengthOf", kEvery, LengthOfTrack<kTrimTo>},
    {"-scaleToLengthOf", kEvery, LengthOfTrack<kScaleTracks>},
    {"-trimToLengthOfMovie", kEvery, LengthOfMovie<kTrimTo>},
    {"-scaleToLengthOfMovie", kEvery, LengthOfMovie<kScaleTracks>},
    {"-scaleMovieToLengthOfMovie", kEvery, LengthOfMovie<kScaleMovie>},
    {"-startAt", kEvery, TakeDuration<&F::startAt>},
    {"-trimTo", kEvery, LengthGiven<kTrimTo>},
    {"-duration", kEvery, LengthGiven<kTrimTo>},
    {"-trimBy", kEvery, LengthGiven<kTrimBy>},
    {"-scaleTo", kEvery, LengthGiven<kScaleTracks>},
    {"-scaleMovieTo", kEvery, LengthGiven<kScaleMovie>},
    {"-chapter", kEvery, AddTo<&F::includeChapters>},
    {"-nochapter", kEvery, AddTo<&F::excludeChapters>},
    {"-chaplist", kEvery, SetFile<&F::listChapters, true>},
    {"-nochaplist", kEvery, SetFile<&F::listChapters, false>},
    {"-track", kEvery, AddTo<&F::includeTracks>},
    {"-notrack", kEvery, AddTo<&F::excludeTracks>},
    {"-enable", kEvery, AddTo<&F::enableTracks>},
    {"-disable", kEvery, AddTo<&F::disableTracks>},
    {"-list", kEvery, SetFile<&F::listTracks, true>},
    {"-nolist", kEvery, SetFile<&F::listTracks, false>},
    {"-noresolve", kEvery,
     [](const char*, Cursor&, Parser& parser) {
       parser.Current().openFlags |= toolbox::newMovieDontResolveDataRefs;
     }},
    {"-use-settings", kClipjoin | kClipstak, SetFile<&F::useSettings, true>},
    {"-no-convert-tags", kEvery, SetFile<&F::noTagConversion, true>},
    {"-sscale", kEvery, Scale<&F::trackMatrix, true, true>},
    {"-vscale", kEvery, Scale<&F::trackMatrix, false, true>},
    {"-hscale", kEvery, Scale<&F::trackMatrix, true, false>},
    {"-vtranslate", kEvery, Translate<false>},
    {"-htranslate", kEvery, Translate<true>},
    {"-rotate", kEvery, Rotate<&F::trackMatrix>},
    {"-msscale", kEvery, Scale<&F::movieMatrix, true, true>},
    {"-mvscale", kEvery, Scale<&F::movieMatrix, false, true>},
    {"-mhscale", kEvery, Scale<&F::movieMatrix, true, false>},
    {"-mrotate", kEvery, Rotate<&F::movieMatrix>},
    {"-resetmatrix", kEvery, SetFile<&F::resetTrackMatrices, true>},
    {"-resetmmatrix", kEvery, SetFile<&F::resetMovieMatrix, true>},
    {"-rate", kEvery,
     [](const char*, Cursor& next, Parser& parser) {
       parser.Current().rate = ParseNumber(next());
     }},
    {"-timescale", kEvery, SetTimeScale},
    {"-transparency-mode", kClipstak, SetTransparency},
    {"-chapter-name", kClipjoin, TakeFile<&F::chapterName>},
    {"-add-chapter", kEvery, AddChapter},
    {"-o", kEvery, TakeOutput<&O::outputPath>},
    {"-save-in-place", kCliptune, SetFile<&F::saveInPlace, true>},
    {"-set-auto-play", kEvery, SetOutput<&O::setAutoPlay, true>},
    {"-unset-auto-play", kEvery, SetOutput<&O::unsetAutoPlay, true>},
    {"-set-looping", kEvery, SetOutput<&O::setLooping, true>},
    {"-unset-looping", kEvery, SetOutput<&O::unsetLooping, true>},
    {"-fix-roundoff-errors", kEvery, SetFile<&F::fixRoundoffErrors, true>},
    {"-remove-edit-list", kEvery, SetFile<&F::removeEditList, true>},
    {"-remove-output-edit-list", kEvery, SetOutput<&O::removeOutputEditList, true>},
    {"-", kEvery, EndOptions},
};

}  // namespace

void Parser::AddInput(const FileOptions& settings, const std::string& path) {
  line.inputs.emplace_back(settings).options.path = path;
}

std::span<const Option> Options() { return kOptions; }

}  // namespace clipjoin
