#include "clipjoin/report.h"

#include <iostream>

namespace clipjoin {
namespace {

constexpr char kContact[] = "<reelwork@example.org>";

// Failures reported by this process so far.
int errorCount = 0;

}  // namespace

std::ostream& operator<<(std::ostream& out, const QTError& error) {
  return out << "Error in " << error.site_.function << " at line " << error.site_.line << " of "
             << error.site_.source << ": " << error.code_;
}

void Report(CallSite site, toolbox::OSErr code) {
  if (code == toolbox::noErr) return;
  std::cerr << QTError(site, code) << '\n';
  ++errorCount;
}

toolbox::OSErr Reported(CallSite site, toolbox::OSErr code) {
  Report(site, code);
  return code;
}

void Require(CallSite site, toolbox::OSErr code) {
  if (code != toolbox::noErr) throw QTError(site, code);
}

int Close(bool quiet, int outputStatus) {
  if (!quiet && errorCount > 1) {
    std::cerr << "(Yes, we know these error messages stink. Email us at " << kContact
              << "\nif you can't figure out what they mean.)\n";
  } else if (!quiet && errorCount == 1) {
    std::cerr << "(Yes, we know this error message stinks. Email us at " << kContact
              << "\nif you can't figure out what it means.)\n";
  }
  if (outputStatus != 0) return outputStatus;
  return errorCount == 0 ? 0 : 1;
}

}  // namespace clipjoin
