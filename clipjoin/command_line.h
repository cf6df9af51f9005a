// The command line: options and file names, read once from left to right.
#pragma once

#include <span>
#include <variant>
#include <vector>

#include "clipjoin/options.h"
#include "input/input_movie.h"

namespace clipjoin {

struct CommandLine {
  CommandMode mode = CommandMode::kConcatenate;
  OutputOptions output;
  std::vector<input::InputMovie> inputs;  // in command-line order, never empty

  // The command as messages call it.
  const char* Name() const;
  // The input is saved into its own file, and nothing else is written.
  bool SavesInPlace() const;
};

struct ExitStatus {
  int value;
};

// `arguments` starts with the program's name, which chooses the command; `quiet` is the user's
// preference. Either what is asked for, or the status to end with: the reason has been printed.
std::variant<CommandLine, ExitStatus> ParseCommandLine(std::span<const char* const> arguments,
                                                       bool quiet);

}  // namespace clipjoin
