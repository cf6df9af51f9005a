// moviedump prints two parts: the atoms of a file, and the movie that the toolbox reads from them.
#pragma once

#include <ostream>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/movie.h"

namespace tools {

// Prints every atom of `source`: its offset, type and size (bytes), and its fields if the toolbox
// knows them. A malformed atom is reported in its place, and the dump continues after it. Dates are
// left out unless `showsDates`, so that outputs can be compared. May throw Refused (I/O errors).
void DumpAtoms(const toolbox::ByteSource& source, bool showsDates, std::ostream& out);

// Prints the movie as the toolbox has read it. Times are in the units of movie or media. Paths are
// relative to the folder of the movie. Data references that the reader left unresolved are looked
// up here, so that a missing file is only reported. `showsDates` is as in DumpAtoms.
void DumpModel(const toolbox::MovieRecord& movie, bool showsDates, std::ostream& out);

}  // namespace tools
