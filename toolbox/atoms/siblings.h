// The children of one atom in the order of the file. Children that are not decoded are kept as
// bytes, so that they are written unchanged.
#pragma once

#include <algorithm>
#include <optional>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// One child. `bytes` is empty if the child was decoded; then the Sibling only marks its place.
struct Sibling {
  FourCC type;
  Bytes bytes;  // the whole atom, size and type included
  friend bool operator==(const Sibling&, const Sibling&) = default;
};
using Siblings = std::vector<Sibling>;

// The first atom of that type kept as bytes, or null.
inline const Sibling* FindSibling(const Siblings& siblings, FourCC type) {
  const auto found = std::ranges::find_if(siblings, [type](const Sibling& sibling) {
    return sibling.type == type && !sibling.bytes.empty();
  });
  return found == siblings.end() ? nullptr : &*found;
}

}  // namespace toolbox
