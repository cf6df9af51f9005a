// The bytes of single samples, wherever they lie.
#pragma once

#include <memory>
#include <optional>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/media.h"

namespace toolbox {

// The file or block of memory that samples lie in; `ownFile` is what ThisFile means. Throws
// Refused: couldNotResolveDataRef, and what opening a file throws.
std::unique_ptr<ByteSource> OpenSource(const DataReference& reference,
                                       const std::optional<OtherFile>& ownFile);

// The samples [first, first + count) in one piece: one, or the packet that it is part of.
struct SampleData {
  std::uint64_t first = 0;
  std::uint32_t count = 0;
  std::uint32_t description = 0;  // index
  Bytes bytes;
};

// Reads the sample; its file is open only meanwhile. `longest`: bytes it may have, 0 for any
// number. Throws Refused: invalidSampleTable (a sample that lies nowhere), couldNotResolveDataRef,
// maxSizeToGrowTooSmall, eofErr, and what opening a file throws.
SampleData ReadSample(const MediaRecord& media, std::uint64_t sample, std::uint64_t longest);

}  // namespace toolbox
