// How failures are told: one line of one form on standard error, and a count that decides the exit
// status.
#pragma once

#include <iosfwd>
#include <string>

#include "toolbox/toolbox.h"

namespace clipjoin {

// Where a check stands: the function that failed, and a source and line that the user can quote to
// us. The source names the part of the program, whatever file the check stands in today.
struct CallSite {
  const char* function;
  const char* source;
  int line = __builtin_LINE();
};

inline constexpr char kClipjoinSource[] = "clipjoin.cpp";
inline constexpr char kChapterSource[] = "chapter.cpp";
inline constexpr char kUtilsSource[] = "utils.cpp";

// A failed call that ends a piece of work; caught where that work began.
class QTError {
 public:
  QTError(CallSite site, toolbox::OSErr code) : site_(site), code_(code) {}

  toolbox::OSErr Code() const { return code_; }
  // The report line, without the line end.
  friend std::ostream& operator<<(std::ostream& out, const QTError& error);

 private:
  CallSite site_;
  toolbox::OSErr code_;
};

// An option asked for more values than the command line holds.
struct NeedMoreArguments {};

// A duration that cannot be read.
struct BadDuration {
  std::string text;
};

// Prints and counts a failed call; does nothing when `code` is noErr.
void Report(CallSite site, toolbox::OSErr code);
// Throws QTError unless `code` is noErr.
void Require(CallSite site, toolbox::OSErr code);

// Failures reported so far in this process.
int ErrorCount();

// The last step of a run: prints the closing lines, unless `quiet`, and gives the exit status.
// `outputStatus` is what the output step asks for, 0 for nothing.
int Close(bool quiet, int outputStatus);

}  // namespace clipjoin
