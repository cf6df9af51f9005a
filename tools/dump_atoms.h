// The atoms of a file, printed one a line as they lie in it.
#pragma once

#include <ostream>

#include "toolbox/files/byte_source.h"

namespace tools {

// Prints every atom of `source`: where it starts, its type and size, and its fields where the
// toolbox knows them. A malformed atom is said to be so in its place; the walk goes on behind it.
void DumpAtoms(const toolbox::ByteSource& source, bool showsDates, std::ostream& out);

}  // namespace tools
