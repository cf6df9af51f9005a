#include "toolbox/disk/side_by_side.h"

#include <sched.h>

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

// Blocks signals for the calling thread, except those for what the thread itself does. Threads that
// it starts inherit that.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    for (const int own : {SIGBUS, SIGSEGV, SIGFPE, SIGILL}) sigdelset(&all, own);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_ = {};
};

}  // namespace

std::uint64_t ThreadsFor(std::uint64_t tasks, std::uint64_t fewest) {
  std::uint64_t cores = std::thread::hardware_concurrency();
#ifdef __linux__
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) == 0) {
    cores = static_cast<std::uint64_t>(CPU_COUNT(&allowed));
  }
#endif
  return std::max<std::uint64_t>(1, std::min(cores, tasks / fewest));
}

void SideBySide(std::uint64_t tasks, std::uint64_t threads,
                const std::function<void(std::uint64_t index, Bytes& buffer)>& task) {
  std::atomic<std::uint64_t> next = 0;
  std::exception_ptr failure;
  std::mutex failing;
  const auto work = [&] {
    try {
      Bytes buffer;
      for (std::uint64_t i = next++; i < tasks; i = next++) task(i, buffer);
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
