#include "chapter/chapter.h"

#include <gtest/gtest.h>

#include <tuple>

#include "clipjoin/options.h"
#include "clipjoin/report.h"
#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"

namespace chapter {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using toolbox::Bytes;
using toolbox::FourCC;
using toolbox::Track;

constexpr FourCC kChap{"chap"}, kVideo{"vide"}, kSound{"soun"};

using Row = std::tuple<std::int64_t, std::int64_t, std::string>;  // start, duration, title

std::vector<Row> Read(toolbox::Movie movie) {
  std::vector<Row> rows;
  for (const Chapter& chapter : ReadChapters(movie)) {
    EXPECT_EQ(chapter.scale, movie->header.scale);
    rows.emplace_back(chapter.start, chapter.duration, chapter.title);
  }
  return rows;
}

// A movie of ten seconds.
class Chapters : public testing::Test {
 protected:
  Chapters() { toolbox::AddPlainTrack(movie_, kVideo, 600, toolbox::PlainRows(10, 600, 5)); }

  std::vector<Row> Built(const std::vector<Chapter>& chapters) {
    EXPECT_EQ(AddChapterTrack(chapters, &movie_, nullptr), toolbox::noErr);
    return Read(&movie_);
  }
  void Rescale(std::int32_t scale) { movie_.SetScale(scale); }

