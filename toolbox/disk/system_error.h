// Repeats system calls that a signal has interrupted, and turns their errors into refusals.
#pragma once

#include <cerrno>
#include <string>

#include "toolbox/refused.h"

namespace toolbox {

// The refusal for a system call on `file` that failed with `errorNumber`, a value of errno. Errors
// without a code of their own become ioErr. An empty `file` is unknown.
Refused RefusedBy(int errorNumber, std::string file = {});

// Repeats a system call while signals interrupt it. Returns its result; errno has the reason of a
// failure.
template <class SystemCall>
auto Uninterrupted(SystemCall&& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}
// The same, and throws Refused if the call fails.
template <class SystemCall>
auto Required(SystemCall&& call) {
  const auto result = Uninterrupted(call);
  if (result < 0) throw RefusedBy(errno);
  return result;
}

}  // namespace toolbox
