// When the samples of a table are shown, which may be in another order than they are decoded in.
#pragma once

#include <cstdint>
#include <optional>

#include "toolbox/movie/sample_table.h"

namespace toolbox {

// When a sample starts to be shown: its decode time and its offset, ISO/IEC 14496-12 8.6.1.3. In
// the order of these times, each sample is shown until the next one starts.
MediaTime ShownAt(const SampleTable& samples, std::uint64_t sample);

// The samples to decode for the times [from, to): those shown then and all between them in decode
// order, but not the earlier ones that they depend on. Empty if none is shown.
//
//   decoded   |  0  |  1  |  2  |  3  |
//   shown     |  0  |  2  |  3  |  1  |
//                      ^-----^             samples 2 and 3: {2, 4}
SampleRange SamplesShownIn(const SampleTable& samples, MediaTime from, MediaTime to);

// How many samples SamplesShownIn looks at to find the one that is shown at `time`: at most a few,
// unless the offsets of the table differ by very much.
std::uint64_t CountCandidates(const SampleTable& samples, MediaTime time);

// When the next sample after `time` starts to be shown; nothing after the last.
std::optional<MediaTime> NextShownAfter(const SampleTable& samples, MediaTime time);

}  // namespace toolbox
