#include "chapter/xml.h"

#include <boost/algorithm/string/replace.hpp>
#include <ostream>

namespace chapter {
namespace {

std::string TwoDigits(std::int64_t number) {
  const std::string digits = std::to_string(number);
  return digits.size() < 2 ? "0" + digits : digits;
}

}  // namespace

std::ostream& WriteChapterToolXml(std::ostream& out, std::span<const Chapter> chapters) {
  out << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<chapters version=\"1\">\n";
  for (const Chapter& chapter : chapters) {
    out << "\t<chapter starttime=\"" << FormatChapterTime(chapter.start, chapter.scale) << "\">\n"
        << "\t\t<title>" << EscapeXmlText(chapter.title) << "</title>\n"
        << "\t</chapter>\n";
  }
  return out << "</chapters>\n" << std::flush;
}

std::string FormatChapterTime(std::int64_t start, std::int32_t scale) {
  const std::int64_t seconds = start / scale;
  const std::int64_t thirtieths = start % scale * 30 / scale;
  return (seconds == 0 ? "0" : FormatClock(seconds)) + "." + TwoDigits(thirtieths);
}

// One recursion for each power of 60.
std::string FormatClock(std::int64_t seconds) {
  const std::string last = TwoDigits(seconds % 60);
  return seconds / 60 == 0 ? last : FormatClock(seconds / 60) + ":" + last;
}

std::string EscapeXmlText(const std::string& text) {
  return boost::replace_all_copy(boost::replace_all_copy(text, "&", "&amp;"), "<", "&lt;");
}

}  // namespace chapter
