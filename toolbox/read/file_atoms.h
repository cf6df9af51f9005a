// What is beside the movie in its file, and goes into a new file with it.
#pragma once

#include <optional>
#include <vector>

#include "toolbox/disk/byte_source.h"
#include "toolbox/held_bytes.h"
#include "toolbox/movie/movie.h"
#include "toolbox/atoms/item_locations.h"
#include "toolbox/read/top_level.h"

namespace toolbox {

// Whether the atom is free room with nothing in it, or with the rest of a movie header. Recorders
// keep places and times in atoms of these types, so the type alone is not enough.
bool IsMereRoom(const ByteSource& source, const TopLevelAtom& atom);

// The atoms of the file that are neither its movie and media, nor an index that is valid only for
// the file as it is, nor mere room. What follows the last atom is added too, unless it is the start
// of an atom that was cut off.
std::vector<FileAtom> FindFileAtoms(const ByteSource& source);

// Whether a 'meta' of the file has the places of its items in the file, ISO/IEC 14496-12 8.11.3, so
// that nothing may be inserted or removed in front of them. Throws as LoadFileAtoms.
bool LocatesItems(const ByteSource& source);

// An atom beside a movie that is to be copied into a new file.
struct AtomToCopy {
  FileAtom atom;
  HeldBytes content;  // of a 'meta', without its head
  std::optional<ItemLocations> items;  // of a 'meta' that has places in the file
};

// The atoms of `source`, ready to be copied. Throws Refused: featureUnsupported (items with places
// of an unknown form), and what reading throws.
std::vector<AtomToCopy> LoadFileAtoms(const std::vector<FileAtom>& atoms, const ByteSource& source);

}  // namespace toolbox
