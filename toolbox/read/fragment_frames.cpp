#include "toolbox/read/fragment_frames.h"

#include <algorithm>
#include <utility>

#include "toolbox/atoms/auxiliary_atoms.h"
#include "toolbox/read/read_samples.h"

namespace toolbox {

void FragmentFrames::Begin() {
  if (media_.Type() != FourCC{"soun"} || media_.descriptions.empty()) return;
  // Sound of which frames have different sizes stays as it is stated.
  const std::uint32_t size = FrameSize(media_.descriptions.front());
  const auto isOther = [size](const SampleDescription& each) { return FrameSize(each) != size; };
  if (std::ranges::any_of(media_.descriptions, isOther)) return;
  const bool hasFrames = rows_.packings.empty() && rows_.constantSize == size &&
                         rows_.times.size() == 1 && rows_.times.back().delta == 1;
  if (rows_.count != 0 && !hasFrames) return;
  size_ = size;
  count_ = rows_.count;
  chunks_ = rows_.chunkRuns;
}

void FragmentFrames::Add(const TrackRun& run, const FragmentSample& defaults, std::uint64_t size,
                         std::uint32_t description) {
  if (size_ == 0) return;
  bool isWhole = size != 0;
  run.ForEach(defaults, [&](std::uint32_t, const FragmentSample& sample) {
    isWhole = isWhole && sample.size % size_ == 0;
  });
  const std::uint64_t frames = size / size_;
  count_ += frames;
  if (!isWhole || count_ > UINT32_MAX ||
      rows_.duration != MediaTime{static_cast<std::int64_t>(count_)}) {
    size_ = 0;
    return;
  }
  chunks_.Add(static_cast<std::uint32_t>(rows_.chunkOffsets.Count() - 1), 1,
              static_cast<std::uint32_t>(frames), description);
}

bool FragmentFrames::Finish() {
  // Tables for the stated samples cannot be kept. Uncompressed sound has none as a rule.
  const bool hasMore = !rows_.offsets.IsEmpty() || !rows_.groups.empty() ||
                       FindSibling(rows_.otherTables, AuxiliarySizes::kType) != nullptr;
  if (size_ == 0 || hasMore || count_ == rows_.count) return false;
  rows_.count = static_cast<std::uint32_t>(count_);
  rows_.constantSize = size_;
  rows_.sizes = {};
  rows_.chunkRuns = std::move(chunks_);
  rows_.times.clear();
  rows_.times.push_back({0, 1, {}});
  rows_.sync.reset();
  return true;
}

}  // namespace toolbox
