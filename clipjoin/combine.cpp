#include "clipjoin/combine.h"

#include <cmath>
#include <tuple>

#include "clipjoin/report.h"
#include "clipjoin/sample_table_join.h"

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
  Report({"AddMovieSelection", kClipjoinSource}, toolbox::GetMoviesError());
}

void Append(Movie movie, TimeValue duration, Movie output) {
  Report(
      {"InsertMovieSegment", kClipjoinSource},
      toolbox::InsertMovieSegment(movie, output, 0, duration, toolbox::GetMovieDuration(output)));
}

// How the tracks of an input become tracks of the output.
struct TrackPolicy {
  const char* insertion;  // what reports call it
  // Puts the whole of `source` into `track`; `at` is where the output ended before the input.
  OSErr (*insert)(Track track, Track source, TimeValue at);
  bool reusesTracks;
};

OSErr InsertWhole(Track track, Track source, TimeValue at) {
  return toolbox::InsertTrackSegment(source, track, 0, toolbox::GetTrackDuration(source), at);
}

constexpr TrackPolicy kSameTracks{"InsertTrackSegment", InsertWhole, true};
constexpr TrackPolicy kUniqueTracks{"myAppendTrack", myAppendTrack, false};
constexpr TrackPolicy kManualJoin{"myAppendTrack", myAppendTrack, true};

// Null for an output that takes whole movies.
const TrackPolicy* PolicyOf(const OutputOptions& output) {
  if (output.forceSameTracks) return &kSameTracks;
  if (output.uniqueTracks) return &kUniqueTracks;
  return output.manualJoin ? &kManualJoin : nullptr;
}

// Puts `source` into the first track of its kind that takes it; false when none does.
bool InsertIntoExisting(Track source, Movie output, TimeValue at, const TrackPolicy& policy) {
  toolbox::FourCC type;
  toolbox::GetMediaHandlerDescription(toolbox::GetTrackMedia(source), &type, nullptr, nullptr);
  for (std::int32_t i = 1;; ++i) {
    const Track candidate =
        toolbox::GetMovieIndTrackType(output, i, type, toolbox::movieTrackMediaType);
    if (candidate == nullptr) return false;
    if (policy.insert(candidate, source, at) == toolbox::noErr) return true;
  }
}

void InsertIntoNew(Track source, Movie output, TimeValue at, const TrackPolicy& policy) {
  Track made = nullptr;
  Report({"AddEmptyTrackToMovie", kClipjoinSource},
         toolbox::AddEmptyTrackToMovie(source, output, nullptr, toolbox::FourCC(), &made));
  Report({policy.insertion, kClipjoinSource}, policy.insert(made, source, at));
  // A track that got nothing says nothing, and there are readers that take no file with one.
  if (toolbox::GetMediaSampleDescriptionCount(toolbox::GetTrackMedia(made)) == 0) {
    toolbox::DisposeMovieTrack(made);
  }
}

// Appends track by track.
void AppendTracks(Movie movie, Movie output, const TrackPolicy& policy) {
  const TimeValue at = toolbox::GetMovieDuration(output);
  for (std::int32_t i = 1; i <= toolbox::GetMovieTrackCount(movie); ++i) {
    const Track source = toolbox::GetMovieIndTrack(movie, i);
    if (policy.reusesTracks && InsertIntoExisting(source, output, at, policy)) continue;
    InsertIntoNew(source, output, at, policy);
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
  } else if (const TrackPolicy* policy = PolicyOf(line.output)) {
    AppendTracks(movie, output, *policy);
  } else {
    Append(movie, duration, output);
  }
}

}  // namespace clipjoin
