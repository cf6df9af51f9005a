// The top-level atoms of a movie file, and what has to be known of them to save a movie into it.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/disk/byte_source.h"
#include "toolbox/read/top_level.h"

namespace toolbox {

struct FileOutline {
  struct Part : TopLevelAtom {
    // Whether it has nothing that anybody needs. For a 'moov' after the first: once it is free.
    bool isMereRoom = false;
  };

  const ByteSource* source = nullptr;  // the file; must outlive the outline
  std::uint64_t size = 0;  // of the file, in bytes
  std::vector<Part> atoms;  // all whole ones, in file order
  std::size_t movie = 0;  // index of the first 'moov', the one that counts
  std::uint64_t end = 0;  // where the last whole atom ends
  bool lastHasNoSize = false;  // the last atom has size 0, which means "to the end of the file"
  bool isFragmented = false;
  bool endsInsideFragment = false;  // the start of a fragment follows the last whole atom
  bool locatesItems = false;  // a 'meta' has places of the file, so that nothing may move

  const Part& Movie() const { return atoms[movie]; }
};

// Throws Refused: featureUnsupported (the file has no movie header), and what reading throws.
FileOutline ReadOutline(const ByteSource& source);

}  // namespace toolbox
