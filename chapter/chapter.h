// A chapter of a movie.
#pragma once

#include <cstdint>
#include <string>

namespace chapter {

struct Chapter {
  std::int32_t scale = 600;  // units per second
  std::int64_t start = 0;  // on the movie's time line
  std::int64_t duration = 0;  // 0 until a chapter track is built
  std::string title;  // UTF-8
};

}  // namespace chapter
