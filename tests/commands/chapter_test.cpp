#include "chapter/chapter.h"

#include <boost/algorithm/hex.hpp>

#include "chapter/annotations.h"
#include "chapter/chapter_list.h"
#include "chapter/playback.h"
#include "chapter/text.h"
#include "chapter/xml.h"
#include "clipjoin/options.h"
#include "clipjoin/report.h"
#include "tests/toolbox/movies.h"
#include "toolbox/atoms/text_atoms.h"

namespace chapter {
namespace {

using namespace toolbox;  // the bytes of a test
using clipjoin::Chapter;

constexpr FourCC kChap{"chap"}, kVideo{"vide"}, kSound{"soun"}, kList{"chpl"};

using Row = std::tuple<std::int64_t, std::int64_t, std::string>;  // start, duration, title
using Rows = std::vector<Row>;

Rows Read(Movie movie) {
  Rows rows;
  for (const Chapter& chapter : ReadChapters(movie)) {
    EXPECT_EQ(chapter.scale, movie->header.scale);
    rows.emplace_back(chapter.start, chapter.duration, chapter.title);
  }
  return rows;
}

// A movie of ten seconds.
class Chapters : public testing::Test {
 protected:
  Chapters() { AddPlainTrack(movie_, kVideo, 600, PlainRows(10, 600, 5)); }

  Rows Built(const std::vector<Chapter>& chapters) {
    EXPECT_EQ(AddChapterTrack(chapters, &movie_, nullptr), noErr);
    return Read(&movie_);
  }

