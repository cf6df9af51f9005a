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
  return Call("InsertMovieSegment", [&] {
    InsertMovieSegment(Valid(source), Valid(movie), MovieTime{sourceIn}, MovieTime{sourceDuration},
                       MovieTime{at});
  });
}

void AddMovieSelection(Movie movie, Movie source) {
  Call("AddMovieSelection", [&] { AddMovieSelection(Valid(source), Valid(movie)); });
}

OSErr InsertTrackSegment(Track source, Track track, TimeValue sourceIn, TimeValue sourceDuration,
                         TimeValue at) {
  return Call("InsertTrackSegment", [&] {
    InsertTrackSegment(Valid(source), Valid(track), MovieTime{sourceIn}, MovieTime{sourceDuration},
                       MovieTime{at});
  });
}

OSErr DeleteTrackSegment(Track track, TimeValue start, TimeValue duration) {
  return Call("DeleteTrackSegment", [&] { DeleteSegment(Valid(track), {start}, {duration}); });
}

OSErr DeleteMovieSegment(Movie movie, TimeValue start, TimeValue duration) {
  return Call("DeleteMovieSegment", [&] { DeleteSegment(Valid(movie), {start}, {duration}); });
}

OSErr ScaleTrackSegment(Track track, TimeValue start, TimeValue oldDuration,
                        TimeValue newDuration) {
  return Call("ScaleTrackSegment",
              [&] { ScaleSegment(Valid(track), {start}, {oldDuration}, {newDuration}); });
}

OSErr ScaleMovieSegment(Movie movie, TimeValue start, TimeValue oldDuration,
                        TimeValue newDuration) {
  return Call("ScaleMovieSegment",
              [&] { ScaleSegment(Valid(movie), {start}, {oldDuration}, {newDuration}); });
}

OSErr InsertMediaIntoTrack(Track track, TimeValue trackStart, TimeValue mediaTime,
                           TimeValue mediaDuration, Fixed rate) {
  return Call("InsertMediaIntoTrack", [&] {
    std::optional<MovieTime> at;
    if (trackStart != -1) at = MovieTime{trackStart};
    InsertMedia(Valid(track), at, {mediaTime}, {mediaDuration},
                rate / static_cast<double>(fixedOne));
  });
}

}  // namespace toolbox
