#include "clipjoin/report.h"

#include <iostream>

namespace clipjoin {
namespace {

// Failures reported by this process so far.
int errorCount = 0;

}  // namespace

std::ostream& operator<<(std::ostream& out, const QTError& error) {
  return out << "Error in " << error.site.function << " at line " << error.site.line << " of "
             << error.site.source << ": " << error.code;
}

toolbox::OSErr Report(CallSite site, toolbox::OSErr code) {
  if (code != toolbox::noErr) {
    std::cerr << QTError{site, code} << '\n';
    ++errorCount;
  }
  return code;
}

void Require(CallSite site, toolbox::OSErr code) {
  if (code != toolbox::noErr) throw QTError{site, code};
}

int Close(bool quiet, int outputStatus) {
  if (!quiet && errorCount > 0) {
    const bool isOne = errorCount == 1;
    std::cerr << "(Yes, we know "
              << (isOne ? "this error message stinks" : "these error messages stink")
              << ". Email us at <reelwork@example.org>\nif you can't figure out what "
              << (isOne ? "it means" : "they mean") << ".)\n";
  }
  if (outputStatus != 0) return outputStatus;
  return errorCount == 0 ? 0 : 1;
}

}  // namespace clipjoin
