// The samples that a track shows, in movie time.
#pragma once

#include <optional>

#include "toolbox/movie/track.h"

namespace toolbox {

// The movie times at which one edit shows a sample.
struct ShownSample {
  MovieTime start, duration;
  friend bool operator==(const ShownSample&, const ShownSample&) = default;
};

// The next sample that starts to be shown after `from`, or at `from` if `atFromToo`. A sample
// starts with the first movie unit at which it is shown; a sample between two units is skipped.
// O(log n) in edits and samples.
//
//   samples  |  0  |  1  |2|3|   4   |
//   movie    '   '   '   '   '   '   '    a sample starts at the first ' at or after its |
std::optional<ShownSample> NextShownSample(const TrackRecord& track, MovieTime from,
                                           bool atFromToo);

// The media time shown at `time`; nothing in an empty edit or outside the track.
std::optional<MediaTime> MediaTimeAt(const TrackRecord& track, MovieTime time);

}  // namespace toolbox
