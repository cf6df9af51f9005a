// The list of chapters in user data ('chpl'), as some MPEG-4 writers store it.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/bytes.h"

namespace toolbox {

// When the chapters of a list start, in units of 100 ns. `stated` is the number of chapters that
// the list claims; it has fewer if it is cut short.
struct ChapterStarts {
  std::uint64_t stated = 0;
  std::vector<std::uint64_t> starts;
};

// Reads the content of a 'chpl': a version, flags, the number of chapters (8 bits in version 0; a
// reserved byte and 32 bits in later versions) and, for each chapter, its start, the length of its
// title in bytes (8 bits), and the title.
ChapterStarts ReadChapterStarts(ByteSpan content);

}  // namespace toolbox
