// The bytes of single samples, whichever file they are in.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"
#include "toolbox/movie/media.h"

namespace toolbox {

// The samples [first, first + count) in one piece: one sample, or the packet that it is part of.
struct SampleData {
  std::uint64_t first = 0;
  std::uint32_t count = 0;
  std::uint32_t description = 0;  // index
  Bytes bytes;
};

// Reads the sample and closes its file again. It may have up to `longest` bytes, any number when
// that is 0. Throws Refused: invalidSampleTable (the sample has no place in a file),
// couldNotResolveDataRef, maxSizeToGrowTooSmall, eofErr, and what opening a file throws.
SampleData ReadSample(const MediaRecord& media, std::uint64_t sample, std::uint64_t longest);

}  // namespace toolbox
