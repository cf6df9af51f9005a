// What the calls make of the references they are given.
#pragma once

#include <string>

#include "toolbox/refused.h"
#include "toolbox/toolbox.h"

namespace toolbox {

struct StringRecord {
  std::string text;  // UTF-8, or the bytes of a path
};

// The movie that the caller names; throws Refused when it names none.
inline MovieRecord& Valid(Movie movie) {
  if (movie == nullptr) throw Refused{invalidMovie};
  return *movie;
}

}  // namespace toolbox
