// The top-level atoms of a file. Their contents are not read.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/framing.h"
#include "toolbox/disk/block_reader.h"

namespace toolbox {

struct TopLevelAtom {
  std::uint64_t at = 0;  // where it starts in the file
  AtomFrame atom;
};

struct TopLevelLayout {
  std::vector<TopLevelAtom> atoms;  // all that are complete, in file order
  std::uint64_t end = 0;  // where the last of them ends
};

TopLevelLayout TopLevelAtoms(const ByteSource& source);

// Goes through the atoms of a file. Reads a block at a time, so many small atoms cost one read, and
// skips long atoms.
class TopLevelWalk {
 public:
  explicit TopLevelWalk(const ByteSource& source) : source_(source) {}

  // The next atom. Nothing at the end of the file, or if what follows is no complete atom.
  std::optional<TopLevelAtom> Next();
  // The content of an atom of this file. Valid until the next call.
  ByteSpan Content(const TopLevelAtom& atom);
  // The first bytes after the last atom: up to 16, the largest frame.
  ByteSpan Following() { return block_.At(source_, at_, 16); }
  // Where the last atom ends.
  std::uint64_t End() const { return at_; }

 private:
  const ByteSource& source_;
  std::uint64_t at_ = 0;
  BlockReader block_{4096};
};

// Whether an atom of that type is part of the fragments of a movie or an index of them, ISO/IEC
// 14496-12 8.8. A movie with sample tables needs none of them.
bool BelongsToFragments(FourCC type);

// The first complete atom of that type. Throws Malformed if the file ends inside such an atom.
std::optional<TopLevelAtom> FindTopLevel(const ByteSource& source, FourCC type);

}  // namespace toolbox
