#include "toolbox/movie/track.h"

#include <algorithm>
#include <utility>

#include "toolbox/movie/movie.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// The list that has the reference `number`, counted from 1. `number` becomes its index there.
template <class Lists>
auto FindReference(Lists& lists, FourCC type, std::size_t& number) {
  if (number-- == 0) return lists.end();
  return std::ranges::find_if(lists, [&](const TrackReferences& list) {
    if (list.type != type) return false;
    if (number < list.targets.size()) return true;
    number -= list.targets.size();
    return false;
  });
}

}  // namespace

Clock TrackRecord::TimeClock() const {
  const std::int32_t scale = movie->header.scale;
  return {scale, media ? media->header.scale : scale};
}

MediaRecord& TrackRecord::SetMedia(MediaRecord record) {
  media = std::move(record);
  media->track = this;
  return *media;
}

void TrackRecord::Refer(FourCC type, TrackRecord& target) {
  const bool isThere = std::ranges::any_of(references, [&](const TrackReferences& list) {
    return list.type == type && std::ranges::find(list.targets, &target) != list.targets.end();
  });
  if (!isThere) AddReference(type, target);
}

std::size_t TrackRecord::CountReferences(FourCC type) const {
  std::size_t count = 0;
  for (const TrackReferences& list : references) {
    if (list.type == type) count += list.targets.size();
  }
  return count;
}

TrackRecord* TrackRecord::Reference(FourCC type, std::size_t number) const {
  const auto found = FindReference(references, type, number);
  return found == references.end() ? nullptr : found->targets[number];
}

std::size_t TrackRecord::AddReference(FourCC type, TrackRecord& target) {
  const auto last =
      std::ranges::find(references.rbegin(), references.rend(), type, &TrackReferences::type);
  TrackReferences& list =
      last == references.rend() ? references.emplace_back(TrackReferences{type, {}}) : *last;
  list.targets.push_back(&target);
  return CountReferences(type);
}

void TrackRecord::RemoveReference(FourCC type, std::size_t number) {
  const auto found = FindReference(references, type, number);
  if (found == references.end()) throw Refused{badTrackIndex};
  found->targets.erase(found->targets.begin() + static_cast<std::ptrdiff_t>(number));
  if (found->targets.empty()) references.erase(found);
}

}  // namespace toolbox
