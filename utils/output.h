// The output step: where the movie goes and in which form.
#pragma once

#include "clipjoin/command_line.h"

namespace utils {

// Writes the finished movie as the command line asks.
void FinishOutput(toolbox::Movie movie, const clipjoin::CommandLine& line);

}  // namespace utils
