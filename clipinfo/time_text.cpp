#include "clipinfo/time_text.h"

#include "toolbox/movie/time.h"

namespace clipinfo {
namespace {

// The number with zeros before it, so that it has at least that many digits.
std::string Padded(std::int64_t number, std::size_t digits) {
  std::string text = std::to_string(number);
  if (text.size() < digits) text.insert(0, digits - text.size(), '0');
  return text;
}

}  // namespace

std::string TimeText(std::int64_t units, std::int32_t scale) {
  if (units < 0) return "-" + TimeText(-units, scale);
  // No scale needs more than ten decimals, because it has 31 bits.
  constexpr std::size_t kMost = 10;
  std::size_t decimals = 0;
  std::int64_t power = 1;
  while (decimals < kMost &&
         toolbox::Rescale(toolbox::Rescale(units, scale, power), power, scale) != units) {
    ++decimals;
    power *= 10;
  }
  const std::int64_t rounded = toolbox::Rescale(units, scale, power);
  const std::int64_t seconds = rounded / power, minutes = seconds / 60;
  std::string text = std::to_string(minutes);
  if (minutes >= 60) text = std::to_string(minutes / 60) + ":" + Padded(minutes % 60, 2);
  text += ":" + Padded(seconds % 60, 2);
  if (decimals != 0) text += "." + Padded(rounded % power, decimals);
  return text;
}

}  // namespace clipinfo
