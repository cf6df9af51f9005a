// A movie as the toolbox has it in mind, printed for a reader.
#pragma once

#include <ostream>

#include "toolbox/movie/movie.h"

namespace tools {

// Prints the movie, then each track with its edits, references, descriptions, samples and user
// data. Files are named as seen from the folder of the movie.
void DumpModel(const toolbox::MovieRecord& movie, bool showsDates, std::ostream& out);

}  // namespace tools
