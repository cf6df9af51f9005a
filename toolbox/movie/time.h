// Times with the time line in their type, and the only conversion from one time scale to another.
#pragma once

#include <cmath>
#include <compare>
#include <cstdint>
#ifndef __SIZEOF_INT128__
#include <boost/multiprecision/cpp_int.hpp>
#endif

namespace toolbox {

#ifdef __SIZEOF_INT128__
__extension__ using Wide = __int128;
#else  // a 32-bit machine
using Wide = boost::multiprecision::int128_t;
#endif

// A point or a length on one time line, in units of that line's scale.
template <class Line>
struct Time {
  std::int64_t units = 0;

  friend constexpr auto operator<=>(Time, Time) = default;
  friend constexpr Time operator+(Time a, Time b) { return {a.units + b.units}; }
  friend constexpr Time operator-(Time a, Time b) { return {a.units - b.units}; }
  constexpr Time& operator+=(Time other) { return *this = *this + other; }
};
using MovieTime = Time<struct MovieLine>;
using MediaTime = Time<struct MediaLine>;

// Larger than any real time, and small enough that the sum of two cannot overflow.
inline constexpr std::int64_t kLongest = INT64_MAX / 4;

enum class Rounding { kNearest, kDown, kUp };  // kNearest rounds halves up

// Does the work of Rescale in one integer type, which must have room for 2 * units * to. `from`
// must be above 0. The last term is needed because C++ rounds a negative quotient towards 0, not
// down.
template <class Number>
constexpr Number RescaledIn(Number units, Number from, Number to, Rounding rounding) {
  Number product = units * to, divisor = from;
  if (rounding == Rounding::kNearest) {
    product = 2 * product + from;
    divisor = 2 * divisor;
  } else if (rounding == Rounding::kUp) {
    product += from - 1;
  }
  return product / divisor - (product % divisor < 0 ? 1 : 0);
}

// The same time in another scale: units * to / from, both scales above 0. Intermediate results
// cannot overflow. A result beyond kLongest or -kLongest is limited to it.
constexpr std::int64_t Rescale(std::int64_t units, std::int64_t from, std::int64_t to,
                               Rounding rounding = Rounding::kNearest) {
  if (from == to) return units;
  // 64 bits are nearly always enough, and their division is many times faster.
  constexpr std::int64_t kNarrow = std::int64_t{1} << 32, kNarrowScale = 1 << 29;
  if (-kNarrow <= units && units <= kNarrow && from < kNarrowScale && to < kNarrowScale) {
    return RescaledIn(units, from, to, rounding);
  }
  const Wide result = RescaledIn<Wide>(units, from, to, rounding);
  if (result > kLongest) return kLongest;
  if (result < -kLongest) return -kLongest;
  return static_cast<std::int64_t>(result);
}

// Converts times of one line from one scale to another, both above 0. Each time is rounded to the
// nearest unit.
struct ScaleChange {
  std::int64_t from = 1, to = 1;

  template <class Line>
  Time<Line> operator()(Time<Line> time) const {
    return {Rescale(time.units, from, to)};
  }
};

// The two time scales of an edit list, in units per second. An edit list has times in both.
struct Clock {
  std::int32_t movie = 600;
  std::int32_t media = 600;

  // The media units that `length` movie units show at `rate`.
  MediaTime Shown(MovieTime length, double rate, Rounding rounding = Rounding::kNearest) const {
    if (rate == 1.0) return {Rescale(length.units, movie, media, rounding)};
    return {Round(static_cast<long double>(length.units) * rate * media / movie, rounding)};
  }
  // The movie units that `span` media units last at `rate`.
  MovieTime Lasting(MediaTime span, double rate, Rounding rounding = Rounding::kNearest) const {
    if (rate == 1.0) return {Rescale(span.units, media, movie, rounding)};
    return {Round(static_cast<long double>(span.units) * movie / media / rate, rounding)};
  }

 private:
  static std::int64_t Round(long double value, Rounding rounding) {
    if (!(std::fabs(value) < kLongest)) return value < 0 ? -kLongest : kLongest;
    if (rounding == Rounding::kDown) return static_cast<std::int64_t>(std::floor(value));
    if (rounding == Rounding::kUp) return static_cast<std::int64_t>(std::ceil(value));
    return static_cast<std::int64_t>(std::floor(value + 0.5L));
  }
};

}  // namespace toolbox
