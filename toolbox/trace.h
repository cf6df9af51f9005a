// The lines that a person sees with REELWORK_TRACE=1 in the environment.
#pragma once

#include <string>

namespace toolbox {

// Prints the line on standard error if it is wanted. Control characters become question marks.
void TraceLine(std::string line);

}  // namespace toolbox
