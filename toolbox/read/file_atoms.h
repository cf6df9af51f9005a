// The top-level atoms of a movie file that are not part of the movie. A new file gets copies of
// them.
#pragma once

#include <optional>
#include <vector>

#include "toolbox/atoms/item_locations.h"
#include "toolbox/disk/byte_source.h"
#include "toolbox/held_bytes.h"
#include "toolbox/movie/movie.h"
#include "toolbox/read/top_level.h"

namespace toolbox {

// What an atom has that can be overwritten.
enum class Room {
  kNone,  // it must stay
  kZeros,  // nothing but zeros
  kOldHeader,  // the remains of a movie header
};
// The room in an atom. Only a 'free', a 'skip' or padding has any. Recorders keep locations and
// times in atoms of these types, so the type alone is not enough. Throws what reading throws.
Room RoomIn(const ByteSource& source, const TopLevelAtom& atom);

// Finds the atoms that a copy of the movie must keep, in file order. It leaves out the movie, its
// media data, its fragments, indexes that are valid only for this file, and free room. Bytes after
// the last atom are one more entry (FileAtom::kTrailer), unless they are zeros or the start of an
// atom that was cut off. Throws what reading throws.
std::vector<FileAtom> FindFileAtoms(const ByteSource& source);

// Whether the atom is a 'meta' that gives file offsets of its items ('iloc', ISO/IEC 14496-12
// 8.11.3). Then no bytes may be inserted or removed before the items. True also if the locations
// cannot be read, because they could be file offsets.
bool LocatesItems(const ByteSource& source, const TopLevelAtom& atom);

// An atom that will be copied into a new file. The offsets of items must be changed on the way, so
// a 'meta' is read into memory. All other atoms are copied from the source.
struct AtomToCopy {
  FileAtom atom;
  HeldBytes content;  // of a 'meta', without size and type; else empty
  std::optional<ItemLocations> items;  // of a 'meta' that has file offsets
};

// Prepares `atoms`, which are in `source`, for copying. Throws Refused: featureUnsupported (the
// locations of items have an unknown form, or a 'meta' has more than 64 MiB), and what reading
// throws.
std::vector<AtomToCopy> LoadFileAtoms(const std::vector<FileAtom>& atoms, const ByteSource& source);

}  // namespace toolbox