  MovieRecord movie_;
};

TEST(ChapterTitles, AreTextInTheEncodingThatTheSampleStates) {
  const std::string macRoman = "1/2 x8E ", utf8 = "2/2 xC3A9 ", mark = "encd{ 256 } ";
  const std::string samples[] = {
      macRoman, utf8 + mark, utf8 + "styl{ *14 } " + mark, "4/2 xFEFF00E9 " + mark,
      "4/2 xFFFEE900 " + mark, utf8 + "encd{ 0x08000100 }", macRoman + "encd{ 0 } " + mark,
      // Nothing states an encoding that can be read.
      macRoman + "11 'encd' 256", macRoman + "13 'encd' 256", macRoman + "0 'encd' 256",
      macRoman + "-1 'styl' " + mark, macRoman + "12 'enc'", "9/2 x8E"};
  for (const auto& sample : samples) EXPECT_EQ(ChapterTitle(Made(sample)), "\xC3\xA9") << sample;
  EXPECT_EQ(ChapterTitle({}), "");
  EXPECT_EQ(ChapterTitle(Bytes{0}), "");
}

TEST_F(Chapters, AreSortedByRealTimeAndLastUntilTheNext) {
  // Scales differ; of two at one time, the first stays first and has no duration.
  EXPECT_EQ(Built({{600, 900, 0, "1.5 s"}, {600, 600, 0, "1 s"}, {30, 30, 0, "also 1 s"}}),
            (Rows{{600, 300, "also 1 s"}, {900, 5100, "1.5 s"}}));
  const Track track = movie_.tracks.back().get();
  EXPECT_EQ(GetTrackOffset(track), 600);
  EXPECT_EQ(track->media->samples.Count(), 3U);
  EXPECT_EQ(track->media->samples.DurationOf(0), MediaTime{});
}

TEST_F(Chapters, KeepTheirTimesInScalesThatDoNotFit) {
  movie_.SetScale(1001);
  std::vector<Chapter> chapters;
  Rows expected;
  const auto at = [](std::int64_t i) { return (i * 3003 * 1001 + 29999) / 30000; };
  for (int i = 0; i < 100; ++i) {
    chapters.push_back({30000, i * 3003, 0, std::to_string(i)});
    expected.emplace_back(at(i), (i == 99 ? 10010 : at(i + 1)) - at(i), std::to_string(i));
  }
  EXPECT_EQ(Built(chapters), expected);
}

TEST_F(Chapters, OfManyMinutesFitWhereAScaleIsFine) {
  AddPlainTrack(movie_, kSound, 1, PlainRows(1, 7200, 5));
  movie_.SetScale(10'000'000);
  // A length of 32 bits holds an hour in units of 1/312500 s, which are 32 movie units.
  constexpr std::int64_t kEnd = 72'000'000'000, kHour = kEnd / 2 + 32;
  EXPECT_EQ(Built({{10'000'000, 0, 0, "a"}, {10'000'000, kHour, 0, "b"}}),
            (Rows{{0, kHour, "a"}, {kHour, kEnd - kHour, "b"}}));
}

TEST_F(Chapters, AreNamedByOneTrack) {
  TrackRecord& sound = AddPlainTrack(movie_, kSound, 600, PlainRows(1, 10, 5));
  TrackRecord& picture = *movie_.tracks[0];
  sound.AddReference(kChap, picture);
  sound.AddReference(kChap, sound);
  Built({{600, 0, 0, "a"}});
  const Track chapters = movie_.tracks.back().get();
  EXPECT_EQ(sound.CountReferences(kChap), 0U);
  EXPECT_EQ(picture.Reference(kChap, 1), chapters);

  SetTrackEnabled(&picture, false);
  EXPECT_EQ(AddChapterReference(&movie_, chapters, nullptr), noErr);
  EXPECT_EQ(picture.CountReferences(kChap) + chapters->CountReferences(kChap), 0U);
  EXPECT_EQ(sound.Reference(kChap, 1), chapters) << "what is heard if nothing is seen";
  SetTrackEnabled(&sound, false);
  EXPECT_EQ(AddChapterReference(&movie_, chapters, chapters), noErr);
  sound.AddReference(kChap, *chapters);
  chapters->references[0].targets.insert(chapters->references[0].targets.begin(), nullptr);
  EXPECT_EQ(Read(&movie_), (Rows{{0, 6000, "a"}})) << "once, and a track may name itself";
}

TEST_F(Chapters, ReplaceATrackThatNothingElseNeeds) {
  for (int i = 0; i < 3; ++i) Built({{600, 0, 0, "a"}});
  EXPECT_EQ(movie_.tracks.size(), 2U);
  movie_.tracks[0]->AddReference(FourCC{"subt"}, *movie_.tracks[1]);
  Built({{600, 0, 0, "b"}});
  EXPECT_EQ(movie_.tracks.size(), 3U) << "another reference to the old one";
  SetTrackEnabled(movie_.tracks[2].get(), true);
  Built({{600, 0, 0, "c"}});
  EXPECT_EQ(movie_.tracks.size(), 4U) << "the old one is shown";
}

TEST_F(Chapters, ThatAreRemovedTakeTheirTimeWithThemOnce) {
  Built({{600, 600, 0, "a"}, {600, 1200, 0, "b"}, {600, 2000, 0, "c"}, {600, 3000, 0, "b"}});
  const Track second =
      BuildChapterTrack({{600, 0, 0, "x"}, {600, 900, 0, "y"}, {600, 2500, 0, "z"}}, &movie_);
  movie_.tracks[0]->AddReference(kChap, *second);
  clipjoin::FileOptions options;
  options.excludeChapters = {"a", "x", "z"};
  FilterChapters(&movie_, options);
  EXPECT_EQ(movie_.tracks[0]->edits.Duration(), movie_.Duration());
  EXPECT_EQ(Read(&movie_), (Rows{{0, 800, "b"}, {800, 500, "c"}, {0, 1300, "y"}}));
}

// A list of chapters at 0.5 s, 0 s and, after the end, at 20 s.
const Bytes kListed = Made("5000000/8 3/1 'two' 0/8 3/1 'one' 200000000/8 0/1");
const Bytes kHeads[] = {Made("0 3/1"), Made("0x1000000 0/1 3")};

class ListOfChapters : public Chapters {
 protected:
  ListOfChapters() { movie_.userData.items = {{kList, Join(kHeads[0], kListed)}}; }
};

TEST_F(ListOfChapters, IsATrackUntilTheMovieIsWritten) {
  for (const Bytes& head : kHeads) {
    movie_.userData.items = {{kList, Join(head, kListed)}};
    const ChapterList list(&movie_);
    EXPECT_EQ(Read(&movie_), (Rows{{0, 300, "one"}, {300, 5700, "two"}}));
    EXPECT_FALSE(movie_.tracks[1]->IsEnabled());
    list.RemoveListOrTrack(&movie_);
    EXPECT_EQ(movie_.tracks.size(), 1U);
    EXPECT_EQ(movie_.tracks[0]->CountReferences(kChap), 0U);
    EXPECT_EQ(movie_.userData.Item(kList, 1), Join(head, kListed));
  }
}

TEST_F(ListOfChapters, IsReadWithoutATrack) {
  const auto read = ReadChaptersOrList(&movie_);
  ASSERT_EQ(read.size(), 2U);
  EXPECT_EQ(std::tuple(read[1].start, read[1].duration, read[1].title), (Row{45000, 855000, "two"}))
      << "in units of 1/90000 s";
  EXPECT_EQ(movie_.tracks.size(), 1U);
  Built({{1, 3, 0, "of the track"}});
  EXPECT_EQ(ReadChaptersOrList(&movie_)[0].title, "of the track");
}

TEST_F(ListOfChapters, FollowsTheTracksThatRemain) {
  AddPlainTrack(movie_, kSound, 600, PlainRows(10, 600, 5));
  ChapterList list(&movie_);
  movie_.RemoveTrack(*movie_.tracks[0]);
  EXPECT_FALSE(HasChapters(&movie_)) << "the picture referred to the chapters";
  list.Attach(&movie_);
  EXPECT_TRUE(HasChapters(&movie_));
  movie_.RemoveTrack(*movie_.tracks[0]);
  list.Attach(&movie_);
  EXPECT_TRUE(movie_.tracks.empty());
}

TEST_F(ListOfChapters, IsReadAsFarAsItGoes) {
  const Bytes whole = Join(U32(0), Bytes{200}, kListed);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    movie_.userData.items = {{kList, {whole.data(), whole.data() + size}}};
    const ChapterList list(&movie_);
    const std::size_t expected = size < 14 ? 0 : size < 26 ? 1 : 2;
    EXPECT_EQ(Read(&movie_).size(), expected) << size;
    list.RemoveListOrTrack(&movie_);
    EXPECT_EQ(movie_.tracks.size(), 1U) << size;
  }
}

TEST(ChapterToolXml, CountsSecondsInPowersOfSixtyAndTheirFractionInThirtieths) {
  const std::tuple<std::int64_t, std::int32_t, const char*> times[] = {
      {0, 600, "0.00"},         {599, 600, "0.29"},
      {3000, 600, "05.00"},     {131, 2, "01:05.15"},
      {3600, 1, "01:00:00.00"}, {216000LL * 600 + 20, 600, "01:00:00:00.01"},
      {-300, 600, "0.-15"},     {2147483646, 2147483647, "0.29"}};
  for (const auto& [start, scale, text] : times) EXPECT_EQ(FormatChapterTime(start, scale), text);
}

TEST(PlaybackFlags, AreReadWithADefaultAndReplaced) {
  MovieRecord movie;
  EXPECT_EQ(GetMovieUserDataLong(&movie, kList, 5), 5);
  EXPECT_EQ(SetMovieUserDataLong(&movie, kList, -2), noErr);
  EXPECT_EQ(GetMovieUserDataLong(&movie, kList, 5), -2);
  EXPECT_EQ(SetMovieUserDataByte(&movie, kList, 0), noErr);
  EXPECT_EQ(GetMovieUserDataLong(&movie, kList, 5), 5) << "too short";
  EXPECT_FALSE(GetMovieUserDataByte(&movie, kList, true));
  movie.userData.items = {{kList, {0}}, {kList, {1}}, {kList, {1, 1}}};
  EXPECT_EQ(SetMovieUserDataByte(&movie, kList, 2), noErr);
  EXPECT_EQ(movie.userData.items, (std::vector<UserDataItem>{{kList, {2}}}));
}

// --- Annotations

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using Items = std::vector<UserDataItem>;

constexpr FourCC kName{"\251nam"}, kMeta{"meta"};

Bytes Roman(const std::string& text) {
  return Join(U16(static_cast<std::uint16_t>(text.size())), U16(0), Text(text));
}

// What a 'meta' item of these atoms adds to a movie's user data, and what is printed.
std::pair<Items, std::string> Converted(const Bytes& atoms) {
  MovieRecord movie;
  const UserDataItem meta{kMeta, Join(Zeros(4), atoms)};
  movie.userData.items = {meta};
  CaptureStderr();
  ConvertMovieTags(&movie);
  const std::string said = GetCapturedStderr();
  EXPECT_EQ(movie.userData.items.front(), meta) << "it stays";
  return {{movie.userData.items.begin() + 1, movie.userData.items.end()}, said};
}

// The texts that are stored for a text: the Mac Roman one and the one of a language, in hex.
std::string Stored(const std::string& text) {
  UserDataRecord data;
  AddUserDataTextUtf8(&data, kName, text);
  std::string stored;
  const auto entries = ReadTextEntries(data.Item(kName, 1));
  for (const TextEntry& entry : entries.value()) {
    stored += (stored.empty() ? "" : " ") + std::to_string(entry.language) + ":" +
              boost::algorithm::hex(std::string(entry.text.begin(), entry.text.end()));
  }
  return stored;
}

TEST(Annotations, AreInTheFirstLanguageThatHasMostOfTheText) {
  const std::map<std::string, std::string> texts{
      {"Cafe\u0301", "0:4361668E"},
      {"“–€”", "0:D2D0DBD3"},
      {"Žluť", "0:3F6C753F 24:EB6C75E9"},
      {"żółw", "0:3F973F77 24:FD97B877"},
      {"İs", "0:3F73 17:DC73"},
      {"Țară", "0:3F61723F 37:DE6172BE"},
      {"Ελά", "0:3F3F3F 14:B6ECC0"},
      {"שלום", "0:3F3F3F3F 10:F9ECE5ED"},
      {"한국", "0:3F3F0000 23:C7D1B1B9"},
      {"日本", "0:3F3F0000 11:93FA967B"},
      {"Ελά 🎵!", "0:3F3F3F20 14:B6ECC020"},
      // Nothing of these from the start on: the bytes themselves.
      {"", "0:"},
      {"🎵", "0:F09F8EB5"},
      {"\xFF\xFE", "0:FFFE"}};
  for (const auto& [text, stored] : texts) EXPECT_EQ(Stored(text), stored) << text;
}

// A tag, for Made.
std::string Tag(const std::string& type, const std::string& value) {
  return type + "{ data{ 1 0 " + value + " } } ";
}

TEST(Annotations, TakeTheNamesThatQuickTimeHasForTags) {
  const std::string list = Tag("\251wrt", "'W'") + Tag("\251grp", "'G'") + Tag("\251too", "'T'") +
                           Tag("\251cmt", "'C'") + Tag("trkn", "x0000000301") +
                           Tag("covr", "'picture'") + Tag("tmpo", "120/2") + Tag("tmpo", "9/2");
  const Items expected{{{"\251com"}, Roman("W")},     {{"\251des"}, Roman("G")},
                       {{"\251enc"}, Roman("T")},     {{"\251cmt"}, Roman("C")},
                       {{"\251trk"}, Roman("3/256")}, {{"tmpo"}, U16(9)}};
  EXPECT_EQ(Converted(Made("hdlr{ *25 } ilst{ " + list + "\251nam{ 'cut' } } free{ *9 }")).first,
            expected);
  const std::map<int, std::string> genres{{0, ""}, {1, "Blues"}, {126, "Dance Hall"}, {127, ""}};
  for (const auto& [number, name] : genres) {
    const std::string genre = Tag("gnre", std::to_string(number) + "/2");
    EXPECT_EQ(Converted(Made("ilst{ " + genre + "}")).first, (Items{{{"\251gen"}, Roman(name)}}));
  }
}

TEST(Annotations, StopWhereAListIsMalformed) {
  const Items none, name{{kName, Roman("x")}};
  const std::string tag = Tag("\251nam", "'x'");
  for (const auto& [atoms, items, fault] : std::vector<std::tuple<std::string, Items, std::string>>{
           {"90 'ilst' " + tag, none, "ilst length 90 at 0 exceeds container length 33"},
           {"ilst{ " + tag + "} uuid{ *2 }", name,
            "uuid length 10 at 25 exceeds container length 33"},
           {"ilst{ " + tag + "7 'y\x1Bll' *20 }", name,
            "y\\x1bll length 7 at 25 exceeds container length 61"},
           // Padding is no fault, and ends a list.
           {"ilst{ " + tag + "*4 }", name, ""},
           {"free{ } ilst{ " + tag + "}", none, ""},
           {"ilst{ " + tag + "} *3", name, ""},
           {"", none, ""}}) {
    const auto [found, said] = Converted(Made(atoms));
    EXPECT_EQ(found, items) << atoms;
    const std::string start = "Error processing user data; atom ";
    EXPECT_EQ(said, fault.empty() ? "" : start + fault + "\n");
  }
  EXPECT_EQ(clipjoin::Close(true, 0), 0) << "no failure has been counted";
  MovieRecord movie;
  movie.userData.items = {{kMeta, {0, 0}}};
  ConvertMovieTags(&movie);
  ConvertMovieTags(nullptr);
  Bytes nest = Made(tag);
  for (int i = 0; i < 100; ++i) nest = Atom("ilst", nest);
  EXPECT_EQ(Converted(nest).first.size(), 1U) << "lists in lists are not followed to their end";
}

TEST(TextEncodings, AreConvertedIntoEachOther) {
  CaptureStderr();
  const auto converted = ConvertTextEncoding;
  EXPECT_EQ(converted("Caf\x8E", kCFStringEncodingMacRoman, kCFStringEncodingUTF8), "Café");
  EXPECT_EQ(converted({"\xFF\xFEi\0", 4}, kCFStringEncodingUnicode, kCFStringEncodingUTF8), "i");
  EXPECT_EQ(converted("日本", kCFStringEncodingUTF8, kCFStringEncodingMacRoman), "");
  EXPECT_EQ(converted({"a\0b", 3}, 0, kCFStringEncodingUTF8), "a");
  EXPECT_EQ(converted("a\xFF", kCFStringEncodingUTF8, 0), "");
  EXPECT_EQ(converted("b", 0x12345678, 0), "");
  EXPECT_EQ(GetCapturedStderr(),
            "Error encoding a\xFF to 134217984\nError encoding b to 305419896\n");
}

}  // namespace
}  // namespace chapter
