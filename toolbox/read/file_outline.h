// The top-level atoms of a movie file, with all facts that are needed to save a movie into that
// file again.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/disk/byte_source.h"
#include "toolbox/read/file_atoms.h"

namespace toolbox {

// The layout of a file. It has no content of atoms and is valid until the file changes.
struct FileOutline {
  struct Part : FileAtom {
    // Whether it can be overwritten. A 'moov' after the first is never used, so it is judged as if
    // it were 'free'.
    Room room = Room::kNone;
  };

  const ByteSource* source = nullptr;  // the file; must outlive the outline
  std::uint64_t size = 0;  // of the file, in bytes
  std::vector<Part> atoms;  // all complete ones, in file order
  std::size_t movie = 0;  // index of the first 'moov'; readers ignore any other
  std::uint64_t end = 0;  // where the last complete atom ends, in bytes
  bool lastHasNoSize = false;  // the last atom has size 0, which means "to the end of the file"
  // Whether there is a complete 'moof', ISO/IEC 14496-12 8.8.4.
  bool isFragmented = false;
  bool endsInsideFragment = false;  // a fragment that was cut off follows the last atom
  bool endsInsideSave = false;  // a 'moov' or 'mdat' that was cut off follows the last atom
  bool locatesItems = false;  // a 'meta' has file offsets, so nothing may move

  const Part& Movie() const { return atoms[movie]; }
};

// Reads the outline of the file `source`. Throws Refused: featureUnsupported (the file has no movie
// header), and what reading throws.
FileOutline ReadOutline(const ByteSource& source);

}  // namespace toolbox
