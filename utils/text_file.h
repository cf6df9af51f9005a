// Text files that the commands write beside the movie.
#pragma once

#include <string>

namespace utils {

// Writes the text to a new file, which gets its name when it is complete and then replaces an
// existing file. Never replaces a movie: its name may have been given by mistake. Returns why the
// file was not written; an empty text if it was.
std::string WriteTextFile(const std::string& path, const std::string& text);

}  // namespace utils
