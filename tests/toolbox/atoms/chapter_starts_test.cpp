#include "toolbox/atoms/chapter_starts.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

// Chapters at 0 s ("a"), 1.5 s (without a title) and 0x100000000 units ("bc").
const Bytes kChapters = {0,    0,    0,    0, 0, 0, 0, 0, 1, 'a', 0, 0, 0, 0,   0,
                         0xE4, 0xE1, 0xC0, 0, 0, 0, 0, 1, 0, 0,   0, 0, 2, 'b', 'c'};

TEST(ChapterStarts, HaveACountOfEightOr32Bits) {
  const std::vector<std::uint64_t> expected = {0, 15'000'000, 0x100000000};
  const Bytes heads[] = {{0, 0, 0, 0, 3}, {1, 0, 0, 0, 9, 0, 0, 0, 3}};
  for (const Bytes& head : heads) {
    const ChapterStarts found = ReadChapterStarts(Join(head, kChapters));
    EXPECT_EQ(found.stated, 3U);
    EXPECT_EQ(found.starts, expected);
  }
}

TEST(ChapterStarts, AreReadAsFarAsTheListGoes) {
  const Bytes whole = Join(Bytes{1, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}, kChapters);
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const ChapterStarts found = ReadChapterStarts(ByteSpan(whole).first(size));
    EXPECT_EQ(found.stated, size < 9 ? 0 : 0xFFFFFFFF) << size;
    EXPECT_EQ(found.starts.size(), size < 19 ? 0U : size < 28 ? 1U : size < 39 ? 2U : 3U) << size;
  }
}

}  // namespace
}  // namespace toolbox
