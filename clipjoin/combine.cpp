#include "clipjoin/combine.h"

#include <cmath>
#include <tuple>

#include "clipjoin/report.h"

namespace clipjoin {
namespace {

using toolbox::Movie;
using toolbox::OSErr;
using toolbox::TimeValue;
using toolbox::Track;

// Lays the movie over the output, from its place on.
void LayInParallel(Movie movie, const FileOptions& options, Movie output, bool scaleToOutput) {
  const TimeValue start = std::lrint(options.placeAt * toolbox::GetMovieTimeScale(output));
  const TimeValue length = scaleToOutput ? toolbox::GetMovieDuration(output) - start : 0;
  toolbox::SetMovieSelection(output, start, length);
  toolbox::AddMovieSelection(output, movie);
}

void Append(Movie movie, TimeValue duration, Movie output) {
  Report(
      {"InsertMovieSegment", kClipjoinSource},
      toolbox::InsertMovieSegment(movie, output, 0, duration, toolbox::GetMovieDuration(output)));
}

// Lays the whole of `source` into the first track of its kind that takes it; false when none does.
bool InsertIntoExisting(Track source, Movie output, TimeValue at) {
  toolbox::FourCC type;
  toolbox::GetMediaHandlerDescription(toolbox::GetTrackMedia(source), &type, nullptr, nullptr);
  for (std::int32_t i = 1;; ++i) {
    const Track candidate =
        toolbox::GetMovieIndTrackType(output, i, type, toolbox::movieTrackMediaType);
    if (candidate == nullptr) return false;
    const TimeValue duration = toolbox::GetTrackDuration(source);
    if (toolbox::InsertTrackSegment(source, candidate, 0, duration, at) == toolbox::noErr) {
      return true;
    }
  }
}

void InsertIntoNew(Track source, Movie output, TimeValue at) {
  Track made = nullptr;
  Report({"AddEmptyTrackToMovie", kClipjoinSource},
         toolbox::AddEmptyTrackToMovie(source, output, nullptr, toolbox::FourCC(), &made));
  const TimeValue duration = toolbox::GetTrackDuration(source);
  Report({"InsertTrackSegment", kClipjoinSource},
         toolbox::InsertTrackSegment(source, made, 0, duration, at));
}

// Appends track by track, into as few tracks of the output as can be.
void AppendIntoSameTracks(Movie movie, Movie output) {
  const TimeValue at = toolbox::GetMovieDuration(output);
  for (std::int32_t i = 1; i <= toolbox::GetMovieTrackCount(movie); ++i) {
    const Track source = toolbox::GetMovieIndTrack(movie, i);
    if (!InsertIntoExisting(source, output, at)) InsertIntoNew(source, output, at);
  }
}

}  // namespace

void Combine(Movie movie, const FileOptions& options, Movie output, const CommandLine& line) {
  if (options.useSettings) std::ignore = toolbox::CopyMovieSettings(movie, output);
  toolbox::SetMovieTimeScale(movie, toolbox::GetMovieTimeScale(output));
  const TimeValue duration = toolbox::GetMovieDuration(movie);
  Report({"GetMoviesError", kClipjoinSource}, toolbox::GetMoviesError());

  if (line.mode == CommandMode::kMultiplex) {
    LayInParallel(movie, options, output, line.output.scaleToOutput);
  } else if (line.output.forceSameTracks) {
    AppendIntoSameTracks(movie, output);
  } else {
    Append(movie, duration, output);
  }
}

}  // namespace clipjoin
