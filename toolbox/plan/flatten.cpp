#include "toolbox/plan/flatten.h"

#include <algorithm>
#include <vector>

#include "toolbox/plan/in_step.h"
#include "toolbox/plan/planner.h"
#include "toolbox/plan/used_samples.h"

namespace toolbox {
namespace {

// Whether the edits need every sample of the track.
bool UsesAllSamples(const TrackRecord& track) {
  if (!track.media) return true;
  std::uint64_t count = 0;
  for (const UsedSamples& part : SamplesInUse(track)) count += part.samples.Count();
  return count == track.media->samples.Count();
}

// Whether the track is a hint track that would be wrong in the output. Its packets refer to samples
// by number, and the numbers change if samples or whole tracks are left out.
bool IsBrokenHint(const TrackRecord& track, bool onlyEnabled) {
  if (!track.media || track.media->Type() != FourCC{"hint"}) return false;
  if (!UsesAllSamples(track)) return true;
  return std::ranges::any_of(track.references, [&](const TrackReferences& list) {
    return std::ranges::any_of(list.targets, [&](const TrackRecord* target) {
      return target == nullptr || !UsesAllSamples(*target) || (onlyEnabled && !target->IsEnabled());
    });
  });
}

}  // namespace

FilePlan PlanFlattened(const MovieRecord& movie, FlattenOptions options) {
  FilePlan plan;
  plan.unit = options.unit;
  plan.ownSource = LaidOutInStep(movie);
  Planner planner(plan.ownSource ? *plan.ownSource : movie, plan);
  planner.AddGps();
  planner.DropSystems();
  // The loop starts at the end, because Drop changes the indexes of the tracks after it.
  for (std::size_t i = plan.tracks.size(); i-- > 0;) {
    const TrackRecord& track = *plan.tracks[i].source;
    const bool isBroken = IsBrokenHint(track, options.onlyEnabled);
    if (isBroken || (options.onlyEnabled && !track.IsEnabled())) planner.Drop(i);
    // The hint information of the movie ('hnti') belongs to the hint tracks.
    if (isBroken)
      std::erase_if(plan.movie->userData.items,
                    [](const UserDataItem& item) { return item.type == FourCC{"hnti"}; });
  }
  std::vector<std::size_t> withMedia;
  for (std::size_t i = 0; i < plan.tracks.size(); ++i) {
    if (plan.tracks[i].source->media) withMedia.push_back(i);
  }
  for (const std::size_t i : withMedia) planner.Prepare(i);
  // Copy the files as they are, if possible. Otherwise cut and interleave the samples.
  if (!planner.KeepPlaces(options.maxChunksKept)) {
    plan.unit = 1;  // chunks are too small to be shared
    planner.Cut(withMedia);
    planner.Arrange(options.interleave);
  }
  for (const std::size_t i : withMedia) planner.AddAuxiliary(i);
  return plan;
}

}  // namespace toolbox
