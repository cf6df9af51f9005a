// Finds the top-level atoms of a file without reading their contents.
#pragma once

#include <cstdint>
#include <optional>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/disk/block_reader.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// Visits the atoms of a file in order. It reads blocks, so many small atoms cost one read, and
// skips the contents of long atoms. All functions throw what reading throws.
class TopLevelWalk {
 public:
  // `source` must outlive this object.
  explicit TopLevelWalk(const ByteSource& source) : source_(source) {}

  // The next atom. Nothing at the end of the file, or if no complete atom follows.
  std::optional<FileAtom> Next();
  // The content of an atom of this file. Valid until the next call.
  ByteSpan Content(const FileAtom& atom) {
    return block_.At(source_, atom.ContentAt(), atom.ContentSize());
  }
  // The first bytes after the last atom: up to 16, the largest frame.
  ByteSpan Following() { return block_.At(source_, at_, 16); }
  // Where the last atom ends.
  std::uint64_t End() const { return at_; }

 private:
  const ByteSource& source_;
  std::uint64_t at_ = 0;
  BlockReader block_{4096};
};

// Whether atoms of this type are part of movie fragments (ISO/IEC 14496-12 8.8) or of segments
// (8.16), or are an index of them. A movie with sample tables needs none of them.
bool BelongsToFragments(FourCC type);

}  // namespace toolbox
