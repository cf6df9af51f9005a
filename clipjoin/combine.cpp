#include "clipjoin/combine.h"

#include <cmath>
#include <map>
#include <tuple>
#include <vector>

#include "clipjoin/report.h"
#include "clipjoin/sample_table_join.h"
#include "utils/tracks.h"

namespace clipjoin {
namespace {

using toolbox::FourCC;
using toolbox::Movie;
using toolbox::OSErr;
using toolbox::TimeValue;
using toolbox::Track;

// Shows the movie at the same time as the output, from options.placeAt on: at its own length, or
// scaled to end where the output ends.
//
//   |      output      |        |      output      |        |      output      |
//                         ->        |  movie  |        or      | m  o  v  i  e |
//                                   ^ placeAt
//
// The toolbox takes place and length from the selection of the output. An empty selection means the
// movie's own length.
void AddInParallel(Movie movie, const FileOptions& options, Movie output, bool scaleToOutput) {
  const TimeValue start = std::lrint(options.placeAt * toolbox::GetMovieTimeScale(output));
  const TimeValue length = scaleToOutput ? toolbox::GetMovieDuration(output) - start : 0;
  toolbox::SetMovieSelection(output, start, length);
  toolbox::AddMovieSelection(output, movie);
  Report({"AddMovieSelection", kClipjoinSource}, toolbox::GetMoviesError());
}

// How tracks of an input are added to the output.
struct TrackPolicy {
  const char* insertion;  // the name of `insert` in reports
  // Inserts all of `source` into `track` at `at`, in output units.
  OSErr (*insert)(Track track, Track source, TimeValue at, bool quiet);
  bool reusesTracks;  // false: each source gets a new track
};

// Keeps the edits of `source`. (myAppendTrack ignores them and shows all of its samples.)
OSErr InsertWhole(Track track, Track source, TimeValue at, bool) {
  return toolbox::InsertTrackSegment(source, track, 0, toolbox::GetTrackDuration(source), at);
}

constexpr TrackPolicy kSameTracks{"InsertTrackSegment", InsertWhole, true};
constexpr TrackPolicy kUniqueTracks{"myAppendTrack", myAppendTrack, false};
constexpr TrackPolicy kManualJoin{"myAppendTrack", myAppendTrack, true};

// If several of the options are given, the first one here applies. Null if there is none: whole
// movies are then appended, and the toolbox chooses the tracks.
const TrackPolicy* PolicyOf(const OutputOptions& output) {
  if (output.forceSameTracks) return &kSameTracks;
  if (output.uniqueTracks) return &kUniqueTracks;
  return output.manualJoin ? &kManualJoin : nullptr;
}

// Inserts `source` into the first track of the same media type that accepts it, and returns that
// track; null if none does. A refusal is not a failure here, so it is not reported.
Track InsertIntoExisting(Track source, Movie output, TimeValue at, const TrackPolicy& policy,
                         bool quiet) {
  const FourCC type = utils::MediaType(source);
  for (const Track candidate : utils::Tracks(output)) {
    if (utils::MediaType(candidate) != type) continue;
    if (policy.insert(candidate, source, at, quiet) == toolbox::noErr) return candidate;
  }
  return nullptr;
}

// Returns the new track; null if it was removed again.
Track InsertIntoNew(Track source, Movie output, TimeValue at, const TrackPolicy& policy,
                    bool quiet) {
  Track added = nullptr;
  Report({"AddEmptyTrackToMovie", kClipjoinSource},
         toolbox::AddEmptyTrackToMovie(source, output, nullptr, FourCC(), &added));
  Report({policy.insertion, kClipjoinSource}, policy.insert(added, source, at, quiet));
  // Some readers reject a file with a track that has no sample descriptions.
  if (toolbox::GetMediaSampleDescriptionCount(toolbox::GetTrackMedia(added)) > 0) return added;
  toolbox::DisposeMovieTrack(added);
  return nullptr;
}

bool Refers(Track track, FourCC type, Track target) {
  std::int32_t number = toolbox::GetTrackReferenceCount(track, type);
  while (number > 0 && toolbox::GetTrackReference(track, type, number) != target) --number;
  return number > 0;
}

// Gives `track` the references of `source` to other tracks of its movie. `targets` has, for each
// track of that movie, the track of the output that it was inserted into.
void CarryReferences(Track source, Track track, const std::map<Track, Track>& targets) {
  for (FourCC type = toolbox::GetNextTrackReferenceType(source, FourCC()); type != FourCC();
       type = toolbox::GetNextTrackReferenceType(source, type)) {
    const std::int32_t count = toolbox::GetTrackReferenceCount(source, type);
    for (std::int32_t number = 1; number <= count; ++number) {
      const auto target = targets.find(toolbox::GetTrackReference(source, type, number));
      // `source` and the track that it refers to can have been inserted into the same track.
      if (target == targets.end() || target->second == track) continue;
      if (Refers(track, type, target->second)) continue;
      Report({"AddTrackReference", kClipjoinSource},
             toolbox::AddTrackReference(track, target->second, type, nullptr));
    }
  }
}

// Appends the movie track by track. All tracks start where the output ended before, even if the
// first of them makes the output longer.
void AppendTracks(Movie movie, Movie output, const TrackPolicy& policy, bool quiet) {
  const TimeValue at = toolbox::GetMovieDuration(output);
  std::map<Track, Track> targets;
  const std::vector<Track> sources = utils::Tracks(movie);
  for (const Track source : sources) {
    Track track = nullptr;
    if (policy.reusesTracks) track = InsertIntoExisting(source, output, at, policy, quiet);
    if (track == nullptr) track = InsertIntoNew(source, output, at, policy, quiet);
    if (track != nullptr) targets[source] = track;
  }
  for (const Track source : sources) {
    if (targets.contains(source)) CarryReferences(source, targets[source], targets);
  }
}

}  // namespace

void Combine(Movie movie, const FileOptions& options, Movie output, const OutputOptions& wanted) {
  if (options.useSettings) std::ignore = toolbox::CopyMovieSettings(movie, output);
  toolbox::SetMovieTimeScale(movie, toolbox::GetMovieTimeScale(output));
  const TimeValue duration = toolbox::GetMovieDuration(movie);
  // GetMoviesError gives the code of the last call, GetMovieDuration.
  Report({"GetMoviesError", kClipjoinSource}, toolbox::GetMoviesError());

  if (wanted.mode == CommandMode::kMultiplex) {
    AddInParallel(movie, options, output, wanted.scaleToOutput);
  } else if (const TrackPolicy* policy = PolicyOf(wanted)) {
    AppendTracks(movie, output, *policy, wanted.quiet);
  } else {
    const TimeValue end = toolbox::GetMovieDuration(output);
    Report({"InsertMovieSegment", kClipjoinSource},
           toolbox::InsertMovieSegment(movie, output, 0, duration, end));
  }
}

}  // namespace clipjoin
