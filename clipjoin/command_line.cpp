#include "clipjoin/command_line.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>

#include "clipjoin/report.h"
#include "clipjoin/usage.h"

namespace clipjoin {
namespace {

// Walks the arguments; an option takes its values from it.
class Cursor {
 public:
  explicit Cursor(std::span<const char* const> arguments) : rest_(arguments) {}

  bool AtEnd() const { return rest_.empty(); }
  // Throws NeedMoreArguments at the end.
  const char* operator()() {
    if (AtEnd()) throw NeedMoreArguments{};
    const char* argument = rest_.front();
    rest_ = rest_.subspan(1);
    return argument;
  }

 private:
  std::span<const char* const> rest_;
};

struct Parser {
  CommandLine line;
  FileOptions global;
  bool optionsAllowed = true;

  // The record that file options change: that of the last file named, or the global one.
  FileOptions& Current() { return line.inputs.empty() ? global : line.inputs.back().options; }
};

// Which commands know an option: a bit for each CommandMode.
constexpr unsigned kEvery = 0b111;

struct Option {
  const char* name;
  unsigned commands;
  void (*carryOut)(Cursor& next, Parser& parser);
};

// In the order in which they are compared.
constexpr Option kOptions[] = {
    {"-clipjoin", kEvery, [](Cursor&, Parser& p) { p.line.mode = CommandMode::kConcatenate; }},
    {"-clipstak", kEvery, [](Cursor&, Parser& p) { p.line.mode = CommandMode::kMultiplex; }},
    {"-cliptune", kEvery, [](Cursor&, Parser& p) { p.line.mode = CommandMode::kModify; }},
    {"-q", kEvery, [](Cursor&, Parser& p) { p.line.output.quiet = true; }},
    {"-self-contained", kEvery, [](Cursor&, Parser& p) { p.line.output.selfContained = true; }},
    {"-no-fast-start", kEvery,
     [](Cursor&, Parser& p) {
       p.line.output.flattenFlags &= ~toolbox::flattenForceMovieResourceBeforeMovieData;
     }},
    {"-no-compressed-header", kEvery,
     [](Cursor&, Parser& p) {
       p.line.output.flattenFlags &= ~toolbox::flattenCompressMovieResource;
     }},
    {"-o", kEvery, [](Cursor& next, Parser& p) { p.line.output.outputPath = next(); }},
    {"-", kEvery, [](Cursor&, Parser& p) { p.optionsAllowed = false; }},
};

const Option* FindOption(std::string_view argument, CommandMode mode) {
  const auto* found = std::ranges::find_if(kOptions, [&](const Option& option) {
    return option.name == argument && (option.commands >> static_cast<unsigned>(mode) & 1U) != 0;
  });
  return found == std::end(kOptions) ? nullptr : found;
}

CommandMode ModeOf(std::string_view name) {
  if (name == "clipstak") return CommandMode::kMultiplex;
  if (name == "cliptune") return CommandMode::kModify;
  return CommandMode::kConcatenate;
}

}  // namespace

std::variant<CommandLine, ExitStatus> ParseCommandLine(std::span<const char* const> arguments) {
  Cursor next(arguments);
  const std::string invocation = next.AtEnd() ? "clipjoin" : next();
  const std::string name = invocation.substr(invocation.rfind('/') + 1);
  Parser parser;
  CommandLine& line = parser.line;
  line.mode = ModeOf(name);

  while (!next.AtEnd()) {
    const std::string argument = next();
    if (!parser.optionsAllowed || !argument.starts_with('-')) {
      line.inputs.emplace_back(parser.global).options.path = argument;
      continue;
    }
    const Option* option = FindOption(argument, line.mode);
    if (option == nullptr) {
      std::cerr << "Unrecognized option " << argument << '\n';
      PrintUsage(invocation, line.mode, name);
      return ExitStatus{1};
    }
    try {
      option->carryOut(next, parser);
    } catch (const NeedMoreArguments&) {
      std::cerr << "Option " << argument << " needs more arguments\n";
      PrintUsage(invocation, line.mode, name);
      return ExitStatus{1};
    }
  }
  if (line.inputs.empty()) {
    std::cerr << "No movies found\n";
    PrintUsage(invocation, line.mode, name);
    return ExitStatus{2};
  }
  return std::move(line);
}

}  // namespace clipjoin
