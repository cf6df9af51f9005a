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

const Option* FindOption(std::string_view argument, CommandMode mode) {
  const auto found = std::ranges::find_if(Options(), [&](const Option& option) {
    return option.name == argument && (option.commands >> static_cast<unsigned>(mode) & 1U) != 0;
  });
  return found == Options().end() ? nullptr : &*found;
}

CommandMode ModeOf(std::string_view name) {
  if (name == "clipstak") return CommandMode::kMultiplex;
  if (name == "cliptune") return CommandMode::kModify;
  return CommandMode::kConcatenate;
}

// One parse of one command line.
class Reader {
 public:
  Reader(std::span<const char* const> arguments, bool quiet)
      : next_(arguments), invocation_(next_.AtEnd() ? "clipjoin" : next_()) {
    name_ = invocation_.substr(invocation_.rfind('/') + 1);
    parser_.line.mode = ModeOf(name_);
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
  void TakeFileName(const char* argument) {
    if (parser_.line.output.namesFromStdin) {
      std::cerr << "Ignoring argument " << argument << " because -names-from-stdin was passed\n";
      return;
    }
    parser_.AddInput(parser_.global, argument);
    parser_.current = parser_.line.inputs.size() - 1;
  }

  // False when the run ends with it; the reason has been printed.
  bool TakeOption(const char* argument) try {
    const Option* option = FindOption(argument, parser_.line.mode);
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

  void ExplainUsage() const { PrintUsage(invocation_, parser_.line.mode, name_); }

  Cursor next_;
  std::string invocation_, name_;
  Parser parser_;
};

}  // namespace

const char* CommandLine::Name() const {
  static constexpr const char* kNames[] = {"clipjoin", "clipstak", "cliptune"};
  return kNames[static_cast<std::size_t>(mode)];
}

bool CommandLine::SavesInPlace() const {
  return mode == CommandMode::kModify && inputs.front().options.saveInPlace;
}

std::variant<CommandLine, ExitStatus> ParseCommandLine(std::span<const char* const> arguments,
                                                       bool quiet) {
  return Reader(arguments, quiet).Read();
}

}  // namespace clipjoin
