// The chapters of a movie.
#pragma once

#include <optional>
#include <vector>

#include "chapter/chapter.h"
#include "toolbox/movie/movie.h"

namespace clipinfo {

// The chapters in the chapter tracks of the movie or, if it has none, in its list of chapters
// ('chpl'). Nothing if there are more than 100,000: such a movie is damaged or made to keep its
// reader busy, because the title of each chapter is read from a file.
std::optional<std::vector<chapter::Chapter>> ReadChapters(toolbox::MovieRecord& movie);

}  // namespace clipinfo
