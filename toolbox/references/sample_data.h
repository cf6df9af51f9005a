// Reads the bytes of single samples, from any file of the media.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"
#include "toolbox/movie/media.h"

namespace toolbox {

// The bytes of the samples [first, first + count). This is one sample, or the whole packet that it
// is part of, because packets cannot be split.
struct SampleData {
  std::uint64_t first = 0;
  std::uint32_t count = 0;
  std::uint32_t description = 0;  // index in MediaRecord::descriptions
  Bytes bytes;
};

// Reads the sample with index `sample` and closes its file again. `maxSize` limits its size in
// bytes; 0 is no limit. Throws Refused: invalidSampleTable (the sample has no place in a file),
// couldNotResolveDataRef (its file is not found), maxSizeToGrowTooSmall (more than `maxSize`
// bytes), eofErr (the file ends before it), and what opening a file throws.
SampleData ReadSample(const MediaRecord& media, std::uint64_t sample, std::uint64_t maxSize);

}  // namespace toolbox
