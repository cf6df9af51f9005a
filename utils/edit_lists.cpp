#include "utils/edit_lists.h"

#include "clipjoin/report.h"
#include "utils/tracks.h"

namespace utils {
namespace {

using clipjoin::CallSite;
using clipjoin::kUtilsSource;
using clipjoin::Report;
using toolbox::Media;
using toolbox::TimeScale;
using toolbox::TimeValue;
using toolbox::Track;

// Reports of failed steps name these lines, whatever lines the code is on.
constexpr CallSite kDelete{"DeleteTrackSegment", kUtilsSource, 704};
constexpr CallSite kInsertWhole{"InsertMediaIntoTrack", kUtilsSource, 720};
constexpr CallSite kAppendMissing{"InsertMediaIntoTrack", kUtilsSource, 692};

// Converts a duration from the new scale to the old one and back, and rounds down both times.
TimeValue ThereAndBack(TimeValue duration, TimeScale oldScale, TimeScale newScale) {
  const TimeValue inOld = duration * oldScale / newScale;
  return newScale * inOld / oldScale;
}

}  // namespace

void RemoveEditLists(toolbox::Movie movie) {
  for (const Track track : Tracks(movie)) {
    Report(kDelete, toolbox::DeleteTrackSegment(track, toolbox::GetTrackOffset(track),
                                                toolbox::GetTrackDuration(track)));
    const TimeValue whole = toolbox::GetMediaDuration(toolbox::GetTrackMedia(track));
    Report(kInsertWhole, toolbox::InsertMediaIntoTrack(track, 0, 0, whole, toolbox::fixedOne));
  }
}

void FixRoundoffErrors(toolbox::Movie movie, TimeScale newScale) {
  const TimeScale oldScale = toolbox::GetMovieTimeScale(movie);
  toolbox::SetMovieTimeScale(movie, newScale);
  for (const Track track : Tracks(movie)) {
    const Media media = toolbox::GetTrackMedia(track);
    if (toolbox::GetMediaTimeScale(media) != newScale) continue;
    const TimeValue shown = toolbox::GetTrackDuration(track);
    const TimeValue whole = toolbox::GetMediaDuration(media);
    // If rounding alone cannot have made the track so short, it was cut on purpose.
    if (shown >= whole || shown < ThereAndBack(whole, oldScale, newScale)) continue;
    Report(kAppendMissing,
           toolbox::InsertMediaIntoTrack(track, -1, shown, whole - shown, toolbox::fixedOne));
  }
}

}  // namespace utils
