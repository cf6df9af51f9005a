// A line on the terminal that tells how far copying has come, and is gone when it is done.
#pragma once

#include <chrono>
#include <cstdint>

namespace utils {

class ProgressLine {
 public:
  ProgressLine() = default;
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // Only a terminal is told: scripts see just the messages they can count on.
  static bool IsWanted();
  // Redraws the line, a few times a second at the most. `all` > 0; both in bytes.
  void Show(std::uint64_t done, std::uint64_t all);

 private:
  using Clock = std::chrono::steady_clock;
  const Clock::time_point started_ = Clock::now();
  Clock::time_point shown_;
  bool isVisible_ = false;
};

}  // namespace utils
