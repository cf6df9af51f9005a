// The 3 x 3 matrix of a movie or track, in the order of files: a b u c d v tx ty w.
#pragma once

#include <array>
#include <cstdint>

namespace toolbox {

// a to d, tx and ty are 16.16; u, v and w are 2.30.
using Matrix = std::array<std::int32_t, 9>;

inline constexpr Matrix kIdentityMatrix{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};

}  // namespace toolbox
