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

namespace clipjoin {
namespace {

// Null if the command has no such option.
const Option* FindOption(std::string_view argument, CommandMode mode) {
  const auto found = std::ranges::find_if(Options(), [&](const Option& option) {
    return option.name == argument && Includes(option.commands, mode);
  });
  return found == Options().end() ? nullptr : &*found;
}

// Any unknown name means clipjoin.
CommandMode ModeOf(std::string_view name) {
  if (name == "clipstak") return CommandMode::kMultiplex;
  if (name == "cliptune") return CommandMode::kModify;
  return CommandMode::kConcatenate;
}

// Reads one command line.
class Reader {
 public:
  Reader(std::span<const char* const> arguments, bool quiet)
      // A caller of exec may pass no program name at all.
      : next_(arguments), invocation_(next_.AtEnd() ? "clipjoin" : next_()) {
    name_ = invocation_.substr(invocation_.rfind('/') + 1);
    parser_.line.output.mode = ModeOf(name_);
    parser_.line.output.quiet = quiet;
  }

  std::variant<CommandLine, ExitStatus> Read() {
    while (!next_.AtEnd()) {
      const char* argument = next_();
      if (!parser_.optionsAllowed || argument[0] != '-') {
        TakeFileName(argument);
      } else if (!TakeOption(argument)) {
        return ExitStatus{1};
      }
    }
    if (parser_.line.inputs.empty()) {
      std::cerr << "No movies found\n";
      ExplainUsage();
      return ExitStatus{2};
    }
    return std::move(parser_.line);
  }

 private:
  // Adds an input; file options that follow change its settings.
  void TakeFileName(const char* argument) {
    if (parser_.line.output.namesFromStdin) {
      std::cerr << "Ignoring argument " << argument << " because -names-from-stdin was passed\n";
      return;
    }
    parser_.AddInput(parser_.global, argument);
    parser_.current = parser_.line.inputs.size() - 1;
  }

  // Returns false if the run ends here; the reason has been printed.
  bool TakeOption(const char* argument) try {
    const Option* option = FindOption(argument, parser_.line.output.mode);
    if (option == nullptr) {
      std::cerr << "Unrecognized option " << argument << '\n';
      ExplainUsage();
      return false;
    }
    option->carryOut(argument, next_, parser_);
    return true;
  } catch (const NeedMoreArguments&) {
    std::cerr << "Option " << argument << " needs more arguments\n";
    ExplainUsage();
    return false;
  } catch (const BadDuration& bad) {
    std::cerr << "Error processing option " << argument << ": ";
    PrintDurationHelp(bad.text);
    return false;
  }

  void ExplainUsage() const { PrintUsage(invocation_, parser_.line.output.mode, name_); }

  Cursor next_;
  std::string invocation_, name_;
  Parser parser_;
};

}  // namespace

bool CommandLine::SavesInPlace() const {
  return output.mode == CommandMode::kModify && inputs.front().options.saveInPlace;
}

std::variant<CommandLine, ExitStatus> ParseCommandLine(std::span<const char* const> arguments,
                                                       bool quiet) {
  return Reader(arguments, quiet).Read();
}

}  // namespace clipjoin
