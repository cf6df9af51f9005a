// The 3 x 3 matrix of a movie or track, and the transformations of the plane that compose in it.
#pragma once

#include <cstdint>

#include "toolbox/atoms/header_atoms.h"

namespace toolbox {

// A matrix moves a point (x, y) to (a x + c y + tx, b x + d y + ty); y points down.

// The matrix that applies `first`, then `second`.
Matrix Concatenated(const Matrix& first, const Matrix& second);

// All arguments are 16.16.
Matrix Translation(std::int32_t dx, std::int32_t dy);
// About the point (x, y).
Matrix Scaling(std::int32_t sx, std::int32_t sy, std::int32_t x, std::int32_t y);
// Clockwise on the screen, about the point (x, y). It is exact for multiples of 90 degrees.
Matrix Rotation(std::int32_t degrees, std::int32_t x, std::int32_t y);

}  // namespace toolbox
