// Error reports. Every failed call prints one line of the same form on standard error. The exit
// status depends on whether any failure was counted.
#pragma once

#include <iosfwd>
#include <string>

#include "toolbox/toolbox.h"

namespace clipjoin {

// Where a call failed: the function, and a source and line that users can quote in a bug report.
// The source names one of the three main parts of the program, not the actual file, so that reports
// keep their text when code moves between files. All texts are literals.
struct CallSite {
  const char* function = "";
  const char* source = "";
  int line = __builtin_LINE();
};

inline constexpr char kClipjoinSource[] = "clipjoin.cpp";
inline constexpr char kChapterSource[] = "chapter.cpp";
inline constexpr char kUtilsSource[] = "utils.cpp";

// A failed call that ends a larger piece of work. Thrown by Require; caught by the input opener and
// by the movie writer.
struct QTError {
  CallSite site;
  toolbox::OSErr code = toolbox::noErr;
};
// Prints the report line without a line end.
std::ostream& operator<<(std::ostream& out, const QTError& error);

// An option needs more values than the command line has. Caught by the option loop.
struct NeedMoreArguments {};

// A duration that cannot be parsed. Caught by the option loop.
struct BadDuration {
  std::string text;  // as given
};

// Standard input is not a list of file names. Caught by the option loop.
struct BadNames {};

// Prints and counts a failed call; does nothing if `code` is noErr. Returns `code`, for callers
// that cannot go on after the failure.
toolbox::OSErr Report(CallSite site, toolbox::OSErr code);
// Throws QTError unless `code` is noErr. Neither prints nor counts.
void Require(CallSite site, toolbox::OSErr code);

// The last step of a run: prints the closing lines if any failure was counted, unless `quiet`, and
// returns the exit status. `outputStatus` is the status that the output step wants, 0 for none; it
// takes precedence.
int Close(bool quiet, int outputStatus);

}  // namespace clipjoin
