// The options: one row each.
#pragma once

#include <span>

#include "clipjoin/command_line.h"
#include "clipjoin/cursor.h"

namespace clipjoin {

// What the options change while the command line is read.
struct Parser {
  CommandLine line;
  FileOptions global;
  bool optionsAllowed = true;

  // The record that file options change: that of the last file named, or the global one.
  FileOptions& Current() { return current == kGlobal ? global : line.inputs[current].options; }
  // A further input, which starts with what `settings` say.
  void AddInput(const FileOptions& settings, const std::string& path);

  static constexpr std::size_t kGlobal = static_cast<std::size_t>(-1);
  std::size_t current = kGlobal;  // index of an input
};

// Which commands know an option: a bit for each CommandMode.
inline constexpr unsigned kClipjoin = 0b001, kClipstak = 0b010, kCliptune = 0b100;
inline constexpr unsigned kEvery = kClipjoin | kClipstak | kCliptune;

struct Option {
  const char* name;
  unsigned commands;
  // `name` is the option as it was given. Throws NeedMoreArguments, BadDuration.
  void (*carryOut)(const char* name, Cursor& next, Parser& parser);
};

// In the order in which they are compared.
std::span<const Option> Options();

}  // namespace clipjoin
