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
  std::vector<input::InputMovie> inputs;
};

struct ExitStatus {
  int value;
};

// `arguments` starts with the program's name, which chooses the command. Either what is asked for,
// or the status to end with: the reason has been printed.
std::variant<CommandLine, ExitStatus> ParseCommandLine(std::span<const char* const> arguments);

}  // namespace clipjoin
