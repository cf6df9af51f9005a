// The run: from the command line to the exit status.
#pragma once

#include <span>

namespace clipjoin {

// Runs the command that `arguments` ask for, the first of them being the program's name, and
// returns the exit status.
int Run(std::span<const char* const> arguments);

}  // namespace clipjoin
