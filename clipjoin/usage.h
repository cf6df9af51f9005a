// The usage text.
#pragma once

#include <string>

#include "clipjoin/options.h"

namespace clipjoin {

// Prints the usage text of the command on standard error. `invocation` is the program as typed,
// `name` its last path component.
void PrintUsage(const std::string& invocation, CommandMode mode, const std::string& name);

}  // namespace clipjoin
