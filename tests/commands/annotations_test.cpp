#include "chapter/annotations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <map>

#include "chapter/text.h"
#include "clipjoin/report.h"
#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/text_atoms.h"
#include "toolbox/movie/movie.h"
#include "utils/mpeg4_compatibility.h"

namespace chapter {
namespace {

using namespace toolbox;  // the bytes of a test
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using Items = std::vector<UserDataItem>;

constexpr FourCC kName{"\251nam"}, kMeta{"meta"};

Bytes Roman(const std::string& text) {
  return Join(U16(static_cast<std::uint16_t>(text.size())), U16(0), Text(text));
}

// What a 'meta' item of these atoms adds to a movie's user data. What is printed goes to `said`.
Items Converted(const Bytes& atoms, std::string& said) {
  MovieRecord movie;
  const UserDataItem meta{kMeta, Join(Zeros(4), atoms)};
  movie.userData.items = {meta};
  CaptureStderr();
  ConvertMovieTags(&movie);
  said = GetCapturedStderr();
  EXPECT_EQ(movie.userData.items.front(), meta) << "it stays";
  return {movie.userData.items.begin() + 1, movie.userData.items.end()};
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
  std::string said;
  EXPECT_EQ(Converted(Made("hdlr{ *25 } ilst{ " + list + "\251nam{ 'cut' } } free{ *9 }"), said),
            expected);
  const std::map<int, std::string> genres{{0, ""}, {1, "Blues"}, {126, "Dance Hall"}, {127, ""}};
  for (const auto& [number, name] : genres) {
    const std::string genre = Tag("gnre", std::to_string(number) + "/2");
    EXPECT_EQ(Converted(Made("ilst{ " + genre + "}"), said), (Items{{{"\251gen"}, Roman(name)}}));
  }
}

TEST(Annotations, StopWhereAListIsMalformed) {
  const Items none, found{{kName, Roman("x")}};
  const std::string name = Tag("\251nam", "'x'");
  for (const auto& [atoms, items, fault] : std::vector<std::tuple<std::string, Items, std::string>>{
           {"90 'ilst' " + name, none, "ilst length 90 at 0 exceeds container length 33"},
           {"ilst{ " + name + "} uuid{ *2 }", found,
            "uuid length 10 at 25 exceeds container length 33"},
           {"ilst{ " + name + "7 'y\x1Bll' *20 }", found,
            "y\\x1bll length 7 at 25 exceeds container length 61"},
           // Padding is no fault, and ends a list.
           {"ilst{ " + name + "*4 }", found, ""},
           {"free{ } ilst{ " + name + "}", none, ""},
           {"ilst{ " + name + "} *3", found, ""},
           {"", none, ""}}) {
    std::string said;
    EXPECT_EQ(Converted(Made(atoms), said), items) << atoms;
    const std::string start = "Error processing user data; atom ";
    EXPECT_EQ(said, fault.empty() ? "" : start + fault + "\n");
  }
  EXPECT_EQ(clipjoin::Close(true, 0), 0) << "no failure has been counted";
  MovieRecord movie;
  movie.userData.items = {{kMeta, {0, 0}}};
  ConvertMovieTags(&movie);
  ConvertMovieTags(nullptr);
  Bytes nest = Made(name);
  for (int i = 0; i < 100; ++i) nest = Atom("ilst", nest);
  std::string said;
  EXPECT_EQ(Converted(nest, said).size(), 1U) << "lists in lists are not followed to their end";
}

// The sanitizers check that nothing is read after the end.
TEST(Annotations, OfAListThatIsCutAreTheFirstOnes) {
  const Bytes list = Made("ilst{ " + Tag("trkn", "x00000003000C") + Tag("\251nam", "'x'") +
                          "ilst{ " + Tag("tmpo", "9/2") + "} " + Tag("\251ART", "'y'") + "}");
  std::string said;
  const Items all = Converted(list, said);
  CaptureStderr();
  for (std::size_t size = 8; size < list.size(); ++size) {
    UserDataRecord data;
    const auto stated = static_cast<std::int64_t>(list.size());
    ConvertTagAtoms(&data, ByteSpan(list).first(size), stated, false);
    EXPECT_EQ(data.items, Items()) << "the list ends after the bytes";
    // The atoms of the list, whose stated end is after the bytes.
    ConvertTagAtoms(&data, ByteSpan(list).first(size).subspan(8), stated, true);
    ASSERT_LE(data.items.size(), all.size());
    EXPECT_TRUE(std::equal(data.items.begin(), data.items.end(), all.begin())) << size;
  }
  GetCapturedStderr();
}

TEST(Annotations, AreNotTheLocationOfAWindow) {
  MovieRecord movie;
  movie.userData.items = {{FourCC{"WLOC"}, Zeros(4)}};
  EXPECT_FALSE(utils::HasAnnotations(&movie));
  movie.userData.items.push_back({kName, Roman("x")});
  EXPECT_TRUE(utils::HasAnnotations(&movie));
}

TEST(TextEncodings, AreConvertedIntoEachOther) {
  CaptureStderr();
  const auto converted = ConvertTextEncoding;
  EXPECT_EQ(converted("Caf\x8E", kCFStringEncodingMacRoman, kCFStringEncodingUTF8), "Café");
  EXPECT_EQ(converted({"\xFF\xFEi\0", 4}, kCFStringEncodingUnicode, kCFStringEncodingUTF8), "i");
  EXPECT_EQ(converted("日本", kCFStringEncodingUTF8, 1), "\x93\xFA\x96\x7B");
  EXPECT_EQ(converted("日本", kCFStringEncodingUTF8, kCFStringEncodingMacRoman), "");
  EXPECT_EQ(converted({"a\0b", 3}, 0, kCFStringEncodingUTF8), "a");
  EXPECT_EQ(converted("a\xFF", kCFStringEncodingUTF8, 0), "");
  EXPECT_EQ(converted("b", 0x12345678, 0), "");
  EXPECT_EQ(GetCapturedStderr(),
            "Error encoding a\xFF to 134217984\nError encoding b to 305419896\n");
}

}  // namespace
}  // namespace chapter
