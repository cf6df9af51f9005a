// Finds the data that 'gps ' of a dashcam locates, and states its new place.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "toolbox/plan/plan.h"

namespace toolbox {

// The blocks that the first 'gps ' of the movie locates, in the order of the atom; `destination` is
// not set. `fileSize`, in bytes, is that of the movie's own file, which has the blocks. The result
// is empty if there is no such atom, or if it cannot be what it seems: a block is outside the file,
// blocks overlap, or all of them have more than 1 GiB.
std::vector<CopyRange> FindGpsData(const MovieRecord& movie, std::uint64_t fileSize);

// Gives the blocks that FindGpsData has found these offsets, in bytes from the start of the file.
// `siblings` are those of the movie. Changes nothing and returns false if an offset has more than
// 32 bits, because the atom has no room for it.
bool SetGpsOffsets(Siblings& siblings, std::span<const std::uint64_t> offsets);

}  // namespace toolbox
