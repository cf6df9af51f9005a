// The start of the toolbox, and calls about a whole movie.
#include "toolbox/movie/movie.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "toolbox/calls/call.h"
#include "toolbox/calls/data_references.h"
#include "toolbox/calls/references.h"
#include "toolbox/toolbox.h"

namespace toolbox {

// There is nothing to start. The call only resets the movies error.
OSErr EnterMovies() {
  return Call(__func__, [] {});
}

// Not a Call: that would replace the error before it is returned.
OSErr GetMoviesError() { return TakeMoviesError(); }

Movie NewMovie(std::int32_t) {
  return Call(__func__, [] {
    auto movie = std::make_unique<MovieRecord>();
    movie->header.created = movie->header.modified = Now();
    return movie.release();
  });
}

void DisposeMovie(Movie movie) {
  Call(__func__, [&] { delete &Valid(movie); });
}

TimeScale GetMovieTimeScale(Movie movie) {
  return Call(__func__, [&] { return Valid(movie).header.scale; });
}

void SetMovieTimeScale(Movie movie, TimeScale scale) {
  Call(__func__, [&] {
    if (scale <= 0) throw Refused{paramErr};
    Valid(movie).SetScale(scale);
  });
}

TimeValue GetMovieDuration(Movie movie) {
  return Call(__func__, [&] { return Valid(movie).Duration().units; });
}

void GetMovieMatrix(Movie movie, MatrixRecord* matrix) {
  Call(__func__, [&] { *matrix = Valid(movie).header.matrix; });
}

void SetMovieMatrix(Movie movie, const MatrixRecord* matrix) {
  Call(__func__, [&] { Valid(movie).header.matrix = *matrix; });
}

void SetMovieSelection(Movie movie, TimeValue start, TimeValue duration) {
  Call(__func__, [&] {
    MovieRecord& record = Valid(movie);
    if (start < 0) throw Refused{invalidTime};
    record.header.selectionTime = start;
    record.header.selectionDuration = std::max<TimeValue>(duration, 0);
    // The start is set even if the call fails, so that a movie added at the selection starts there.
    if (duration < 0) throw Refused{invalidDuration};
  });
}

OSErr CopyMovieSettings(Movie source, Movie destination) {
  return Call(__func__, [&] { Valid(destination).CopySettings(Valid(source)); });
}

void SetMovieProgressProc(Movie movie,
                          std::function<void(std::uint64_t done, std::uint64_t all)> progress) {
  Call(__func__, [&] { Valid(movie).progress = std::move(progress); });
}

void SetMovieSourceProc(Movie movie, std::function<void(const std::string& path)> copiesFrom) {
  Call(__func__, [&] { Valid(movie).copiesFrom = std::move(copiesFrom); });
}

OSErr GetMovieDefaultDataRef(Movie movie, Handle* dataRef, FourCC* dataRefType) {
  *dataRef = nullptr;
  return Call(__func__, [&] {
    const MovieRecord& record = Valid(movie);
    if (!record.defaultDataReference) throw Refused{noDefaultDataRef};
    *dataRef = HandleFor(*record.defaultDataReference, record.file, dataRefType);
  });
}

OSErr SetMovieDefaultDataRef(Movie movie, Handle dataRef, FourCC dataRefType) {
  return Call(__func__, [&] {
    Valid(movie).defaultDataReference = ReferenceFrom(dataRef, dataRefType, movie->file);
  });
}

UserData GetMovieUserData(Movie movie) {
  return Call(__func__, [&] { return &Valid(movie).userData; });
}

}  // namespace toolbox
