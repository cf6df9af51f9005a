#include "toolbox/movie/matrix.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace toolbox {
namespace {

constexpr double kFixed = 65536.0;
constexpr double kFract = 1073741824.0;  // the last of each row: 2.30

// How many units of each element make 1.0, row by row.
constexpr std::array<double, 9> kUnitsPerOne{kFixed, kFixed, kFract, kFixed, kFixed,
                                             kFract, kFixed, kFixed, kFract};

// The matrix of real numbers, rounded to what files hold.
Matrix Rounded(const std::array<double, 9>& values) {
  Matrix matrix;
  for (std::size_t i = 0; i < matrix.size(); ++i) {
    const double units = std::round(values[i] * kUnitsPerOne[i]);
    matrix[i] = static_cast<std::int32_t>(std::clamp(units, double{INT32_MIN}, double{INT32_MAX}));
  }
  return matrix;
}

double Real(std::int32_t fixed) { return fixed / kFixed; }

// The linear map (a b / c d) around the point (x, y), which does not move.
Matrix About(double a, double b, double c, double d, std::int32_t x, std::int32_t y) {
  const double px = Real(x), py = Real(y);
  return Rounded({a, b, 0, c, d, 0, px - a * px - c * py, py - b * px - d * py, 1});
}

}  // namespace

Matrix Concatenated(const Matrix& first, const Matrix& second) {
  std::array<double, 9> product{};
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t column = 0; column < 3; ++column) {
      for (std::size_t i = 0; i < 3; ++i) {
        product[3 * row + column] += first[3 * row + i] / kUnitsPerOne[3 * row + i] *
                                     (second[3 * i + column] / kUnitsPerOne[3 * i + column]);
      }
    }
  }
  return Rounded(product);
}

Matrix Translation(std::int32_t dx, std::int32_t dy) {
  return {0x10000, 0, 0, 0, 0x10000, 0, dx, dy, 0x40000000};
}

Matrix Scaling(std::int32_t sx, std::int32_t sy, std::int32_t x, std::int32_t y) {
  return About(Real(sx), 0, 0, Real(sy), x, y);
}

Matrix Rotation(std::int32_t degrees, std::int32_t x, std::int32_t y) {
  constexpr std::int32_t kQuarter = 90 << 16;
  const double angle = Real(degrees) * std::numbers::pi / 180;
  double cosine = std::cos(angle), sine = std::sin(angle);
  if (degrees % kQuarter == 0) {
    // The library's sine and cosine of 90 degrees are not exactly 1 and 0.
    cosine = std::round(cosine);
    sine = std::round(sine);
  }
  return About(cosine, sine, -sine, cosine, x, y);
}

}  // namespace toolbox
