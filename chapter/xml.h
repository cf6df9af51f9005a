// The chapters of a movie as an XML document for a chapter tool.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>

#include "chapter/chapter.h"

namespace chapter {

// Writes the whole document in UTF-8, with the chapters in list order, and flushes the stream. A
// title is written as it is, even if it has a control character that XML does not allow; the
// document is then not well-formed.
std::ostream& WriteChapterToolXml(std::ostream& out, std::span<const Chapter> chapters);

// A time in `scale` units per second (> 0) as clock time with thirtieths of a second: "05.15",
// "01:05.15"; "0.15" below one second.
std::string FormatChapterTime(std::int64_t start, std::int32_t scale);
// Seconds as "05", "01:05" or "01:00:00".
std::string FormatClock(std::int64_t seconds);
// Replaces '&' and '<' by entities. Nothing else needs it: the text is used in elements only.
std::string EscapeXmlText(const std::string& text);

}  // namespace chapter
