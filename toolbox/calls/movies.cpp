// The start of the toolbox, and calls about a whole movie.
#include "toolbox/movie/movie.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

#include "toolbox/calls/call.h"
#include "toolbox/calls/data_references.h"
#include "toolbox/calls/references.h"
#include "toolbox/toolbox.h"

namespace toolbox {

OSErr EnterMovies() {
  return Call("EnterMovies", [] {});
}

OSErr GetMoviesError() {
  const OSErr code = MoviesError();
  SetMoviesError(noErr);
  return code;
}

Movie NewMovie(std::int32_t) {
  return Call("NewMovie", [] {
    auto movie = std::make_unique<MovieRecord>();
    movie->header.created = movie->header.modified = Now();
    return movie.release();
  });
}

void DisposeMovie(Movie movie) {
  Call("DisposeMovie", [&] { delete &Valid(movie); });
}

TimeScale GetMovieTimeScale(Movie movie) {
  return Call("GetMovieTimeScale", [&] { return Valid(movie).header.scale; });
}

void SetMovieTimeScale(Movie movie, TimeScale scale) {
  Call("SetMovieTimeScale", [&] {
    if (scale <= 0) throw Refused{paramErr};
    Valid(movie).SetScale(scale);
  });
}

TimeValue GetMovieDuration(Movie movie) {
  return Call("GetMovieDuration", [&] { return Valid(movie).Duration().units; });
}

void GetMovieMatrix(Movie movie, MatrixRecord* matrix) {
  Call("GetMovieMatrix", [&] { *matrix = Valid(movie).header.matrix; });
}

void SetMovieMatrix(Movie movie, const MatrixRecord* matrix) {
  Call("SetMovieMatrix", [&] { Valid(movie).header.matrix = *matrix; });
}

void SetMovieSelection(Movie movie, TimeValue start, TimeValue duration) {
  Call("SetMovieSelection", [&] {
    MovieRecord& record = Valid(movie);
    if (start < 0) throw Refused{invalidTime};
    record.header.selectionTime = start;
    record.header.selectionDuration = std::max<TimeValue>(duration, 0);
    // The start is set all the same: a movie added at the selection still starts there.
    if (duration < 0) throw Refused{invalidDuration};
  });
}

OSErr CopyMovieSettings(Movie source, Movie destination) {
  return Call("CopyMovieSettings", [&] { Valid(destination).TakeSettings(Valid(source)); });
}

void SetMovieProgressProc(Movie movie,
                          std::function<void(std::uint64_t done, std::uint64_t all)> progress) {
  Call("SetMovieProgressProc", [&] { Valid(movie).progress = std::move(progress); });
}

OSErr GetMovieDefaultDataRef(Movie movie, Handle* dataRef, FourCC* dataRefType) {
  *dataRef = nullptr;
  return Call("GetMovieDefaultDataRef", [&] {
    const std::optional<DataReference>& reference = Valid(movie).defaultDataReference;
    if (!reference) throw Refused{noDefaultDataRef};
    *dataRef = HandleFor(*reference, movie->file, *dataRefType);
  });
}

OSErr SetMovieDefaultDataRef(Movie movie, Handle dataRef, FourCC dataRefType) {
  return Call("SetMovieDefaultDataRef", [&] {
    Valid(movie).defaultDataReference = ReferenceFrom(dataRef, dataRefType, movie->file);
  });
}

UserData GetMovieUserData(Movie movie) {
  return Call("GetMovieUserData", [&] { return &Valid(movie).userData; });
}

}  // namespace toolbox
