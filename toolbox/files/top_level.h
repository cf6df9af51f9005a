// The atoms of a file, one behind the other, without reading what is in them.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/framing.h"
#include "toolbox/files/byte_source.h"

namespace toolbox {

struct TopLevelAtom {
  std::uint64_t at = 0;  // where it starts in the file
  AtomFrame atom;
};

struct TopLevelLayout {
  std::vector<TopLevelAtom> atoms;  // all whole ones, in file order
  std::uint64_t end = 0;  // where the last of them ends
};

TopLevelLayout TopLevelAtoms(const ByteSource& source);

// The atoms of the file that are neither its movie and media, nor room or an index that only hold
// for the file as it is.
std::vector<TopLevelAtom> OtherTopLevelAtoms(const ByteSource& source);

// The first whole atom of that type. A cut one of that type is Malformed.
std::optional<TopLevelAtom> FindTopLevel(const ByteSource& source, FourCC type);

}  // namespace toolbox
