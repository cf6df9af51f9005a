// Does tasks on several cores within one call.
#pragma once

#include <cstdint>
#include <functional>

#include "toolbox/bytes.h"

namespace toolbox {

// The number of threads that are worth starting for `tasks` tasks, if each thread is to get at
// least `fewest` of them: from 1 to the number of cores that the process may use.
std::uint64_t ThreadsFor(std::uint64_t tasks, std::uint64_t fewest);

// Calls task(index, buffer) once for each index below `tasks`, roughly in that order. The calling
// thread and `threads` - 1 others do them. Each thread has a buffer that its tasks share. It is
// empty at first. All threads have ended when this returns. If a task throws, the tasks that
// have not begun are left out, and this throws the same. Signals are handled in the calling thread.
void SideBySide(std::uint64_t tasks, std::uint64_t threads,
                const std::function<void(std::uint64_t index, Bytes& buffer)>& task);

}  // namespace toolbox
