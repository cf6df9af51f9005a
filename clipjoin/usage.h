// The usage text.
#pragma once

#include <span>
#include <string>

#include "clipjoin/options.h"

namespace clipjoin {

// A stretch of the usage text, and the commands whose usage it belongs to: a bit for each
// CommandMode.
struct UsageEntry {
  unsigned commands;
  const char* text;  // whole lines; the first names the option
};

// All options, in the order of the text.
std::span<const UsageEntry> UsageEntries();

// Prints the usage of the command on standard error. `invocation` is the program as it was typed,
// `name` its last component.
void PrintUsage(const std::string& invocation, CommandMode mode, const std::string& name);

}  // namespace clipjoin
