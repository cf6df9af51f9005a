// The top-level atoms of a movie file that are not part of the movie. A new file gets copies of
// them.
#pragma once

#include <optional>
#include <vector>

#include "toolbox/atoms/item_locations.h"
#include "toolbox/disk/byte_source.h"
#include "toolbox/held_bytes.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// What an atom has that can be overwritten.
enum class Room {
  kNone,  // it must stay
  kZeros,  // nothing but zeros
  kOldHeader,  // the remains of a movie header
};
// The room in an atom. Only a 'free', a 'skip' or padding has any. Recorders keep locations and
// times in atoms of these types, so the type alone is not enough. Throws what reading throws.
Room RoomIn(const ByteSource& source, const FileAtom& atom);

// Finds the atoms that a copy of the movie must keep, in file order. It leaves out the movie, its
// media data, its fragments, indexes that are valid only for this file, and free room. Bytes after
// the last atom are one more entry (FileAtom::kTrailer), unless they are zeros or the start of an
// atom that was cut off. Throws what reading throws.
std::vector<FileAtom> FindFileAtoms(const ByteSource& source);

// An atom that will be copied into a new file. A 'meta' can have file offsets of its items ('iloc',
// ISO/IEC 14496-12 8.11.3), which must be changed on the way, so it is read into memory. The
// toolbox knows of no file offsets in other atoms; they are copied from the source.
struct AtomToCopy {
  FileAtom atom;
  HeldBytes content;  // of a 'meta', without size and type; else empty
  std::optional<ItemLocations> items;  // of a 'meta' that has file offsets
};

// Prepares `atom`, which is in `source`, for copying. Throws Refused: featureUnsupported (the
// locations of items have an unknown form, or a 'meta' has more than 64 MiB), and what reading
// throws.
AtomToCopy LoadFileAtom(const FileAtom& atom, const ByteSource& source);

}  // namespace toolbox
