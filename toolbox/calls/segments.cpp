// Segments of movies and tracks: inserting, deleting and scaling.
#include "toolbox/movie/segments.h"

#include <optional>

#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/cuts.h"
#include "toolbox/toolbox.h"

namespace toolbox {

OSErr InsertMovieSegment(Movie source, Movie movie, TimeValue sourceIn, TimeValue sourceDuration,
                         TimeValue at) {
  return Call(__func__, [&] {
    InsertMovieSegment(Valid(source), Valid(movie), {sourceIn}, {sourceDuration}, {at});
  });
}

void AddMovieSelection(Movie movie, Movie source) {
  Call(__func__, [&] { AddMovieSelection(Valid(source), Valid(movie)); });
}

OSErr InsertTrackSegment(Track source, Track track, TimeValue sourceIn, TimeValue sourceDuration,
                         TimeValue at) {
  return Call(__func__, [&] {
    InsertTrackSegment(Valid(source), Valid(track), {sourceIn}, {sourceDuration}, {at});
  });
}

OSErr DeleteTrackSegment(Track track, TimeValue start, TimeValue duration) {
  return Call(__func__, [&] { DeleteSegment(Valid(track), {start}, {duration}); });
}

OSErr DeleteMovieSegment(Movie movie, TimeValue start, TimeValue duration) {
  return Call(__func__, [&] { DeleteSegment(Valid(movie), {start}, {duration}); });
}

OSErr ScaleTrackSegment(Track track, TimeValue start, TimeValue oldDuration,
                        TimeValue newDuration) {
  return Call(__func__, [&] { ScaleSegment(Valid(track), {start}, {oldDuration}, {newDuration}); });
}

OSErr ScaleMovieSegment(Movie movie, TimeValue start, TimeValue oldDuration,
                        TimeValue newDuration) {
  return Call(__func__, [&] { ScaleSegment(Valid(movie), {start}, {oldDuration}, {newDuration}); });
}

OSErr InsertMediaIntoTrack(Track track, TimeValue trackStart, TimeValue mediaTime,
                           TimeValue mediaDuration, Fixed rate) {
  return Call(__func__, [&] {
    // Without a time, the edit goes to the end. It may then continue the last edit, so that their
    // length is rounded only once.
    const auto at = trackStart == -1 ? std::nullopt : std::optional(MovieTime{trackStart});
    InsertMedia(Valid(track), at, {mediaTime}, {mediaDuration},
                rate / static_cast<double>(fixedOne));
  });
}

}  // namespace toolbox
