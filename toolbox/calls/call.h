// Runs the body of every call and converts exceptions to result codes.
//
// toolbox.h has the contracts of the calls. Each of the other files in this folder has one group of
// calls. They check arguments and call the folders on lower floors.
#pragma once

#include <functional>
#include <string_view>
#include <type_traits>

#include "toolbox/codes.h"

namespace toolbox {

// A function that is called with the name of each call before it runs. If it returns a code other
// than noErr, the call fails with that code instead. Tests use it for traces and to make the n-th
// call of a name fail.
using CallHook = std::function<OSErr(std::string_view name)>;
// Sets the hook; an empty function removes it.
void SetCallHook(CallHook hook);

// The movies error is the code of the last call. Take returns it and resets it to noErr.
OSErr TakeMoviesError();
void SetMoviesError(OSErr code);

// The code that the hook returns for a call of that name; noErr without a hook.
OSErr AskHook(const char* name);
// The code for the exception that is being handled: Refused, Malformed, std::bad_alloc or
// filesystem_error. Rethrows any other exception, because that is a bug of the toolbox. `name` is
// the name of the call. With REELWORK_TRACE=1 in the environment, this and AskHook print each
// failure.
OSErr CodeOfException(const char* name);

// Runs `body` as the call `name`, which calls pass as __func__, and sets the movies error. If
// `body` returns nothing, returns the code; else returns its result, or a default value of that
// type after a failure.
template <class Body>
auto Call(const char* name, Body&& body) {
  using Result = std::invoke_result_t<Body>;
  constexpr bool kGivesCode = std::is_void_v<Result>;
  std::conditional_t<kGivesCode, OSErr, Result> result{};
  OSErr code = AskHook(name);
  if (code == noErr) {
    try {
      if constexpr (kGivesCode) {
        body();
      } else {
        result = body();
      }
    } catch (...) {
      code = CodeOfException(name);
    }
  }
  SetMoviesError(code);
  if constexpr (kGivesCode) result = code;
  return result;
}

}  // namespace toolbox
