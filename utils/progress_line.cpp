#include "utils/progress_line.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <tuple>

namespace utils {
namespace {

constexpr char kErase[] = "\r\033[K";

// A size in readable units: "1.9 GB".
std::string Amount(double bytes) {
  static constexpr std::array kUnits{"bytes", "kB", "MB", "GB", "TB"};
  std::size_t unit = 0;
  while (bytes >= 1000 && unit + 1 < kUnits.size()) {
    bytes /= 1000;
    ++unit;
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), unit < 3 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
  return text.data();
}

// A time as minutes and seconds: "1:05".
std::string Span(double seconds) {
  const long whole = std::lround(seconds);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%ld:%02ld", whole / 60, whole % 60);
  return text.data();
}

}  // namespace

ProgressLine::~ProgressLine() {
  if (isVisible_ != 0) std::cerr << kErase << std::flush;
  isVisible_ = 0;
}

void ProgressLine::EraseInSignal() {
  if (isVisible_ != 0) std::ignore = write(STDERR_FILENO, kErase, sizeof kErase - 1);
}

bool ProgressLine::IsWanted() { return isatty(STDERR_FILENO) == 1; }

void ProgressLine::Show(std::uint64_t done, std::uint64_t all) {
  constexpr auto kPause = std::chrono::milliseconds(200);
  const Clock::time_point now = Clock::now();
  // A short write shows nothing: it is over before the line could be read.
  if (now - started_ < kPause || now - shown_ < kPause) return;
  shown_ = now;
  isVisible_ = 1;
  const double seconds = std::chrono::duration<double>(now - started_).count();
  const auto bytes = static_cast<double>(done), total = static_cast<double>(all);
  const double rate = bytes / seconds;
  std::ostringstream line;
  line << kErase << std::lround(100 * bytes / total) << "%  " << Amount(bytes) << " of "
       << Amount(total) << "  " << Amount(rate) << "/s  "
       << Span((total - bytes) / std::max(rate, 1.0)) << " left";
  std::cerr << line.str() << std::flush;  // in one piece, which a signal cannot split
}

}  // namespace utils
