// Which samples of a media a track shows, and which of them it needs only to decode those.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/movie/track.h"

namespace toolbox {

// Samples, and the first edit that needs them; null where no edit can show them.
struct UsedSamples {
  SampleRange samples;
  const Edit* edit = nullptr;
};

// What an edit needs: the samples it shows and all from the sync sample before them; for compressed
// sound also what a decoder has to hear first. Empty when it shows nothing.
UsedSamples SamplesFor(const TrackRecord& track, const Edit& edit);

// All samples in use, in their order, each once: with the first edit in movie time that needs it.
std::vector<UsedSamples> SamplesInUse(const TrackRecord& track);

// The movie time at which the first edit that needs a sample shows it first; the start of that edit
// for a sample it does not show.
MovieTime FirstShown(const TrackRecord& track, const UsedSamples& used, std::uint64_t sample);

}  // namespace toolbox
