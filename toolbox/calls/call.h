// What every call has in common: a body that throws becomes a call that answers with a code.
#pragma once

#include <functional>
#include <string_view>
#include <type_traits>

#include "toolbox/codes.h"

namespace toolbox {

// Asked before each call, by its name; a code other than noErr is given in the call's place. For
// traces and for tests that make the n-th call of a name fail. Empty: none.
using CallHook = std::function<OSErr(std::string_view name)>;
void SetCallHook(CallHook hook);

// The movies error: what the last call answered.
OSErr MoviesError();
void SetMoviesError(OSErr code);

// What the hook says to a call of that name.
OSErr AskHook(const char* name);
// The code for the exception being handled: Refused, Malformed, lack of memory, a path that the
// system refuses. Any other is a fault of ours and goes on.
OSErr CodeOfException();

// Runs `body` as the call `name` and leaves its code as the movies error. Returns the code when the
// body returns nothing, else what it returns, or the default of that type when it fails.
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
      code = CodeOfException();
    }
  }
  SetMoviesError(code);
  if constexpr (kGivesCode) result = code;
  return result;
}

}  // namespace toolbox
