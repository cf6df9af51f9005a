#include "toolbox/calls/call.h"

#include <boost/filesystem/exception.hpp>
#include <new>
#include <string>
#include <utility>

#include "toolbox/disk/system_error.h"
#include "toolbox/refused.h"
#include "toolbox/trace.h"

namespace toolbox {
namespace {

// The code of the last call, and the hook that tests set.
OSErr moviesError = noErr;
CallHook callHook;

// With REELWORK_TRACE=1 in the environment, prints the failure of a call in one line:
//   NewMovieFromDataRef: -2002: F.mov: /moov/trak/mdia/mdhd: the atom ends inside duration
void Trace(const std::string& call, const Failure& failure) {
  std::string line = call + ": " + std::to_string(failure.code);
  for (const std::string* part : {&failure.file, &failure.path, &failure.reason}) {
    if (!part->empty()) line += ": " + *part;
  }
  TraceLine(std::move(line));
}

// The exception being handled as a failure. Rethrows an exception that the toolbox does not know.
Failure Caught() {
  try {
    throw;
  } catch (const Failure& failure) {
    return failure;
  } catch (const std::bad_alloc&) {
    return Refused{memFullErr, "there is not enough memory"};
  } catch (const boost::filesystem::filesystem_error& failed) {
    return RefusedBy(failed.code().value(), failed.path1().native());
  }
}

}  // namespace

void SetCallHook(CallHook hook) { callHook = std::move(hook); }

OSErr TakeMoviesError() { return std::exchange(moviesError, noErr); }

void SetMoviesError(OSErr code) { moviesError = code; }

OSErr AskHook(const char* name) {
  const OSErr code = callHook ? callHook(name) : OSErr{noErr};
  if (code != noErr) Trace(name, Refused{code, "the call hook refused it"});
  return code;
}

OSErr CodeOfException(const char* name) {
  const Failure failure = Caught();
  Trace(name, failure);
  return failure.code;
}

}  // namespace toolbox
