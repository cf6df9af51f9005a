#include "clipjoin/clipjoin.h"

#include <tuple>
#include <variant>

#include "clipjoin/command_line.h"
#include "clipjoin/report.h"
#include "toolbox/toolbox.h"
#include "utils/output.h"

namespace clipjoin {
namespace {

// Appends the whole of `movie` at the end of `output`. What fails is reported.
void Append(toolbox::Movie movie, toolbox::Movie output) {
  toolbox::SetMovieTimeScale(movie, toolbox::GetMovieTimeScale(output));
  const toolbox::TimeValue duration = toolbox::GetMovieDuration(movie);
  if (const auto code = toolbox::GetMoviesError()) {
    return Report({"GetMoviesError", kClipjoin}, code);
  }
  Report(
      {"InsertMovieSegment", kClipjoin},
      toolbox::InsertMovieSegment(movie, output, 0, duration, toolbox::GetMovieDuration(output)));
}

}  // namespace

int Run(std::span<const char* const> arguments) {
  std::ignore = toolbox::EnterMovies();
  auto parsed = ParseCommandLine(arguments);
  if (const auto* status = std::get_if<ExitStatus>(&parsed)) return status->value;
  auto& line = std::get<CommandLine>(parsed);

  // The first input's movie becomes the output, the others are joined to it.
  toolbox::Movie output = nullptr;
  for (input::InputMovie& input : line.inputs) {
    const toolbox::Movie movie = input.Open();
    if (output == nullptr) {
      output = movie;
    } else {
      Append(movie, output);
    }
  }
  utils::FinishOutput(output, line);
  return Close(line.output.quiet, 0);
}

}  // namespace clipjoin
