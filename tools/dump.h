// What moviedump prints.
#pragma once

#include <ostream>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/movie.h"

namespace tools {

// Prints every atom of `source`: where it starts, its type and size, and its fields where the
// toolbox knows them. A malformed atom is said to be so in its place; the walk goes on behind it.
void DumpAtoms(const toolbox::ByteSource& source, bool showsDates, std::ostream& out);

// Prints the movie as the toolbox has it in mind. Files are named as seen from the folder of the
// movie.
void DumpModel(const toolbox::MovieRecord& movie, bool showsDates, std::ostream& out);

}  // namespace tools
