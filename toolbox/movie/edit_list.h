// The edits of a track: which part of its media is shown when. ISO/IEC 14496-12 8.6.6.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "toolbox/movie/time.h"

namespace toolbox {

// Shows media from `mediaTime` on for `duration` movie units, or nothing if the edit is empty.
struct Edit {
  MovieTime start;
  MovieTime duration;  // > 0
  MediaTime mediaTime;  // kNothing: an empty edit
  double rate = 1.0;  // seconds of media shown in a second of the movie; 1.0 in an empty edit

  static constexpr MediaTime kNothing{-1};
  bool IsEmpty() const { return mediaTime == kNothing; }
  MovieTime End() const { return start + duration; }
  // The media time that it shows `into` movie units after its start; it must not be empty.
  MediaTime ShownAt(MovieTime into, Clock clock, Rounding rounding = Rounding::kNearest) const {
    return mediaTime + clock.Shown(into, rate, rounding);
  }
  friend bool operator==(const Edit&, const Edit&) = default;
};

// Edits without gaps from movie time 0 on, always in normal form: no edit has length 0, neighbors
// that continue one another are one edit, and the last edit is not empty.
//
// An edit list does not know its time scales. Each change that cuts or joins edits takes a Clock.
// In the pictures A and B are edits, and - - is an empty edit.
class EditList {
 public:
  const std::vector<Edit>& Edits() const { return edits_; }
  // Where the last edit ends.
  MovieTime Duration() const { return edits_.empty() ? MovieTime{} : edits_.back().End(); }
  // The length of the empty edit at the start.
  MovieTime Offset() const;

  // Makes room for that many edits, so that none of them is moved while others are added.
  void Reserve(std::size_t count) { edits_.reserve(count); }

  // Adds an edit after the last. After an empty one, append another edit or call TrimEnd.
  //
  //   |   A   |                    |   A   |  new  |
  //                           ->           |<dur. >|
  void Append(MovieTime duration, MediaTime mediaTime, double rate, Clock clock);

  // Adds an edit after the last that shows `length` media units from `mediaTime` on. If the media
  // continue where the last edit ends, that edit becomes longer instead. Its length is rounded to
  // movie units only once, so the boundaries do not drift however many parts follow one another.
  //
  //   |   A   |                    |   A   |  new  |       or   |   A + new   |
  //                           ->
  void AppendMedia(MediaTime mediaTime, MediaTime length, double rate, Clock clock);

  // Inserts `other` at `at`. What follows moves right by `length`, at least other.Duration(). A gap
  // before or after `other` becomes an empty edit.
  //
  //   |   A   |   B   |            |   A   | other |   B   |
  //           ^ at            ->           |<length>
  void Insert(const EditList& other, MovieTime at, MovieTime length, Clock clock);

  // Removes [from, from + length) and closes the gap. An edit cut in its middle becomes two.
  //
  //   |   A   |   B   |            |  A |  B  |
  //        ^---^              ->
  void Delete(MovieTime from, MovieTime length, Clock clock);

  // Makes [from, from + length) last `newLength`, both above 0, and moves what follows. It shows
  // the same media at another rate. An edit that would last less than a movie unit is removed.
  //
  //   |   A   |   B   |            |   A  |     |     |  B  |
  //        ^---^              ->
  void Scale(MovieTime from, MovieTime length, MovieTime newLength, Clock clock);

  // The edits within [from, from + length), moved to start at 0.
  //
  //   |   A   |   B   |            | A |  B  |
  //       ^---------^         ->   0
  EditList Segment(MovieTime from, MovieTime length, Clock clock) const;

  // Replaces the parts of edits after the end of the media by empty edits. They show nothing
  // anyway.
  //
  //   |   A   |   B   |            | A |- -|   B   |
  //       ^ end of the media  ->
  void EndWithMedia(MediaTime end, Clock clock);

  // Moves every boundary b between edits to place(b), which must be monotone with place(0) = 0. If
  // `keepsSpan`, an edit shows the same media at another rate; else it keeps its rate.
  //
  //   |   A   |   B   |            |     A     |  B  |
  //   0       b           ->       0           place(b)
  void MapBoundaries(const std::function<MovieTime(MovieTime)>& place, bool keepsSpan, Clock clock);

  // Removes an empty edit at the end: a track ends with the last media it shows.
  //
  //   |   A   |- - - -|            |   A   |
  //                           ->
  void TrimEnd();

  // Shows other media at the same times: replaces the media time t of each edit by place(t).
  void MapMedia(const std::function<MediaTime(MediaTime)>& place);

  friend bool operator==(const EditList&, const EditList&) = default;

 private:
  // Cuts the edit around `at` in two, if there is one. Returns the first edit from `at` on. This
  // invalidates all other iterators.
  std::vector<Edit>::iterator Split(MovieTime at, Clock clock);
  // Adds an edit after the last. A gap before it becomes an empty edit.
  void Add(Edit edit, Clock clock);

  std::vector<Edit> edits_;
};

}  // namespace toolbox
