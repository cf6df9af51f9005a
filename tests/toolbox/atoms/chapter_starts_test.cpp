#include "toolbox/atoms/chapter_starts.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

// Chapters at 0 s ("a"), 1.5 s (without a title) and 0x100000000 units ("bc").
const Bytes kChapters = Made("0/8 1/1 'a'  15000000/8 0/1  0x100000000/8 2/1 'bc'");

TEST(ChapterStarts, HaveACountOfEightOr32Bits) {
  for (const char* head : {"0 3/1", "x01000000 9/1 3"}) {
    const ChapterStarts found = ReadChapterStarts(Join(Made(head), kChapters));
    EXPECT_EQ(found.stated, 3U);
    EXPECT_EQ(found.starts, (std::vector<std::uint64_t>{0, 15'000'000, 0x100000000}));
  }
}

TEST(ChapterStarts, AreReadAsFarAsTheListGoes) {
  const Bytes whole = Join(Made("x01000000 0/1 -1"), kChapters);
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const ChapterStarts found = ReadChapterStarts(ByteSpan(whole).first(size));
    EXPECT_EQ(found.stated, size < 9 ? 0 : 0xFFFFFFFF) << size;
    EXPECT_EQ(found.starts.size(), size < 19 ? 0U : size < 28 ? 1U : size < 39 ? 2U : 3U) << size;
  }
}

}  // namespace
}  // namespace toolbox
