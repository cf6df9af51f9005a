// The plan of a self-contained file.
#pragma once

#include <cstdint>

#include "toolbox/plan/plan.h"

namespace toolbox {

struct FlattenOptions {
  bool onlyEnabled = false;  // leave disabled tracks out
  bool interleave = true;  // else one track after the other
  // Files that are interleaved already, and in use from end to end, are copied as they are if they
  // have no more chunks than this. The kernel then copies them as a whole, but the header has all
  // the chunks of the source.
  std::uint64_t mostChunksKept = 0;
};

// Copies every sample that is shown, and what is needed to decode it. The movie must outlive the
// plan. Throws Refused: couldNotResolveDataRef (media that is not there), eofErr (a file that is
// shorter than its movie says), invalidSampleTable (samples without a place), featureUnsupported (a
// part of encrypted samples), and what opening a file throws.
FilePlan PlanFlattened(const MovieRecord& movie, FlattenOptions options);

}  // namespace toolbox
