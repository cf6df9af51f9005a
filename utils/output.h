// The output step: where the movie goes and in which form.
#pragma once

#include "clipjoin/command_line.h"

namespace utils {

// Writes the finished movie as the command line asks, unless it is saved in place. Returns the exit
// status that the step asks for, 0 for none.
int FinishOutput(toolbox::Movie movie, const clipjoin::CommandLine& line);

// The path of the user's desktop folder, which is made when it is missing. What fails is reported.
std::string DesktopFolderPath();

}  // namespace utils