  toolbox::MovieRecord movie_;
};

TEST(ChapterTitles, AreTextInTheEncodingThatTheSampleStates) {
  const auto sample = [](const std::string& text, const Bytes& atoms) {
    return toolbox::Join(toolbox::U16(static_cast<std::uint16_t>(text.size())), toolbox::Text(text),
                         atoms);
  };
  const auto encoded = [](std::uint32_t encoding) {
    return toolbox::Atom("encd", toolbox::U32(encoding));
  };
  const Bytes style = toolbox::Atom("styl", toolbox::Zeros(14));
  const std::string accented = "\xC3\xA9";
  EXPECT_EQ(ChapterTitle(sample("\x8E", {})), accented) << "Mac Roman unless it says otherwise";
  EXPECT_EQ(ChapterTitle(sample(accented, encoded(256))), accented) << "UTF-8 without a mark";
  EXPECT_EQ(ChapterTitle(sample("x", toolbox::Join(style, encoded(256)))), "x");
  EXPECT_EQ(ChapterTitle(sample("\xFE\xFF" + std::string("\0\xE9", 2), encoded(256))), accented);
  EXPECT_EQ(ChapterTitle(sample("\xFF\xFE\xE9" + std::string(1, 0), encoded(256))), accented);
  EXPECT_EQ(ChapterTitle(sample(accented, encoded(0x08000100))), accented);
  EXPECT_EQ(ChapterTitle(sample("\x8E", toolbox::Join(encoded(0), encoded(256)))), accented)
      << "the first mark counts";

  // What is cut short is read as far as it goes.
  EXPECT_EQ(ChapterTitle({}), "");
  EXPECT_EQ(ChapterTitle(Bytes{0}), "");
  EXPECT_EQ(ChapterTitle(Bytes{0, 9, 'a', 'b'}), "ab");
  for (const Bytes& broken :
       {toolbox::Join(toolbox::U32(11), toolbox::Text("encd"), toolbox::U32(256)),
        toolbox::Join(toolbox::U32(13), toolbox::Text("encd"), toolbox::U32(256)),
        toolbox::Join(toolbox::U32(0), toolbox::Text("encd"), toolbox::U32(256)),
        toolbox::Join(toolbox::U32(0xFFFFFFFF), toolbox::Text("styl"), encoded(256)),
        Bytes{0, 0, 0, 12, 'e', 'n', 'c'}}) {
    EXPECT_EQ(ChapterTitle(sample("\x8E", broken)), accented) << "no mark that can be read";
  }
  CaptureStderr();
  EXPECT_EQ(ChapterTitle(sample("x", encoded(0x7FFF))), "");
  EXPECT_NE(GetCapturedStderr(), "");
}

TEST_F(Chapters, AreSortedByRealTimeAndLastUntilTheNext) {
  // Scales differ; of two at one time the first stays in front, and has no time.
  EXPECT_EQ(Built({{600, 900, 0, "1.5 s"}, {600, 600, 0, "1 s"}, {30, 30, 0, "also 1 s"}}),
            (std::vector<Row>{{600, 300, "also 1 s"}, {900, 5100, "1.5 s"}}));
  const Track track = movie_.tracks.back().get();
  EXPECT_FALSE(track->IsEnabled());
  EXPECT_EQ(toolbox::GetTrackOffset(track), 600);
  EXPECT_EQ(track->media->samples.Count(), 3U);
  EXPECT_EQ(track->media->samples.DurationOf(0), toolbox::MediaTime{});
}

TEST_F(Chapters, BehindTheEndOfTheMovieAreLeftOut) {
  CaptureStderr();
  const Track track = BuildChapterTrack({{600, 6001, 0, "late"},
                                         {600, 0, 0, "start"},
                                         {600, 6000, 0, "at the end"},
                                         {600, 9000, 0, "later"}},
                                        &movie_);
  EXPECT_EQ(GetCapturedStderr(), "Chapter late starts after the end of the movie.\n");
  ASSERT_NE(track, nullptr);
  EXPECT_EQ(track->media->samples.Count(), 2U);
  EXPECT_EQ(track->edits.Duration(), toolbox::MovieTime{6000});
}

TEST_F(Chapters, AreNoTrackWhenThereAreNone) {
  CaptureStderr();
  EXPECT_EQ(BuildChapterTrack({}, &movie_), nullptr);
  EXPECT_EQ(AddChapterTrack({{600, 7000, 0, "late"}}, &movie_, nullptr), toolbox::noErr);
  EXPECT_NE(GetCapturedStderr(), "");
  EXPECT_EQ(movie_.tracks.size(), 1U);
  EXPECT_FALSE(HasChapters(&movie_));
}

TEST_F(Chapters, KeepTheirTimesInScalesThatDoNotFit) {
  Rescale(1001);
  std::vector<Chapter> chapters;
  std::vector<std::int64_t> starts;
  for (int i = 0; i < 100; ++i) {
    chapters.push_back({30000, i * 3003, 0, std::to_string(i)});
    starts.push_back((i * 3003 * 1001 + 29999) / 30000);
  }
  const std::vector<Row> built = Built(chapters);
  ASSERT_EQ(built.size(), 100U);
  for (std::size_t i = 0; i < built.size(); ++i) {
    EXPECT_EQ(std::get<0>(built[i]), starts[i]);
    EXPECT_EQ(std::get<2>(built[i]), std::to_string(i)) << "its own title, not the one before";
  }
}

TEST_F(Chapters, OfManyMinutesFitWhereAScaleIsFine) {
  toolbox::AddPlainTrack(movie_, kSound, 1, toolbox::PlainRows(1, 7200, 5));
  Rescale(10'000'000);
  constexpr std::int64_t kHour = 36'000'000'000;
  EXPECT_EQ(Built({{10'000'000, 0, 0, "a"}, {10'000'000, kHour, 0, "b"}}),
            (std::vector<Row>{{0, kHour, "a"}, {kHour, kHour, "b"}}));
}

TEST_F(Chapters, AreNamedByOneTrackAlone) {
  toolbox::TrackRecord& sound =
      toolbox::AddPlainTrack(movie_, kSound, 600, toolbox::PlainRows(1, 10, 5));
  toolbox::TrackRecord& picture = *movie_.tracks[0];
  sound.AddReference(kChap, picture);
  sound.AddReference(kChap, sound);
  Built({{600, 0, 0, "a"}});
  EXPECT_EQ(sound.CountReferences(kChap), 0U);
  EXPECT_EQ(picture.Reference(kChap, 1), movie_.tracks.back().get());

  const Track chapters = movie_.tracks.back().get();
  toolbox::SetTrackEnabled(&picture, false);
  EXPECT_EQ(AddChapterReference(&movie_, chapters, nullptr), toolbox::noErr);
  EXPECT_EQ(picture.CountReferences(kChap) + chapters->CountReferences(kChap), 0U);
  EXPECT_EQ(sound.Reference(kChap, 1), chapters) << "what is heard where nothing is seen";
  toolbox::SetTrackEnabled(&sound, false);
  EXPECT_EQ(AddChapterReference(&movie_, chapters, nullptr), toolbox::trackNotInMovie);
  EXPECT_EQ(sound.CountReferences(kChap), 1U) << "nothing has changed";
  EXPECT_EQ(AddChapterReference(&movie_, chapters, chapters), toolbox::noErr);
  EXPECT_EQ(Read(&movie_), (std::vector<Row>{{0, 6000, "a"}})) << "a track may name itself";
}

TEST_F(Chapters, ReplaceATrackThatNobodyElseNeeds) {
  for (int i = 0; i < 3; ++i) Built({{600, 0, 0, "a"}});
  EXPECT_EQ(movie_.tracks.size(), 2U);
  movie_.tracks[0]->AddReference(FourCC{"subt"}, *movie_.tracks[1]);
  Built({{600, 0, 0, "b"}});
  EXPECT_EQ(movie_.tracks.size(), 3U) << "another reference to the old one";
  toolbox::SetTrackEnabled(movie_.tracks[2].get(), true);
  Built({{600, 0, 0, "c"}});
  EXPECT_EQ(movie_.tracks.size(), 4U) << "the old one is shown";
}

TEST_F(Chapters, AreReadOnceHoweverManyNameThem) {
  Built({{600, 0, 0, "a"}, {600, 100, 0, "b"}});
  toolbox::TrackRecord& chapters = *movie_.tracks.back();
  toolbox::TrackRecord& picture = *movie_.tracks.front();
  picture.references[0].targets.insert(picture.references[0].targets.begin(), nullptr);
  chapters.AddReference(kChap, chapters);
  chapters.AddReference(kChap, picture);
  EXPECT_EQ(Read(&movie_), (std::vector<Row>{{0, 100, "a"}, {100, 5900, "b"}}));
}

TEST_F(Chapters, ThatAreNotWantedGoWithTheirTime) {
  const auto filtered = [this](std::set<std::string> only, std::set<std::string> without) {
    const auto movie = movie_.Clone();
    clipjoin::FileOptions options;
    options.includeChapters = std::move(only);
    options.excludeChapters = std::move(without);
    FilterChapters(movie.get(), options);
    EXPECT_EQ(movie->tracks[0]->edits.Duration(), movie->Duration());
    return Read(movie.get());
  };
  CaptureStderr();
  const auto all =
      Built({{600, 600, 0, "a"}, {600, 1200, 0, "b"}, {600, 2000, 0, "c"}, {600, 3000, 0, "b"}});
  EXPECT_EQ(filtered({}, {}), all);
  EXPECT_EQ(filtered({}, {"b"}), (std::vector<Row>{{600, 600, "a"}, {1200, 1000, "c"}}));
  EXPECT_EQ(filtered({"c", "none"}, {}), (std::vector<Row>{{600, 1000, "c"}}));
  EXPECT_EQ(filtered({"a", "b"}, {"b"}), (std::vector<Row>{{600, 600, "a"}}));
  EXPECT_EQ(GetCapturedStderr(), "Warning: could not find chapter none\n");

  const Track second =
      BuildChapterTrack({{600, 0, 0, "x"}, {600, 900, 0, "y"}, {600, 2500, 0, "z"}}, &movie_);
  movie_.tracks[0]->AddReference(kChap, *second);
  EXPECT_EQ(filtered({}, {"a", "x", "z"}),
            (std::vector<Row>{{0, 800, "b"}, {800, 500, "c"}, {0, 1300, "y"}}));
}

}  // namespace
}  // namespace chapter
