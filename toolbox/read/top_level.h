// The atoms of a file, one behind the other, without reading what is in them.
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
  std::vector<TopLevelAtom> atoms;  // all whole ones, in file order
  std::uint64_t end = 0;  // where the last of them ends
};

TopLevelLayout TopLevelAtoms(const ByteSource& source);

// Walks the atoms of a file. Reads a block at a time, so that a run of small atoms costs one read,
// and skips what is long.
class TopLevelWalk {
 public:
  explicit TopLevelWalk(const ByteSource& source) : source_(source) {}

  // The next whole atom; nothing at the end of the file, or where no whole atom follows.
  std::optional<TopLevelAtom> Next();
  // What is in an atom of this file; to be looked at before the next call.
  ByteSpan Content(const TopLevelAtom& atom);
  // The first bytes of what follows the last atom, up to the 16 that a frame can have.
  ByteSpan Following() { return block_.At(source_, at_, 16); }
  // Where the last atom ends.
  std::uint64_t End() const { return at_; }

 private:
  const ByteSource& source_;
  std::uint64_t at_ = 0;
  BlockReader block_{4096};
};

// What makes up the fragments of a movie and the way to them, ISO/IEC 14496-12 8.8: nothing that a
// movie with sample tables has use for.
bool BelongsToFragments(FourCC type);

// The first whole atom of that type. A cut one of that type is Malformed.
std::optional<TopLevelAtom> FindTopLevel(const ByteSource& source, FourCC type);

}  // namespace toolbox
