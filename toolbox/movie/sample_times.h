// Between the times of a track and the samples that its media shows then.
#pragma once

#include <optional>

#include "toolbox/movie/track.h"

namespace toolbox {

// A sample on show, as far as one edit shows it.
struct SampleOnShow {
  MovieTime start, duration;
  friend bool operator==(const SampleOnShow&, const SampleOnShow&) = default;
};

// The next sample that begins to be shown after `from`, or at `from` when `atFromToo`. A sample
// begins with the first movie unit in which it is on show; one that is on show in none is passed
// over. O(log n) in edits and samples.
//
//   samples  |  0  |  1  |2|3|   4   |
//   movie    '   '   '   '   '   '   '    each begins at the first ' at or behind its |
std::optional<SampleOnShow> NextSampleOnShow(const TrackRecord& track, MovieTime from,
                                             bool atFromToo);

// What is shown at `time`; nothing in an empty stretch or outside the track.
std::optional<MediaTime> MediaTimeAt(const TrackRecord& track, MovieTime time);

}  // namespace toolbox
