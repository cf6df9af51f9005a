// Bytes that do not hold what they claim; says where and why.
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

// Runs `body`; a fault that leaves it names the atom `type` as the place.
template <class Body>
decltype(auto) InAtom(FourCC type, Body&& body) try {
  return std::forward<Body>(body)();
} catch (Malformed& fault) {
  fault.path.insert(0, "/" + type.Text());
  throw;
}

}  // namespace toolbox
