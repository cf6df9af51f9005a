// The 3 x 3 matrix of a movie or track, and the transformations of the plane that compose in it.
#pragma once

#include <array>
#include <cstdint>

namespace toolbox {

// In the order of files: a b u c d v tx ty w; a to d, tx and ty are 16.16, u, v and w are 2.30. A
// point (x, y) goes to (a x + c y + tx, b x + d y + ty); y grows downwards.
using Matrix = std::array<std::int32_t, 9>;

inline constexpr Matrix kIdentityMatrix{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};

// First `first`, then `second`.
Matrix Concatenated(const Matrix& first, const Matrix& second);

// All arguments are 16.16.
Matrix Translation(std::int32_t dx, std::int32_t dy);
// About the point (x, y).
Matrix Scaling(std::int32_t sx, std::int32_t sy, std::int32_t x, std::int32_t y);
// Clockwise on the screen, about the point (x, y); exact for multiples of 90 degrees.
Matrix Rotation(std::int32_t degrees, std::int32_t x, std::int32_t y);

}  // namespace toolbox
