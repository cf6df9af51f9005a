// The table of options.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "clipjoin/command_line.h"
#include "clipjoin/cursor.h"

namespace clipjoin {

// What has been read so far. Options change it.
struct Parser {
  CommandLine line;
  FileOptions global;
  bool optionsAllowed = true;  // false after "-": every argument is a file name

  // The settings that file options change: those of the last file named, or the global ones.
  FileOptions& Current() { return current ? line.inputs[*current].options : global; }
  // Adds an input for the file at `path` that starts with a copy of `settings`.
  void AddInput(const FileOptions& settings, const std::string& path);

  // The index of the last input that the command line has named. This is not a reference, because
  // inputs move when others are added.
  std::optional<std::size_t> current;
};

// The commands that accept an option: a bit for each CommandMode.
inline constexpr unsigned kClipjoin = 0b001, kClipstak = 0b010, kCliptune = 0b100;
inline constexpr unsigned kEvery = kClipjoin | kClipstak | kCliptune;

// Whether the set of commands has the command `mode`.
constexpr bool Includes(unsigned commands, CommandMode mode) {
  return (commands >> static_cast<unsigned>(mode) & 1U) != 0;
}

struct Option {
  const char* name;
  unsigned commands;
  // Reads the option's values from `next` and carries it out. `name` is the option as given. Throws
  // NeedMoreArguments, BadDuration and BadNames.
  void (*carryOut)(const char* name, Cursor& next, Parser& parser);
};

// All options, in the order in which they are compared. A command has each name at most once.
std::span<const Option> Options();

}  // namespace clipjoin
