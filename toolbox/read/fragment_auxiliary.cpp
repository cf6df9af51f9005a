#include "toolbox/read/fragment_auxiliary.h"

#include "toolbox/refused.h"

namespace toolbox {

void FragmentAuxiliary::Add(const Part& part) {
  if (!part.kind) return;
  if (kind_ && !kind_->IsSame(*part.kind)) {
    throw Refused{featureUnsupported, "two kinds of auxiliary information"};
  }
  kind_ = part.kind;
  // Earlier samples and chunks without information get size and offset 0.
  sizes_.resize(rows_.count);
  offsets_.resize(rows_.chunkOffsets.Count());
  sizes_.insert(sizes_.end(), part.sizes.begin(), part.sizes.end());
  offsets_.push_back(part.at);
}

void FragmentAuxiliary::Finish() {
  if (!kind_) return;
  sizes_.resize(rows_.count);
  offsets_.resize(rows_.chunkOffsets.Count());
  // The version and the other flags are those of a fragment, so only this flag is kept.
  kind_->versionAndFlags &= AuxiliaryKind::kIsStated;
  Siblings& tables = rows_.otherTables;
  tables.push_back({AuxiliarySizes::kType, Encode(AuxiliarySizes::Of(*kind_, sizes_))});
  tables.push_back({AuxiliaryOffsets::kType, Encode(AuxiliaryOffsets::Of(*kind_, offsets_))});
}

}  // namespace toolbox
