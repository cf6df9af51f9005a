// An example of how to use the toolbox: writes a part of a movie to a new file.
//   cut IN FROM LENGTH OUT      (times in seconds; paths must be absolute)
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "toolbox/toolbox.h"

namespace {

using namespace toolbox;

// Returns a data reference to the file at `path`, which the caller disposes of; null on failure.
Handle ReferenceTo(const char* path, FourCC* type) {
  const CFStringRef string = CFStringCreateWithCString(nullptr, path, kCFStringEncodingUTF8);
  Handle reference = nullptr;
  if (QTNewDataReferenceFromFullPathCFString(string, kQTPOSIXPathStyle, 0, &reference, type)) {
    reference = nullptr;
  }
  CFRelease(string);
  return reference;
}

// Opens the movie; the caller disposes of it.
OSErr Open(const char* path, Movie* movie) {
  FourCC type;
  const Handle reference = ReferenceTo(path, &type);
  const OSErr code = NewMovieFromDataRef(movie, 0, nullptr, reference, type);
  DisposeHandle(reference);
  return code;
}

// Keeps `length` seconds of the movie, starting at `from` seconds, and deletes the rest.
OSErr Cut(Movie movie, double from, double length) {
  const auto units = [&](double seconds) {
    return static_cast<TimeValue>(std::llround(seconds * GetMovieTimeScale(movie)));
  };
  if (const OSErr code = DeleteMovieSegment(movie, 0, units(from))) return code;
  const TimeValue rest = GetMovieDuration(movie) - units(length);
  if (rest <= 0) return noErr;
  return DeleteMovieSegment(movie, units(length), rest);
}

// Writes the movie with all its media, so that the result does not depend on the input file.
OSErr Write(Movie movie, const char* path) {
  FourCC type;
  const Handle reference = ReferenceTo(path, &type);
  FlattenMovieDataToDataRef(
      movie, flattenAddMovieToDataFork | flattenForceMovieResourceBeforeMovieData, reference, type,
      FourCC{"TVOD"}, smSystemScript, createMovieFileDeleteCurFile);
  // FlattenMovieDataToDataRef does not return its code. Get it before the next call overwrites it.
  const OSErr code = GetMoviesError();
  DisposeHandle(reference);
  return code;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 5) {
    std::fprintf(stderr, "usage: cut IN FROM LENGTH OUT\n");
    return 2;
  }
  OSErr code = EnterMovies();
  Movie movie = nullptr;
  if (!code) code = Open(arguments[1], &movie);
  if (!code) code = Cut(movie, std::atof(arguments[2]), std::atof(arguments[3]));
  if (!code) code = Write(movie, arguments[4]);
  DisposeMovie(movie);
  if (code) std::fprintf(stderr, "cut: error %d\n", code);
  return code != noErr;
}
