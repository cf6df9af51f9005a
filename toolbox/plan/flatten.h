// Plans a self-contained file, which has all its media data.
#pragma once

#include <cstdint>

#include "toolbox/plan/plan.h"

namespace toolbox {

struct FlattenOptions {
  bool onlyEnabled = false;  // leave disabled tracks out
  bool interleave = true;  // otherwise one track after the other
  // Samples are copied in the order of their files if the files are interleaved already, are used
  // without a gap, and have at most this many chunks. That is fast, because the kernel copies large
  // blocks, but the header then has all the chunks of the source. 0: never.
  std::uint64_t maxChunksKept = 0;
  // FilePlan::unit. If it is not 1, a large movie keeps the order of its files even if that takes
  // more chunks.
  std::uint64_t unit = 1;
};

// Plans to copy every sample that is shown and every sample needed to decode those. The movie must
// outlive the plan. Throws Refused: couldNotResolveDataRef (a media file is missing), eofErr (a
// file is shorter than its sample table says), invalidSampleTable (a sample is in no chunk),
// featureUnsupported (only a part of encrypted samples is used), and what opening a file throws.
FilePlan PlanFlattened(const MovieRecord& movie, FlattenOptions options);

}  // namespace toolbox
