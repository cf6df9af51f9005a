// The command line: options and file names, read once from left to right.
#pragma once

#include <span>
#include <variant>
#include <vector>

#include "clipjoin/options.h"
#include "input/input_movie.h"

namespace clipjoin {

struct CommandLine {
  OutputOptions output;
  std::vector<input::InputMovie> inputs;  // in command-line order, never empty

  // Whether the run saves its input into the input's own file and writes nothing else.
  bool SavesInPlace() const;
};

struct ExitStatus {
  int value;
};

// Reads the command line. `arguments` starts with the program's name, which chooses the command;
// `quiet` is the user's preference. Returns either the settings of the run or the status to exit
// with; in that case the reason has been printed.
std::variant<CommandLine, ExitStatus> ParseCommandLine(std::span<const char* const> arguments,
                                                       bool quiet);

}  // namespace clipjoin
