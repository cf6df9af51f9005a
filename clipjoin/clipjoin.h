// A run of the program, from the command line to the exit status.
#pragma once

#include <span>

namespace clipjoin {

// Runs the command that `arguments` ask for and returns the exit status. The first argument is the
// program's name. May throw std::bad_alloc and boost::filesystem::filesystem_error.
int Run(std::span<const char* const> arguments);

}  // namespace clipjoin
