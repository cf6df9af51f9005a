#include "toolbox/atoms/chapter_starts.h"

#include "toolbox/atoms/field_reader.h"

namespace toolbox {

ChapterStarts ReadChapterStarts(ByteSpan content) {
  ChapterStarts chapters;
  FieldReader reader(content);
  try {
    std::uint32_t versionAndFlags = 0, count = 0;
    std::uint8_t narrow = 0;
    reader("version", versionAndFlags);
    reader("count", narrow);
    if (versionAndFlags >> 24 != 0) reader("count", count);
    chapters.stated = versionAndFlags >> 24 != 0 ? count : narrow;
    for (std::uint64_t i = 0; i < chapters.stated; ++i) {
      std::uint64_t start = 0;
      std::uint8_t size = 0;
      reader("start", start);
      reader("size", size);
      reader.Take("title", size);
      chapters.starts.push_back(start);
    }
  } catch (const Malformed&) {
    // The list is cut short.
  }
  return chapters;
}

}  // namespace toolbox
