// Finds the samples of a media that a track shows, or needs to decode those that it shows.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/movie/track.h"

namespace toolbox {

// A range of samples and the first edit that needs them. `edit` is null if no edit can show them.
// It belongs to the track, which must outlive this.
struct UsedSamples {
  SampleRange samples;
  const Edit* edit = nullptr;
};

// The samples that an edit needs: those that it shows, and all samples from the sync sample before
// them. Compressed sound also needs packets before that. Empty if the edit shows
// nothing.
UsedSamples SamplesFor(const TrackRecord& track, const Edit& edit);

// All samples in use, in the order of the media, each once. Each range has the edit that needs it
// first in movie time.
std::vector<UsedSamples> SamplesInUse(const TrackRecord& track);

// The movie time at which the edit of `used` first shows the sample. If the edit needs the sample
// but does not show it, the start of the edit. `sample` is a number in the sample table of the
// media.
MovieTime FirstShown(const TrackRecord& track, const UsedSamples& used, std::uint64_t sample);

}  // namespace toolbox
