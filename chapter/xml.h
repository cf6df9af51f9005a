// A movie's chapters as an XML document for a chapter tool.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>

#include "chapter/chapter.h"

namespace chapter {

// Writes the whole document, UTF-8, in list order, and flushes the stream. One that has failed
// takes nothing; nobody is told.
std::ostream& WriteChapterToolXml(std::ostream& out, std::span<const Chapter> chapters);

// Seconds and thirtieths of a second: "05.15", "01:05.15"; below one second "0.15". `scale` > 0.
std::string FormatChapterTime(std::int64_t start, std::int32_t scale);
// "05", "01:05", "01:00:00": two digits for each power of 60, hours too.
std::string FormatClock(std::int64_t seconds);
// '&' and '<' as entities; whatever else stands.
std::string EscapeXmlText(const std::string& text);

}  // namespace chapter
