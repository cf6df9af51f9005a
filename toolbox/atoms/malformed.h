// The exception for bytes that break the rules of their format.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "toolbox/atoms/fourcc.h"

namespace toolbox {

struct Malformed : std::exception {
  std::string path;  // the atoms around the fault, outermost first: "/moov/trak/mdhd"
  std::string reason;  // "the atom ends inside duration"

  explicit Malformed(std::string why) : reason(std::move(why)) {}
  const char* what() const noexcept override { return reason.c_str(); }
};

// Runs `body` and returns its result. If `body` throws Malformed, adds `type` to the start of the
// path. Nested calls so collect the whole path from the inside out.
template <class Body>
decltype(auto) InAtom(FourCC type, Body&& body) try {
  return std::forward<Body>(body)();
} catch (Malformed& fault) {
  fault.path.insert(0, "/" + type.Text());
  throw;
}

}  // namespace toolbox
