#include "toolbox/read/fragment_auxiliary.h"

#include <utility>

#include "toolbox/refused.h"

namespace toolbox {

std::vector<FragmentAuxiliary::Part> FragmentAuxiliary::Split(const AuxiliarySizes& sizes,
                                                              const AuxiliaryOffsets& offsets,
                                                              std::uint64_t base,
                                                              std::span<const std::uint32_t> runs) {
  const std::vector<std::uint64_t> places = offsets.Offsets();
  const bool isOneEach = places.size() == runs.size();
  if (!sizes.IsComplete() || !sizes.kind.IsSame(offsets.kind) ||
      (!isOneEach && places.size() != 1)) {
    throw Refused{featureUnsupported};
  }
  std::vector<Part> parts;
  std::uint64_t sample = 0, next = places.front();
  for (std::size_t i = 0; i < runs.size(); ++i) {
    // With one offset for all, the information of a run follows that of the run before.
    if (isOneEach) next = places[i];
    Part& part = parts.emplace_back(Part{sizes.kind, base + next, Bytes(runs[i])});
    for (std::uint8_t& size : part.sizes) size = sizes.SizeOf(sample++);
    next += sizes.Sum(sample - runs[i], sample);
  }
  return parts;
}

void FragmentAuxiliary::Add(const Part& part, std::uint32_t samples) {
  if (part.kind) {
    if (kind_ && !kind_->IsSame(*part.kind)) throw Refused{featureUnsupported};
    kind_ = part.kind;
    // Earlier samples and chunks without information get size and offset 0.
    sizes_.resize(samples_);
    offsets_.resize(chunks_);
    sizes_.insert(sizes_.end(), part.sizes.begin(), part.sizes.end());
    offsets_.push_back(part.at);
  }
  samples_ += samples;
  ++chunks_;
}

void FragmentAuxiliary::PutTables(Siblings& tables) const {
  if (!kind_) return;
  Bytes sizes = sizes_;
  sizes.resize(samples_);
  std::vector<std::uint64_t> offsets = offsets_;
  offsets.resize(chunks_);
  // The version and the other flags are those of a fragment, so only this flag is kept.
  AuxiliaryKind kind = *kind_;
  kind.versionAndFlags &= AuxiliaryKind::kIsStated;
  tables.push_back({AuxiliarySizes::kType, Encode(AuxiliarySizes::Of(kind, std::move(sizes)))});
  tables.push_back({AuxiliaryOffsets::kType, Encode(AuxiliaryOffsets::Of(kind, offsets))});
}

}  // namespace toolbox
