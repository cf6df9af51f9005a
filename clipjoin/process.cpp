#include "clipjoin/process.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "toolbox/toolbox.h"
#include "utils/progress_line.h"

namespace clipjoin {
namespace {

// Sets the handler of a signal, unless the caller of the program ignores that signal.
void Handle(int signal, void (*handler)(int), int flags) {
  struct sigaction action = {};
  if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) return;
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaction(signal, &action, nullptr);
}

// SA_RESETHAND has restored the default action, so raising the signal again ends the process with
// the status that its parent expects.
void CleanUp(int signal) {
  toolbox::RemoveUnfinishedFiles();
  utils::ProgressLine::EraseInSignal();
  raise(signal);
}

}  // namespace

void OpenStandardStreams() {
  // open() takes the lowest free number, so this fills the closed ones in order.
  while (true) {
    const int file = open("/dev/null", O_RDWR);
    if (file > STDERR_FILENO) close(file);
    if (file < 0 || file > STDERR_FILENO) return;
  }
}

void HandleSignals() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXCPU, SIGBUS}) {
    Handle(signal, CleanUp, static_cast<int>(SA_RESETHAND));
  }
  // An empty handler and not SIG_IGN, which a program started by this one would inherit.
  const auto doNothing = [](int) {};
  Handle(SIGXFSZ, doNothing, SA_RESTART);
}

}  // namespace clipjoin
