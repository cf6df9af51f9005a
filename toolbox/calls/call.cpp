#include "toolbox/calls/call.h"

#include <boost/filesystem/exception.hpp>
#include <new>
#include <utility>

#include "toolbox/atoms/malformed.h"
#include "toolbox/disk/system_error.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// The only state of the toolbox besides the open storages.
OSErr moviesError = noErr;
CallHook callHook;

}  // namespace

void SetCallHook(CallHook hook) { callHook = std::move(hook); }

OSErr TakeMoviesError() { return std::exchange(moviesError, noErr); }

void SetMoviesError(OSErr code) { moviesError = code; }

OSErr AskHook(const char* name) { return callHook ? callHook(name) : OSErr{noErr}; }

OSErr CodeOfException() {
  try {
    throw;
  } catch (const Refused& refused) {
    return refused.code;
  } catch (const Malformed&) {
    return badPublicMovieAtom;
  } catch (const std::bad_alloc&) {
    return memFullErr;
  } catch (const boost::filesystem::filesystem_error& failed) {
    return RefusedBy(failed.code().value()).code;
  }
}

}  // namespace toolbox
