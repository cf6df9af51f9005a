// Segments: stretches of one movie laid into another.
#include "toolbox/movie/segments.h"

#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
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

}  // namespace toolbox
