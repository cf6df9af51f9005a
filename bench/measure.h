// Timing for the benchmark programs.
#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <numeric>
#include <vector>

namespace bench {

// Runs `work` five times and prints the shortest, longest and average time, and the peak memory of
// the process so far.
template <class Work>
void Measure(const char* name, Work&& work) {
  constexpr int kRuns = 5;
  std::vector<double> seconds;
  for (int run = 0; run < kRuns; ++run) {
    const auto start = std::chrono::steady_clock::now();
    work();
    seconds.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto [least, most] = std::ranges::minmax(seconds);
  std::printf("%-40s min %.4f  max %.4f  avg %.4f s   peak memory %ld MiB\n", name, least, most,
              std::accumulate(seconds.begin(), seconds.end(), 0.0) / kRuns, usage.ru_maxrss / 1024);
}

}  // namespace bench
