// A line on the terminal that shows how much has been written. It is erased at the end.
#pragma once

#include <chrono>
#include <csignal>
#include <cstdint>

namespace utils {

class ProgressLine {
 public:
  ProgressLine() = default;
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // Whether standard error is a terminal. Scripts must get no progress among the messages.
  static bool IsWanted();
  // Shows `done` of `all` bytes; `all` > 0. Call it as often as you like: it draws at most five
  // times a second.
  void Show(std::uint64_t done, std::uint64_t all);
  // Erases a visible line. It is safe in a signal handler.
  static void EraseInSignal();

 private:
  using Clock = std::chrono::steady_clock;
  const Clock::time_point started_ = Clock::now();
  Clock::time_point shown_;
  static inline volatile std::sig_atomic_t isVisible_ = 0;
};

}  // namespace utils
