#include "clipjoin/clipjoin.h"

#include <tuple>
#include <variant>

#include "chapter/playback.h"
#include "clipjoin/combine.h"
#include "clipjoin/command_line.h"
#include "clipjoin/report.h"
#include "toolbox/toolbox.h"
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

}  // namespace

int Run(std::span<const char* const> arguments) {
  std::ignore = toolbox::EnterMovies();
  auto parsed = ParseCommandLine(arguments, PrefersQuiet());
  if (const auto* status = std::get_if<ExitStatus>(&parsed)) return status->value;
  auto& line = std::get<CommandLine>(parsed);

  // The first input's movie becomes the output, the others are joined to it.
  toolbox::Movie output = nullptr;
  for (input::InputMovie& input : line.inputs) {
    const toolbox::Movie movie = input.Open();
    if (output == nullptr) {
      output = movie;
    } else {
      Combine(movie, input.options, output, line);
    }
  }
  if (line.mode == CommandMode::kMultiplex) toolbox::SetMovieSelection(output, 0, 0);
  chapter::ApplyPlaybackFlags(output, line.output);
  const int status = utils::FinishOutput(output, line);
  if (line.SavesInPlace()) line.inputs.front().SaveInPlace();
  return Close(line.output.quiet, status);
}

}  // namespace clipjoin
