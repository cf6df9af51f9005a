#include "chapter/xml.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace chapter {
namespace {

TEST(ChapterToolXml, CountsSecondsInPowersOfSixtyAndTheirFractionInThirtieths) {
  struct Row {
    std::int64_t start;
    std::int32_t scale;
    const char* text;
  };
  constexpr Row kRows[] = {
      {0, 600, "0.00"},
      {1, 600, "0.00"},
      {599, 600, "0.29"},
      {300, 600, "0.15"},
      {3000, 600, "05.00"},
      {131, 2, "01:05.15"},
      {3600, 1, "01:00:00.00"},
      {3725 * 90000LL, 90000, "01:02:05.00"},
      {216000LL * 600 + 20, 600, "01:00:00:00.01"},
      {2147483646, 2147483647, "0.29"},
      {-300, 600, "0.-15"},
  };
  for (const Row& row : kRows) {
    EXPECT_EQ(FormatChapterTime(row.start, row.scale), row.text) << row.start << " / " << row.scale;
  }
}

TEST(ChapterToolXml, HoldsEveryChapterInListOrder) {
  std::ostringstream out;
  const std::vector<Chapter> chapters{{600, 0, 0, "A&B<C>"}, {30, 45, 0, "&lt; \"\u00e9\"\x01\t"}};
  EXPECT_EQ(&WriteChapterToolXml(out, chapters), &out);
  WriteChapterToolXml(out, {});
  EXPECT_EQ(out.str(),
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<chapters version=\"1\">\n"
            "\t<chapter starttime=\"0.00\">\n\t\t<title>A&amp;B&lt;C></title>\n\t</chapter>\n"
            "\t<chapter starttime=\"01.15\">\n\t\t<title>&amp;lt; "
            "\"\u00e9\"\x01\t</title>\n\t</chapter>\n"
            "</chapters>\n"
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<chapters version=\"1\">\n</chapters>\n");
}

}  // namespace
}  // namespace chapter
