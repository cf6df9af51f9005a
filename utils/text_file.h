// Text files that the commands write in addition to the movie.
#pragma once

#include <string>

namespace utils {

// Writes the text to a new file, which gets its name when it is complete and then replaces an
// existing file. Never replaces a movie, because its name may have been given by mistake. Returns
// the reason if the file was not written, else an empty string.
std::string WriteTextFile(const std::string& path, const std::string& text);

}  // namespace utils
