// What stands beside the movie in its file, and goes into a new file with it.
#pragma once

#include <vector>

#include "toolbox/disk/byte_source.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/movie/movie.h"
#include "toolbox/read/top_level.h"

namespace toolbox {

// Whether the atom is room with nothing in it, or with what is left of a movie header: recorders
// keep places and times in what is called room.
bool IsMereRoom(const ByteSource& source, const TopLevelAtom& atom);

// The atoms of the file that are neither its movie and media, nor an index that only holds for the
// file as it is, nor mere room; and what follows the last atom, unless it is the start of one that
// was cut off.
std::vector<FileAtom> FindFileAtoms(const ByteSource& source);

// Whether a 'meta' of the file says where in the file its items lie, ISO/IEC 14496-12 8.11.3, so
// that nothing in front of them may come or go.
bool LocatesItems(const ByteSource& source);

// Appends those of `movie`. Items that are located in the file are laid into an 'mdat' of their
// own, and found there. Throws Refused: eofErr (items that are not there), featureUnsupported
// (items located in a way nobody knows), and what reading and writing throw.
void CopyFileAtoms(const MovieRecord& movie, OutputFile& output);

}  // namespace toolbox
