// The exception for bytes that break the rules of their format.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/refused.h"

namespace toolbox {

struct Malformed : std::exception, Failure {
  explicit Malformed(std::string why) : Failure{badPublicMovieAtom, {}, {}, std::move(why)} {}
  const char* what() const noexcept override { return reason.c_str(); }
};

// Runs `body` and returns its result. If `body` throws a failure, adds `type` to the start of its
// path. In this way nested calls collect the whole path. A failure that names its file already
// keeps its path.
template <class Body>
decltype(auto) InAtom(FourCC type, Body&& body) try {
  return std::forward<Body>(body)();
} catch (Failure& failure) {
  if (failure.file.empty()) failure.path.insert(0, "/" + type.Text());
  throw;
}

}  // namespace toolbox
