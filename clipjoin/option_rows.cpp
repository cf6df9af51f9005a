#include "clipjoin/option_rows.h"

#include <cstdlib>
#include <iostream>
#include <string>

#include "clipjoin/values.h"

namespace clipjoin {
namespace {

template <class Record, class Value>
using Member = Value Record::*;

// A member of the current file options or of the output options.
template <class Value>
Value& In(Parser& parser, Member<FileOptions, Value> member) {
  return parser.Current().*member;
}
template <class Value>
Value& In(Parser& parser, Member<OutputOptions, Value> member) {
  return parser.line.output.*member;
}

// Most options set one member: to a value, to the next argument, or to a duration; or they add the
// next argument to a set.
template <auto kMember, auto kValue = true>
void Set(const char*, Cursor&, Parser& parser) {
  In(parser, kMember) = kValue;
}
template <auto kMember>
void Take(const char*, Cursor& next, Parser& parser) {
  In(parser, kMember) = next();
}
template <auto kMember>
void TakeDuration(const char*, Cursor& next, Parser& parser) {
  In(parser, kMember) = ParseDuration(next());
}
template <auto kMember>
void AddTo(const char*, Cursor& next, Parser& parser) {
  In(parser, kMember).insert(next());
}

template <std::uint32_t kFlag>
void ClearFlattenFlag(const char*, Cursor&, Parser& parser) {
  parser.line.output.flattenFlags &= ~kFlag;
}

// Options that change the length. The new length is a value, the length of a named track, that of
// the shortest or longest track, or that of another movie. If there are several such options, the
// last one applies.
template <unsigned kOperation>
void LengthGiven(const char*, Cursor& next, Parser& parser) {
  parser.Current().lengthTarget = ParseDuration(next());
  parser.Current().lengthMode = kChangeLength | kOperation;
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
// The other movie is opened with default settings, not with the current ones, because its length is
// that of the unchanged file.
template <unsigned kOperation>
void LengthOfMovie(const char* name, Cursor& next, Parser& parser) {
  FileOptions settings;
  settings.path = next();
  input::InputMovie other(settings);
  const toolbox::Movie movie = other.Open();
  if (!other.IsOpen()) {
    // This names the option, not the file, because scripts look for this text.
    std::cerr << "Error getting movie " << name << '\n';
    return;
  }
  parser.Current().lengthMode = kChangeLength | kOperation;
  parser.Current().lengthTarget = static_cast<double>(toolbox::GetMovieDuration(movie)) /
                                  static_cast<double>(toolbox::GetMovieTimeScale(movie));
}

// An option that changes a matrix changes it at once, so several of them are combined in
// command-line order.
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

// A number that cannot be read is 0, which keeps the time scale.
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
  Chapter added{.title = next()};
  added.start = static_cast<std::int64_t>(ParseDuration(next()) * added.scale);
  parser.line.output.addedChapters.push_back(added);
  parser.line.output.addedChaptersSeen = true;
}

void AutoChaptersMerge(const char*, Cursor&, Parser& parser) {
  parser.line.output.autoChapters = true;
  parser.line.output.autoChaptersMerge = true;
}

// Reads file names until standard input ends. The inputs get a copy of the current settings;
// options that come later do not change them. Throws BadNames if there are too many names or a name
// is too long, so that endless input cannot fill the memory.
void ReadNames(const char*, Cursor&, Parser& parser) {
  constexpr std::size_t kMaxNameLength = 1 << 16, kMaxNames = 100'000;
  const FileOptions settings = parser.Current();
  std::string name(kMaxNameLength + 1, '\0');
  for (std::size_t names = 0; std::cin.getline(name.data(), kMaxNameLength + 1); ++names) {
    if (names == kMaxNames) throw BadNames{};
    // The line end is counted, except at the end of a file without one.
    const std::streamsize length = std::cin.gcount() - (std::cin.eof() ? 0 : 1);
    parser.AddInput(settings, name.substr(0, static_cast<std::size_t>(length)));
  }
  if (!std::cin.eof()) throw BadNames{};
  parser.line.output.namesFromStdin = true;
}

void EndOptions(const char*, Cursor&, Parser& parser) { parser.optionsAllowed = false; }

// These names are short, so that each option fits into one line.
using F = FileOptions;
using O = OutputOptions;

constexpr Option kOptions[] = {
    {"-clipjoin", kEvery, Set<&O::mode, CommandMode::kConcatenate>},
    {"-clipstak", kEvery, Set<&O::mode, CommandMode::kMultiplex>},
    {"-cliptune", kEvery, Set<&O::mode, CommandMode::kModify>},
    {"-q", kEvery, Set<&O::quiet>},
    {"-self-contained", kEvery, Set<&O::selfContained>},
    {"-no-fast-start", kEvery, ClearFlattenFlag<toolbox::flattenForceMovieResourceBeforeMovieData>},
    {"-no-compressed-header", kEvery, ClearFlattenFlag<toolbox::flattenCompressMovieResource>},
    {"-unique-tracks", kClipjoin, Set<&O::uniqueTracks>},
    {"-force-same-tracks", kClipjoin, Set<&O::forceSameTracks>},
    {"-manual-join", kClipjoin, Set<&O::manualJoin>},
    {"-mp4", kEvery, Set<&O::mpeg4>},
    {"-chapter-tool-xml", kEvery, Take<&O::chapterToolXml>},
    {"-names-from-stdin", kEvery, ReadNames},
    {"-name-from-stdin", kEvery, ReadNames},
    {"-chapter-track", kEvery, Take<&O::chapterTrackName>},
    {"-auto-chapters", kClipjoin, Set<&O::autoChapters>},
    {"-auto-chapters-merge", kClipjoin, AutoChaptersMerge},
    {"-scale", kClipstak, Set<&O::scaleToOutput>},
    {"-noscale", kClipstak, Set<&O::scaleToOutput, false>},
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
    {"-chaplist", kEvery, Set<&F::listChapters>},
    {"-nochaplist", kEvery, Set<&F::listChapters, false>},
    {"-track", kEvery, AddTo<&F::includeTracks>},
    {"-notrack", kEvery, AddTo<&F::excludeTracks>},
    {"-enable", kEvery, AddTo<&F::enableTracks>},
    {"-disable", kEvery, AddTo<&F::disableTracks>},
    {"-list", kEvery, Set<&F::listTracks>},
    {"-nolist", kEvery, Set<&F::listTracks, false>},
    {"-noresolve", kEvery,
     [](const char*, Cursor&, Parser& parser) {
       parser.Current().openFlags |= toolbox::newMovieDontResolveDataRefs;
     }},
    {"-use-settings", kClipjoin | kClipstak, Set<&F::useSettings>},
    {"-no-convert-tags", kEvery, Set<&F::noTagConversion>},
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
    {"-resetmatrix", kEvery, Set<&F::resetTrackMatrices>},
    {"-resetmmatrix", kEvery, Set<&F::resetMovieMatrix>},
    {"-rate", kEvery,
     [](const char*, Cursor& next, Parser& parser) {
       parser.Current().rate = ParseNumber(next());
     }},
    {"-timescale", kEvery, SetTimeScale},
    {"-transparency-mode", kClipstak, SetTransparency},
    {"-chapter-name", kClipjoin, Take<&F::chapterName>},
    {"-add-chapter", kEvery, AddChapter},
    {"-o", kEvery, Take<&O::outputPath>},
    {"-save-in-place", kCliptune, Set<&F::saveInPlace>},
    {"-set-auto-play", kEvery, Set<&O::setAutoPlay>},
    {"-unset-auto-play", kEvery, Set<&O::unsetAutoPlay>},
    {"-set-looping", kEvery, Set<&O::setLooping>},
    {"-unset-looping", kEvery, Set<&O::unsetLooping>},
    {"-fix-roundoff-errors", kEvery, Set<&F::fixRoundoffErrors>},
    {"-remove-edit-list", kEvery, Set<&F::removeEditList>},
    {"-remove-output-edit-list", kEvery, Set<&O::removeOutputEditList>},
    {"-", kEvery, EndOptions},
};

}  // namespace

void Parser::AddInput(const FileOptions& settings, const std::string& path) {
  line.inputs.emplace_back(settings).options.path = path;
}

std::span<const Option> Options() { return kOptions; }

}  // namespace clipjoin
