// The edits of a track: which stretch of its media is shown when.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "toolbox/movie/time.h"

namespace toolbox {

struct Edit {
  MovieTime start;  // where it stands in the movie
  MovieTime duration;  // > 0
  MediaTime mediaTime;  // what is shown first; kNothing for a stretch without media
  double rate = 1.0;  // media seconds shown a movie second; 1.0 where nothing is shown

  static constexpr MediaTime kNothing{-1};
  bool IsEmpty() const { return mediaTime == kNothing; }
  MovieTime End() const { return start + duration; }
  friend bool operator==(const Edit&, const Edit&) = default;
};

// Edits one behind the other from movie time 0, always in normal form: none without length,
// neighbours that continue one another merged, no empty stretch at the end.
//
// An edit list does not know its scales: every change that cuts or joins edits is told the Clock.
class EditList {
 public:
  EditList() = default;

  const std::vector<Edit>& Edits() const { return edits_; }
  // Where the last edit ends.
  MovieTime Duration() const { return edits_.empty() ? MovieTime{} : edits_.back().End(); }
  // The length of the empty stretch in front.
  MovieTime Offset() const;

  // Adds one edit behind the last; whoever adds an empty one follows it up, or calls TrimEnd.
  void Append(MovieTime duration, MediaTime mediaTime, double rate, Clock clock);

  // Adds an edit that shows `length` media units behind the last. Where the last ends, to the unit
  // of the movie, with what this one starts with, both become one that is rounded once: parts that
  // follow one another in the media never drift, however many they are.
  void AppendMedia(MediaTime mediaTime, MediaTime length, double rate, Clock clock);

  // Lays `other` in at `at` and moves what follows right by `length`, at least other.Duration(). A
  // gap in front or behind becomes an empty edit.
  //
  //   |   A   |   B   |            |   A   | other |   B   |
  //           ^ at            ->           |<length>
  void Insert(const EditList& other, MovieTime at, MovieTime length, Clock clock);

  // Takes [from, from + length) out and closes the gap; an edit cut in its middle becomes two.
  //
  //   |   A   |   B   |            |  A |  B  |
  //        ^---^              ->
  void Delete(MovieTime from, MovieTime length, Clock clock);

  // Makes [from, from + length) last `newLength`, both above 0, and moves what follows. What is
  // shown stays what it was; an edit that is left without a unit is gone.
  //
  //   |   A   |   B   |            |   A  |     |     |  B  |
  //        ^---^              ->
  void Scale(MovieTime from, MovieTime length, MovieTime newLength, Clock clock);

  // The edits within [from, from + length), moved to start at 0.
  EditList Segment(MovieTime from, MovieTime length, Clock clock) const;

  // Cuts what edits show beyond the media's end `end`: there is nothing to be seen.
  void EndWithMedia(MediaTime end, Clock clock);

  // Moves every boundary b to place(b), which must be monotone with place(0) = 0. What an edit
  // shows stays what it was when `keepsSpan` (its rate changes), else its rate stays.
  void MapBoundaries(const std::function<MovieTime(MovieTime)>& place, bool keepsSpan, Clock clock);

  // Takes away an empty stretch at the end: space after the last thing shown is no part of a track.
  void TrimEnd();

  // Shows other media instead: every media time becomes place(it).
  void MapMedia(const std::function<MediaTime(MediaTime)>& place);

  friend bool operator==(const EditList&, const EditList&) = default;

 private:
  // Ends an edit at `at`, if one stands across it, and returns the index of the first edit from
  // there.
  std::size_t Split(MovieTime at, Clock clock);
  void Add(Edit edit, Clock clock);

  std::vector<Edit> edits_;
};

}  // namespace toolbox
