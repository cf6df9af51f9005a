#include "input/edits.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "chapter/chapter.h"
#include "clipjoin/report.h"
#include "input/track_names.h"
#include "input/track_selection.h"
#include "utils/edit_lists.h"
#include "utils/tracks.h"
#include "utils/visible.h"

namespace input {
namespace {

using clipjoin::FileOptions;
using toolbox::MatrixRecord;
using toolbox::Movie;
using toolbox::TimeValue;
using toolbox::Track;
using Names = std::vector<std::string>;  // of all tracks, in track order

// Converts seconds to units of the current time scale of the movie, rounded to the nearest.
TimeValue Units(Movie movie, double seconds) {
  return std::lrint(seconds * toolbox::GetMovieTimeScale(movie));
}

// Warnings are not counted as failures.
void Warn(const FileOptions& options, const std::string& text) {
  if (!options.quiet) std::cerr << "Warning: " << text << '\n';
}

// Sets the time scale of the movie to the given one or to that of the media of the named track.
// Does nothing if there is neither.
void SetTimeScale(Movie movie, const Names& names, const FileOptions& options) {
  toolbox::TimeScale scale = options.timeScale;
  const std::string& name = options.timeScaleReferenceTrack;
  if (const Track track = name.empty() ? nullptr : TrackNamed(name, movie, names)) {
    scale = toolbox::GetMediaTimeScale(toolbox::GetTrackMedia(track));
  }
  if (scale == 0 && !name.empty()) {
    Warn(options, "the time scale track " + utils::Visible(name) + " was not found in\n" +
                      utils::Visible(options.path) +
                      "\nUse -list to get a list of valid track names");
  }
  if (scale == 0) return;
  if (options.fixRoundoffErrors) utils::FixRoundoffErrors(movie, scale);
  toolbox::SetMovieTimeScale(movie, scale);
  clipjoin::Report({"SetMovieTimeScale", clipjoin::kClipjoinSource}, toolbox::GetMoviesError());
}

// `matrix` (or, with `isReset`, the identity) followed by `then`.
MatrixRecord Transformed(MatrixRecord matrix, bool isReset, const MatrixRecord& then) {
  if (isReset) toolbox::SetIdentityMatrix(&matrix);
  toolbox::ConcatMatrix(&then, &matrix);
  return matrix;
}

// Whether matrices have to be changed at all. If not, they stay as they are, bit for bit.
bool ChangesAnything(bool isReset, const MatrixRecord& matrix) {
  MatrixRecord identity;
  toolbox::SetIdentityMatrix(&identity);
  return isReset || !toolbox::EqualMatrix(&matrix, &identity);
}

void TransformTracks(Movie movie, const FileOptions& options) {
  if (!ChangesAnything(options.resetTrackMatrices, options.trackMatrix)) return;
  for (const Track track : utils::Tracks(movie)) {
    MatrixRecord matrix;
    toolbox::GetTrackMatrix(track, &matrix);
    matrix = Transformed(matrix, options.resetTrackMatrices, options.trackMatrix);
    toolbox::SetTrackMatrix(track, &matrix);
  }
}

void TransformMovie(Movie movie, const FileOptions& options) {
  if (!ChangesAnything(options.resetMovieMatrix, options.movieMatrix)) return;
  MatrixRecord matrix;
  toolbox::GetMovieMatrix(movie, &matrix);
  matrix = Transformed(matrix, options.resetMovieMatrix, options.movieMatrix);
  toolbox::SetMovieMatrix(movie, &matrix);
}

// The duration of the named track in movie units. 0, which trims nothing, if there is no such
// track.
TimeValue LengthOfNamed(const FileOptions& options, Movie movie, const Names& names) {
  const std::string& name = options.lengthReferenceTrack;
  const Track track = TrackNamed(name, movie, names);
  if (track != nullptr) return toolbox::GetTrackDuration(track);
  Warn(options, "could not find track " + utils::Visible(name));
  return 0;
}

// The length that the options give, or that of the shortest or longest track, in movie units.
TimeValue WantedLength(Movie movie, const FileOptions& options) {
  const unsigned source = options.lengthMode & clipjoin::kLengthSource;
  if (source == 0) return Units(movie, options.lengthTarget);
  // The movie is as long as its longest track.
  TimeValue length = toolbox::GetMovieDuration(movie);
  if (source == clipjoin::kLongestTrack) return length;
  for (const Track track : utils::Tracks(movie)) {
    length = std::min(length, toolbox::GetTrackDuration(track));
  }
  return length;
}

// Makes the movie `length` movie units long; for kTrimBy, removes that much. A length that makes no
// sense, such as one after the end, is refused by the toolbox, and the movie stays as it is.
void SetLength(Movie movie, unsigned operation, TimeValue length) {
  const TimeValue duration = toolbox::GetMovieDuration(movie);
  switch (operation) {
    case clipjoin::kScaleTracks:
      for (const Track track : utils::Tracks(movie)) {
        const TimeValue old = toolbox::GetTrackDuration(track);
        if (old != length) std::ignore = toolbox::ScaleTrackSegment(track, 0, old, length);
      }
      break;
    case clipjoin::kScaleMovie:
      std::ignore = toolbox::ScaleMovieSegment(movie, 0, duration, length);
      break;
    case clipjoin::kTrimTo:
      // 0 also means that a named track was not found, so it trims nothing.
      if (length != 0) {
        std::ignore = toolbox::DeleteMovieSegment(movie, length, duration - length);
      }
      break;
    case clipjoin::kTrimBy:
      if (length != duration) {
        std::ignore = toolbox::DeleteMovieSegment(movie, duration - length, length);
      }
      break;
    default:
      break;
  }
}

// Sets the graphics mode of all visual tracks.
void SetTransparency(Movie movie, const FileOptions& options) {
  for (std::int32_t i = 1; i <= toolbox::GetMovieTrackCount(movie); ++i) {
    const Track track = toolbox::GetMovieIndTrackType(movie, i, toolbox::FourCC{"eyes"},
                                                      toolbox::movieTrackCharacteristic);
    if (track == nullptr) break;
    std::ignore =
        toolbox::MediaSetGraphicsMode(toolbox::GetMediaHandler(toolbox::GetTrackMedia(track)),
                                      options.graphicsMode, &options.opColor);
  }
}

// Plays the movie `rate` times as fast. A rate that gives no length above 0 is refused by the
// toolbox, and the movie stays as it is.
void SetRate(Movie movie, double rate) {
  const TimeValue duration = toolbox::GetMovieDuration(movie);
  const double wanted = static_cast<double>(duration) / rate;
  std::ignore = toolbox::ScaleMovieSegment(movie, 0, duration, std::lrint(wanted));
}

}  // namespace

chapter::ChapterList EditMovie(Movie movie, const FileOptions& options) {
  chapter::ChapterList chapters(movie);
  chapter::FilterChapters(movie, options);
  Names names = NeededNames(movie, options);
  // The last track was made from the chapter list and is not in the file, so options ignore it.
  if (chapters.HasTrack() && !names.empty()) names.pop_back();
  SetTimeScale(movie, names, options);
  if (options.removeEditList) utils::RemoveEditLists(movie);

  // Before the tracks are selected: the named track may be one that is removed.
  std::optional<TimeValue> namedLength;
  if ((options.lengthMode & clipjoin::kLengthSource) == clipjoin::kNamedTrack) {
    namedLength = LengthOfNamed(options, movie, names);
  }

  SelectTracks(movie, names, options);
  chapters.Attach(movie);
  TransformTracks(movie, options);
  TransformMovie(movie, options);
  if (options.startAt != 0) {
    std::ignore = toolbox::DeleteMovieSegment(movie, 0, Units(movie, options.startAt));
  }
  if ((options.lengthMode & clipjoin::kChangeLength) != 0) {
    SetLength(movie, options.lengthMode & clipjoin::kLengthOperation,
              namedLength ? *namedLength : WantedLength(movie, options));
  }
  if (options.graphicsMode != 0) SetTransparency(movie, options);
  if (options.rate != 1.0) SetRate(movie, options.rate);
  return chapters;
}

}  // namespace input
