#include "clipjoin/clipjoin.h"

#include <memory>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "chapter/playback.h"
#include "clipjoin/combine.h"
#include "clipjoin/command_line.h"
#include "clipjoin/gather_chapters.h"
#include "clipjoin/report.h"
#include "toolbox/toolbox.h"
#include "utils/edit_lists.h"
#include "utils/output.h"

namespace clipjoin {
namespace {

// Whether the user's settings ask every run to be quiet.
bool PrefersQuiet() {
  constexpr char kDomain[] = "org.reelwork.Reelwork", kKey[] = "quiet";
  const auto text = [](const char* characters) {
    return toolbox::CFStringCreateWithCString(nullptr, characters, toolbox::kCFStringEncodingUTF8);
  };
  const toolbox::CFStringRef domain = text(kDomain), key = text(kKey);
  bool isValid = false;
  const bool isQuiet = toolbox::CFPreferencesGetAppBooleanValue(key, domain, &isValid);
  toolbox::CFRelease(key);
  toolbox::CFRelease(domain);
  return isValid && isQuiet;
}

struct Dispose {
  void operator()(toolbox::Movie movie) const { toolbox::DisposeMovie(movie); }
};
using OwnedMovie = std::unique_ptr<toolbox::MovieRecord, Dispose>;

}  // namespace

int Run(std::span<const char* const> arguments) {
  std::ignore = toolbox::EnterMovies();
  auto parsed = ParseCommandLine(arguments, PrefersQuiet());
  if (const auto* status = std::get_if<ExitStatus>(&parsed)) return status->value;
  auto& line = std::get<CommandLine>(parsed);

  // The first input's movie becomes the output, the others are joined to it; a manual join joins
  // all of them to a new movie.
  OwnedMovie made;
  toolbox::Movie output = nullptr;
  std::vector<chapter::Chapter> chapters = line.output.addedChapters;
  for (input::InputMovie& input : line.inputs) {
    const toolbox::Movie movie = input.Open();
    if (output == nullptr && line.output.manualJoin) {
      made.reset(toolbox::NewMovie(0));
      output = made.get();
      std::ignore = toolbox::CopyMovieSettings(movie, output);
    }
    AddAutomaticChapter(line.output, input.options, movie, output, chapters);
    if (output == nullptr) {
      output = movie;
    } else {
      Combine(movie, input.options, output, line);
    }
  }
  if (line.mode == CommandMode::kMultiplex) toolbox::SetMovieSelection(output, 0, 0);
  AttachChapters(output, line, std::move(chapters));
  if (line.output.removeOutputEditList) utils::RemoveEditLists(output);
  chapter::ApplyPlaybackFlags(output, line.output);
  const int status = utils::FinishOutput(output, line);
  WriteChapterXml(output, line.output);
  for (input::InputMovie& input : line.inputs) input.SaveInPlace();
  return Close(line.output.quiet, status);
}

}  // namespace clipjoin
