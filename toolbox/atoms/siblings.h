// The children of one atom in the order they had in the file, those that nobody reads kept as
// bytes.
#pragma once

#include <algorithm>
#include <optional>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// A child that the model holds itself keeps only its place: `bytes` is empty.
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
