#include "clipjoin/clipjoin.h"

#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "chapter/chapter.h"
#include "chapter/playback.h"
#include "clipjoin/combine.h"
#include "clipjoin/command_line.h"
#include "clipjoin/gather_chapters.h"
#include "clipjoin/report.h"
#include "toolbox/toolbox.h"
#include "utils/edit_lists.h"
#include "utils/output.h"
#include "utils/owned.h"

namespace clipjoin {
namespace {

// Whether the user's preferences ask every run to be quiet, as if -q were given.
bool PrefersQuiet() {
  const auto text = [](const char* characters) {
    return utils::OwnedString(
        toolbox::CFStringCreateWithCString(nullptr, characters, toolbox::kCFStringEncodingUTF8));
  };
  bool isValid = false;
  const bool isQuiet = toolbox::CFPreferencesGetAppBooleanValue(
      text("quiet").get(), text("org.reelwork.Reelwork").get(), &isValid);
  return isValid && isQuiet;
}

}  // namespace

// The order of the steps decides the order of the messages, so it must not change: all inputs are
// opened, edited and combined one by one; then the chapters, edits and flags of the output are set;
// the output is written; and inputs that are to be saved in place are saved last.
int Run(std::span<const char* const> arguments) {
  std::ignore = toolbox::EnterMovies();
  auto parsed = ParseCommandLine(arguments, PrefersQuiet());
  if (const auto* status = std::get_if<ExitStatus>(&parsed)) return status->value;
  auto& line = std::get<CommandLine>(parsed);

  // The first input's movie becomes the output, and the others are added to it. A manual join adds
  // all of them to a new movie. `line` keeps the inputs' movies until the end of the run, because
  // the output refers to their media.
  const OutputOptions& wanted = line.output;
  utils::OwnedMovie created;
  toolbox::Movie output = nullptr;
  std::vector<Chapter> chapters = wanted.addedChapters;
  std::vector<std::string> inputs;
  for (input::InputMovie& input : line.inputs) {
    inputs.push_back(input.options.path);
    const toolbox::Movie movie = input.Open();
    if (output == nullptr && wanted.manualJoin) {
      created.reset(toolbox::NewMovie(0));
      output = created.get();
      std::ignore = toolbox::CopyMovieSettings(movie, output);
    }
    AddAutomaticChapter(wanted, input.options, movie, output, chapters);
    if (output == nullptr) {
      output = movie;
    } else {
      Combine(movie, input.options, output, wanted);
    }
  }
  // The inputs were added at the selection, which is not to be saved in the output.
  if (wanted.mode == CommandMode::kMultiplex) toolbox::SetMovieSelection(output, 0, 0);
  const bool savesInPlace = line.SavesInPlace();
  AttachChapters(output, wanted, savesInPlace, std::move(chapters));
  if (wanted.removeOutputEditList) utils::RemoveEditLists(output);
  chapter::ApplyPlaybackFlags(output, wanted);
  std::vector<Chapter> listed;
  if (wanted.chapterToolXml) listed = chapter::ReadChapters(output);
  // An MPEG-4 file gets no user data, so its chapters are in the track only.
  if (savesInPlace || !wanted.mpeg4) line.inputs.front().Chapters().RemoveListOrTrack(output);
  const int status = savesInPlace ? 0 : utils::finishOutput(output, wanted, inputs);
  if (wanted.chapterToolXml) WriteChapterXml(listed, *wanted.chapterToolXml);
  for (input::InputMovie& input : line.inputs) input.SaveInPlace();
  return Close(wanted.quiet, status);
}

}  // namespace clipjoin
