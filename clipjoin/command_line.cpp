#include "clipjoin/command_line.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>
#include <utility>

#include "clipjoin/option_rows.h"
#include "clipjoin/report.h"
#include "clipjoin/usage.h"
#include "clipjoin/values.h"
#include "utils/visible.h"

namespace clipjoin {
namespace {

// Null if the command has no such option, even if another command has it.
const Option* FindOption(std::string_view argument, CommandMode mode) {
  const auto found = std::ranges::find_if(Options(), [&](const Option& option) {
    return option.name == argument && Includes(option.commands, mode);
  });
  return found == Options().end() ? nullptr : &*found;
}

// The command for a program name. An unknown name means clipjoin, so a renamed executable still
// works.
CommandMode ModeOf(std::string_view name) {
  if (name == "clipstak") return CommandMode::kMultiplex;
  if (name == "cliptune") return CommandMode::kModify;
  return CommandMode::kConcatenate;
}

// Adds an input; the file options that follow change its settings.
void TakeFileName(const char* argument, Parser& parser) {
  if (parser.line.output.namesFromStdin) {
    std::cerr << "Ignoring argument " << utils::Visible(argument)
              << " because -names-from-stdin was passed\n";
    return;
  }
  parser.AddInput(parser.global, argument);
  parser.current = parser.line.inputs.size() - 1;
}

}  // namespace

bool CommandLine::SavesInPlace() const {
  return output.mode == CommandMode::kModify && inputs.front().options.saveInPlace;
}

std::variant<CommandLine, ExitStatus> ParseCommandLine(std::span<const char* const> arguments,
                                                       bool quiet) {
  Cursor next(arguments);
  // A caller of exec may pass no program name at all.
  const std::string invocation = next.AtEnd() ? "clipjoin" : next();
  const std::string name = invocation.substr(invocation.rfind('/') + 1);
  Parser parser;
  OutputOptions& output = parser.line.output;
  output.mode = ModeOf(name);
  output.quiet = quiet;
  // The usage text is that of the command that the options so far have chosen.
  const auto refuse = [&](int status) {
    PrintUsage(invocation, output.mode, name);
    return ExitStatus{status};
  };
  const char* argument = nullptr;  // outside the try block, for the messages about it
  try {
    while (!next.AtEnd()) {
      argument = next();
      if (!parser.optionsAllowed || argument[0] != '-') {
        TakeFileName(argument, parser);
      } else if (const Option* option = FindOption(argument, output.mode)) {
        option->carryOut(argument, next, parser);
      } else {
        std::cerr << "Unrecognized option " << utils::Visible(argument) << '\n';
        return refuse(1);
      }
    }
  } catch (const NeedMoreArguments&) {
    std::cerr << "Option " << argument << " needs more arguments\n";
    return refuse(1);
  } catch (const BadDuration& bad) {
    std::cerr << "Error processing option " << argument << ": ";
    PrintDurationHelp(bad.text);
    return ExitStatus{1};
  } catch (const BadNames&) {
    std::cerr << "Error processing option " << argument
              << ": standard input is not a list of file names\n";
    return ExitStatus{1};
  }
  for (input::InputMovie& input : parser.line.inputs) input.options.quiet = output.quiet;
  if (!parser.line.inputs.empty()) return std::move(parser.line);
  std::cerr << "No movies found\n";
  return refuse(2);
}

}  // namespace clipjoin
