#include "toolbox/disk/side_by_side.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace toolbox {
namespace {

// Blocks all signals for the calling thread. Threads that it starts inherit that.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

}  // namespace

std::uint64_t ThreadsFor(std::uint64_t tasks, std::uint64_t fewest) {
  const std::uint64_t cores = std::thread::hardware_concurrency();
  return std::max<std::uint64_t>(1, std::min(cores, tasks / fewest));
}

void SideBySide(std::uint64_t tasks, std::uint64_t threads,
                const std::function<void(std::uint64_t index, Bytes& block)>& task) {
  std::atomic<std::uint64_t> next = 0;
  std::exception_ptr failure;
  std::mutex failing;
  const auto work = [&] {
    try {
      Bytes block;
      for (std::uint64_t i = next++; i < tasks; i = next++) task(i, block);
    } catch (...) {
      next = tasks;
      const std::lock_guard lock(failing);
      if (!failure) failure = std::current_exception();
    }
  };
  {
    std::vector<std::jthread> others;
    try {
      const SignalsBlocked blocked;
      for (std::uint64_t i = 1; i < threads; ++i) others.emplace_back(work);
    } catch (const std::system_error&) {
      // The system has no more threads. Those that there are do all tasks.
    }
    work();
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace toolbox
