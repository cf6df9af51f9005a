#include "toolbox/movie/sample_columns.h"

namespace toolbox {

std::optional<std::uint32_t> ConstantSize(const SampleTable& samples) {
  if (samples.Count() == 0) return std::nullopt;
  const std::uint32_t size = samples.Slices().front().rows->constantSize;
  const bool isShared = std::ranges::all_of(samples.Slices(), [size](const SampleSlice& slice) {
    return slice.rows->constantSize == size;
  });
  return isShared && size != 0 ? std::optional(size) : std::nullopt;
}

bool HasOffsets(const SampleTable& samples) {
  return std::ranges::any_of(samples.Slices(), &SampleSlice::HasOffsets);
}

std::uint32_t OffsetsVersion(const SampleTable& samples) {
  std::uint32_t version = 0;
  for (const SampleSlice& slice : samples.Slices()) {
    // A shift below 0 can make an offset negative in a file that had none.
    version = std::max(version, slice.shift < 0 ? 1U : slice.rows->offsetsVersion);
  }
  return version;
}

bool HasOffsetsBelowZero(const SampleTable& samples) {
  bool isBelow = false;
  ForEachOffset(samples, [&](std::uint32_t, std::int32_t offset) { isBelow |= offset < 0; });
  return isBelow;
}

bool HasSyncTable(const SampleTable& samples) {
  return std::ranges::any_of(samples.Slices(),
                             [](const SampleSlice& slice) { return slice.rows->sync.has_value(); });
}

}  // namespace toolbox
