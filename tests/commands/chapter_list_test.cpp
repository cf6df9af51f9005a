#include "chapter/chapter_list.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"

namespace chapter {
namespace {

using toolbox::Bytes;
using toolbox::FourCC;
using toolbox::Join;
using toolbox::Text;
using toolbox::U32;

constexpr FourCC kList{"chpl"};

// A list of chapters at 0.5 s, 0 s and 20 s.
const Bytes kChapters = Join(U32(0), U32(5'000'000), Bytes{3}, Text("two"), U32(0), U32(0),
                             Bytes{3}, Text("one"), U32(0), U32(200'000'000), Bytes{0});

// A movie of ten seconds with a list.
struct Book : toolbox::MovieRecord {
  explicit Book(Bytes list) {
    toolbox::AddPlainTrack(*this, FourCC{"soun"}, 600, toolbox::PlainRows(10, 600, 5));
    userData.items = {{kList, std::move(list)}};
  }
};

TEST(ChapterList, IsATrackUntilTheMovieIsWritten) {
  const Bytes heads[] = {Join(U32(0), Bytes{3}), Join(U32(1 << 24), Bytes{0}, U32(3))};
  for (const Bytes& head : heads) {
    Book book(Join(head, kChapters));
    const ChapterList list(&book);
    const std::vector<Chapter> chapters = ReadChapters(&book);
    ASSERT_EQ(chapters.size(), 2U) << "the one after the end is not there";
    EXPECT_EQ(chapters[0].title, "one");
    EXPECT_EQ(chapters[1].title, "two");
    EXPECT_EQ(chapters[1].start, 300);
    EXPECT_EQ(chapters[1].duration, 5700);
    ASSERT_EQ(book.tracks.size(), 2U);
    EXPECT_FALSE(book.tracks[1]->IsEnabled());
    list.RemoveListOrTrack(&book);
    EXPECT_EQ(book.tracks.size(), 1U);
    EXPECT_EQ(book.tracks[0]->CountReferences(FourCC{"chap"}), 0U);
    EXPECT_EQ(book.userData.Item(kList, 1), Join(head, kChapters));
  }
}

TEST(ChapterList, IsReadWithoutATrack) {
  Book book(Join(U32(0), Bytes{3}, kChapters));
  const std::vector<Chapter> chapters = ReadChaptersOrList(&book);
  ASSERT_EQ(chapters.size(), 2U) << "the one after the end is not there";
  const std::int32_t scale = chapters[0].scale;
  EXPECT_EQ(chapters[0].title, "one");
  EXPECT_EQ(chapters[0].duration, scale / 2);
  EXPECT_EQ(chapters[1].title, "two");
  EXPECT_EQ(chapters[1].start, scale / 2);
  EXPECT_EQ(chapters[1].duration, 10 * scale - scale / 2);
  EXPECT_EQ(book.tracks.size(), 1U);
  ASSERT_EQ(AddChapterTrack({{.scale = 1, .start = 3, .title = "of the track"}}, &book, nullptr),
            toolbox::noErr);
  ASSERT_EQ(ReadChaptersOrList(&book).size(), 1U) << "a track goes before a list";
  EXPECT_EQ(ReadChaptersOrList(&book)[0].title, "of the track");
}

TEST(ChapterList, GivesWayToTheTrackWhenTimesChange) {
  Book book(Join(U32(0), Bytes{3}, kChapters));
  const ChapterList list(&book);
  EXPECT_EQ(toolbox::DeleteMovieSegment(&book, 0, 100), toolbox::noErr);
  list.RemoveListOrTrack(&book);
  EXPECT_EQ(book.userData.Count(kList), 0U);
  ASSERT_EQ(book.tracks.size(), 2U);
  EXPECT_EQ(ReadChapters(&book)[1].start, 200);
}

TEST(ChapterList, FollowsTheTracksThatRemain) {
  Book book(Join(U32(0), Bytes{3}, kChapters));
  toolbox::AddPlainTrack(book, FourCC{"vide"}, 600, toolbox::PlainRows(10, 600, 5));
  ChapterList list(&book);
  book.RemoveTrack(*book.tracks[1]);
  EXPECT_FALSE(HasChapters(&book)) << "the picture referred to the chapters";
  list.Attach(&book);
  EXPECT_TRUE(HasChapters(&book));
  book.RemoveTrack(*book.tracks[0]);
  list.Attach(&book);
  EXPECT_TRUE(book.tracks.empty());
}

TEST(ChapterList, IsReadAsFarAsItGoes) {
  const Bytes whole = Join(U32(0), Bytes{200}, kChapters);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    Book book(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    const ChapterList list(&book);
    const std::size_t expected = size < 14 ? 0 : size < 26 ? 1 : 2;
    EXPECT_EQ(ReadChapters(&book).size(), expected) << size;
    EXPECT_EQ(book.tracks.size(), expected == 0 ? 1U : 2U) << size;
    list.RemoveListOrTrack(&book);
    EXPECT_EQ(book.tracks.size(), 1U) << size;
  }
}

}  // namespace
}  // namespace chapter
