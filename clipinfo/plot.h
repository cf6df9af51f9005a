// Where times are in a picture of a time line.
#pragma once

#include <algorithm>
#include <cstdint>

#include "toolbox/movie/time.h"

namespace clipinfo {

// The area right of the names of the tracks. Lengths are in pixels.
struct Plot {
  static constexpr double kPage = 1200, kMargin = 24, kLeft = 220, kRight = kPage - kMargin;
  static constexpr double kWidth = kRight - kLeft;

  double seconds = 0;  // how long the time line is

  // Where a time is; times outside are at the nearer end.
  double At(double time) const {
    return seconds > 0 ? kLeft + kWidth * std::clamp(time / seconds, 0.0, 1.0) : kLeft;
  }
  template <class Line>
  double At(toolbox::Time<Line> time, std::int32_t scale) const {
    return At(static_cast<double>(time.units) / scale);
  }
  // As many units as fit into some pixels, at least 1.
  template <class Line>
  toolbox::Time<Line> Within(double pixels, std::int32_t scale) const {
    const double units = std::min(pixels / kWidth * seconds * scale, 1e18);
    return {std::max<std::int64_t>(1, static_cast<std::int64_t>(units))};
  }
};

}  // namespace clipinfo
