#include "toolbox/plan/reference.h"

#include <algorithm>
#include <variant>

#include "toolbox/plan/planner.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// Plans to copy all used samples of every track that has media in memory. Other tracks stay in
// place.
void CopyMemory(FilePlan& plan, Planner& planner) {
  for (std::size_t i = 0; i < plan.tracks.size(); ++i) {
    const auto& media = plan.movie->tracks[i]->media;
    const bool isInMemory =
        media && std::ranges::any_of(media->dataReferences, [](const DataReference& reference) {
          return std::holds_alternative<InMemory>(reference);
        });
    if (!isInMemory) continue;
    planner.Prepare(i);
    planner.Cut({i});
    SamplePlaces& places = plan.tracks[i].places;
    // The track uses none of its samples.
    if (std::get<PackedChunks>(places).empty()) places = StaysInPlace{};
  }
  planner.Arrange(true);
}

}  // namespace

FilePlan PlanReference(const MovieRecord& movie) {
  FilePlan plan;
  Planner planner(movie, plan);
  // An offset cannot locate data in another file, so the data comes along.
  planner.AddGps();
  planner.DropSystems();
  CopyMemory(plan, planner);
  for (std::size_t i = 0; i < plan.tracks.size(); ++i) {
    auto& media = plan.movie->tracks[i]->media;
    if (!media || !std::holds_alternative<StaysInPlace>(plan.tracks[i].places)) continue;
    // In the new file, ThisFile would mean the new file.
    for (DataReference& reference : media->dataReferences) {
      if (!std::holds_alternative<ThisFile>(reference)) continue;
      if (!movie.file) throw Refused{couldNotResolveDataRef};
      reference = *movie.file;
    }
  }
  return plan;
}

FilePlan PlanUpdate(const MovieRecord& movie) {
  FilePlan plan;
  plan.kind = FileKind::kUnchanged;
  Planner planner(movie, plan);
  CopyMemory(plan, planner);
  return plan;
}

}  // namespace toolbox
