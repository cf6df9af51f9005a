#include "chapter/annotations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>

#include "chapter/text.h"
#include "clipjoin/report.h"
#include "tests/commands/parsing.h"
#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/text_atoms.h"
#include "toolbox/calls/call.h"
#include "toolbox/movie/movie.h"
#include "utils/mpeg4_compatibility.h"

namespace chapter {
namespace {

using namespace toolbox;  // the bytes of a test
using Items = std::vector<UserDataItem>;
using Entries = std::vector<TextEntry>;

constexpr FourCC kName{"\251nam"}, kMeta{"meta"};

Bytes Tag(const std::string& type, const Bytes& value) {
  return Atom(type, Atom("data", U32(1), U32(0), value));
}

// What a 'meta' item of these atoms adds to a movie's user data, and what is said.
struct Conversion {
  Items items;
  std::string said;
};

Conversion Converted(const Bytes& atoms) {
  MovieRecord movie;
  movie.userData.items = {{kMeta, Join(Zeros(4), atoms)}};
  const UserDataItem meta = movie.userData.items.front();
  const clipjoin::Redirected err(std::cerr);
  ConvertMovieTags(&movie);
  EXPECT_EQ(movie.userData.items.front(), meta) << "it stays";
  return {{movie.userData.items.begin() + 1, movie.userData.items.end()}, err.Text()};
}

Bytes Roman(const std::string& text) {
  return Join(U16(static_cast<std::uint16_t>(text.size())), U16(0), Text(text));
}

Entries Added(const std::string& text) {
  UserDataRecord data;
  AddUserDataTextUtf8(&data, kName, text);
  return ReadTextEntries(data.Item(kName, 1)).value();
}

TEST(Annotations, AreInTheFirstLanguageThatHasAllOfTheText) {
  struct Row {
    const char* text;
    std::uint16_t language;
    const char *bytes, *roman;
  };
  using namespace std::string_literals;
  constexpr Row kRows[] = {
      {"Čeština", 18,
       "\xC8"
       "e\xB9"
       "tina",
       "?e?tina"},
      {"Žižek", 18,
       "\xAEi\xBE"
       "ek",
       "?i?ek"},
      {"Žluť", 24, "\xEBlu\xE9", "?lu?"},
      {"żółw", 24, "\xFD\x97\xB8w", "?\x97?w"},
      {"İstanbul", 17, "\xDCstanbul", "?stanbul"},
      {"Þór", 15, "\xDE\x97r", "?\x97r"},
      {"Țară", 37,
       "\xDE"
       "ar\xBE",
       "?ar?"},
      {"Ελλάδα", 14, "\xB6\xEC\xEC\xC0\xE4\xE1", "??????"},
      {"שלום", 10, "\xF9\xEC\xE5\xED", "????"},
      {"Київ", 32, "\x8A\xE8\xBB\xE2", "????"},
      {"한국어", 23, "\xC7\xD1\xB1\xB9\xBE\xEE", "???\0\0\0"},
      {"日本", 11, "\x93\xFA\x96\x7B", "??\0\0"},
      {"ΑΒΓ", 11, "\x83\x9F\x83\xA0\x83\xA1", "???\0\0\0"},
      {"Привет", 11, "\x84\x50\x84\x82\x84\x79\x84\x72\x84\x75\x84\x84", "??????\0\0\0\0\0\0"},
  };
  for (const Row& row : kRows) {
    const std::string bytes = row.bytes;
    const Entries expected{{0, Text(std::string(row.roman, bytes.size()))},
                           {row.language, Text(bytes)}};
    EXPECT_EQ(Added(row.text), expected) << row.text;
  }
  const std::map<std::string, Bytes> roman{
      {"Hello", Text("Hello")},
      {"Café", {0x43, 0x61, 0x66, 0x8E}},
      {"Cafe\u0301", {0x43, 0x61, 0x66, 0x8E}},
      {"“–€”", {0xD2, 0xD0, 0xDB, 0xD3}},
  };
  for (const auto& [text, bytes] : roman) EXPECT_EQ(Added(text), (Entries{{0, bytes}})) << text;
}

TEST(Annotations, TakeTheLanguageThatHasMostOfAText) {
  EXPECT_EQ(Added("Ελλάδα 🎵!"),
            (Entries{{0, Text("?????? ")}, {14, {0xB6, 0xEC, 0xEC, 0xC0, 0xE4, 0xE1, ' '}}}));
  // Nothing of these from the start on: the bytes themselves.
  for (const std::string text : {"", "🎵 song", "\xFF\xFE"}) {
    EXPECT_EQ(Added(text), (Entries{{0, Text(text)}})) << text;
  }
}

TEST(Annotations, TakeTheNamesThatQuickTimeHasForTags) {
  const Bytes list = Atom("ilst", Tag("\251wrt", Text("W")), Tag("\251grp", Text("G")),
                          Tag("\251too", Text("T")), Tag("\251cmt", Text("C")),
                          Tag("trkn", Bytes{0, 0, 0, 3, 0, 12, 0, 0}), Tag("gnre", U16(18)),
                          Tag("covr", Text("picture")), Tag("tmpo", U16(120)), Tag("tmpo", U16(9)));
  const Items expected{
      {{"\251com"}, Roman("W")}, {{"\251des"}, Roman("G")},    {{"\251enc"}, Roman("T")},
      {{"\251cmt"}, Roman("C")}, {{"\251trk"}, Roman("3/12")}, {{"\251gen"}, Roman("Rock")},
      {{"tmpo"}, U16(9)},
  };
  const auto [items, said] = Converted(Join(Atom("hdlr", Zeros(25)), list, Atom("free", Zeros(9))));
  EXPECT_EQ(items, expected);
  EXPECT_EQ(said, "");
}

TEST(Annotations, GiveNumbersThatNameNoGenreOrAreCutShort) {
  const std::map<Bytes, std::string> genres{{U16(0), ""},        {U16(1), "Blues"},
                                            {U16(17), "Reggae"}, {U16(126), "Dance Hall"},
                                            {U16(127), ""},      {{1}, ""}};
  for (const auto& [value, name] : genres) {
    EXPECT_EQ(Converted(Atom("ilst", Tag("gnre", value))).items,
              (Items{{{"\251gen"}, Roman(name)}}));
  }
  EXPECT_EQ(Converted(Atom("ilst", Tag("trkn", Bytes{0, 0, 0, 3, 1}))).items,
            (Items{{{"\251trk"}, Roman("3/256")}}));
  EXPECT_EQ(Converted(Atom("ilst", Atom("\251nam", Text("short")))).items, Items());
}

TEST(Annotations, StopWhereAListIsMalformed) {
  const Bytes name = Tag("\251nam", Text("x")), list = Atom("ilst", name);
  const Items found{{kName, Roman("x")}};
  const auto fault = [](const std::string& type, int size, int at, int length) {
    return "Error processing user data; atom " + type + " length " + std::to_string(size) + " at " +
           std::to_string(at) + " exceeds container length " + std::to_string(length) + "\n";
  };
  struct Row {
    Bytes atoms;
    Items items;
    std::string said;
  };
  const Row rows[] = {
      {Join(U32(90), Text("ilst"), name), {}, fault("ilst", 90, 0, 33)},
      {Join(U32(0x80000010), Text("ilst"), name), {}, fault("ilst", -2147483632, 0, 33)},
      {Join(list, Atom("uuid", Zeros(2))), found, fault("uuid", 10, 25, 33)},
      {Atom("ilst", name, U32(50), Text("\251ART"), Zeros(20)), found,
       fault("\251ART", 50, 25, 61)},
      {Atom("ilst", name, U32(7), Text("\251ART"), Zeros(20)), found, fault("\251ART", 7, 25, 61)},
      // Padding is none, and what stops at it is no fault.
      {Atom("ilst", name, Zeros(4)), found, ""},
      {Atom("ilst", name, Zeros(40)), found, ""},
      {Join(Atom("free"), list), {}, ""},
      {Join(list, Zeros(3)), found, ""},
      {{}, {}, ""},
  };
  for (const Row& row : rows) {
    const auto [items, said] = Converted(row.atoms);
    EXPECT_EQ(items, row.items) << row.said;
    EXPECT_EQ(said, row.said);
  }
  EXPECT_EQ(clipjoin::Close(true, 0), 0) << "no failure has been counted";
  MovieRecord movie;
  movie.userData.items = {{kMeta, {0, 0}}};
  ConvertMovieTags(&movie);
  ConvertMovieTags(nullptr);
}

// Under the sanitizers: nothing is read behind what is there.
TEST(Annotations, OfAListThatIsCutAreTheFirstOnes) {
  const Bytes list = Atom("ilst", Tag("trkn", Bytes{0, 0, 0, 3, 0, 12}), Tag("\251nam", Text("x")),
                          Atom("ilst", Tag("tmpo", U16(9))), Tag("\251ART", Text("y")));
  const Items all = Converted(list).items;
  const clipjoin::Redirected err(std::cerr);
  for (std::size_t size = 0; size < list.size(); ++size) {
    const Bytes cut(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(size));
    UserDataRecord data;
    ConvertTagAtoms(&data, cut, static_cast<std::int64_t>(list.size()), false);
    EXPECT_EQ(data.items, Items()) << "the list ends outside";
    // As it is found inside the list, whose end is told but not there.
    ConvertTagAtoms(&data, ByteSpan(cut).subspan(std::min<std::size_t>(size, 8)),
                    static_cast<std::int64_t>(list.size()), true);
    ASSERT_LE(data.items.size(), all.size());
    EXPECT_TRUE(std::equal(data.items.begin(), data.items.end(), all.begin())) << size;
  }
}

TEST(Annotations, DoNotFollowListsIntoTheDeep) {
  Bytes nest = Tag("\251nam", Text("x"));
  for (int i = 0; i < 100; ++i) nest = Atom("ilst", nest);
  const auto [items, said] = Converted(nest);
  EXPECT_EQ(items.size(), 1U) << "the outermost list in a list, as it is";
  EXPECT_EQ(Converted(Atom("ilst", Atom("ilst", Zeros(8), Tag("\251nam", Text("x"))))).said, "");
}

TEST(Annotations, ReportADamagedItemAndGoOn) {
  MovieRecord movie;
  movie.userData.items = {{kMeta, Zeros(4)}};
  SetCallHook([](std::string_view name) { return name == "GetUserData" ? memFullErr : noErr; });
  const clipjoin::Redirected err(std::cerr);
  ConvertMovieTags(&movie);
  SetCallHook({});
  EXPECT_EQ(err.Text(), "Error in GetMoviesError at line 507 of clipjoin.cpp: -108\n");
  EXPECT_EQ(clipjoin::Close(true, 0), 1) << "the failure has been counted";
}

TEST(Annotations, GiveTheMovieItsNameAndAreKnownToBeThere) {
  MovieRecord movie;
  EXPECT_EQ(GetMovieFullName(&movie), "");
  EXPECT_FALSE(utils::HasAnnotations(&movie));
  EXPECT_FALSE(utils::HasAnnotations(nullptr));
  movie.userData.items = {{FourCC{"WLOC"}, Zeros(4)}};
  EXPECT_FALSE(utils::HasAnnotations(&movie));
  AddUserDataTextUtf8(&movie.userData, kName, "Café");
  EXPECT_TRUE(utils::HasAnnotations(&movie));
  EXPECT_EQ(GetMovieFullName(&movie), "Café");
  AddUserDataTextUtf8(&movie.userData, kName, "日本");
  EXPECT_EQ(GetMovieFullName(&movie), "??");
}

TEST(TextEncodings, AreConvertedIntoEachOther) {
  const clipjoin::Redirected err(std::cerr);
  EXPECT_EQ(ConvertTextEncoding("Caf\x8E", kCFStringEncodingMacRoman, kCFStringEncodingUTF8),
            "Café");
  EXPECT_EQ(
      ConvertTextEncoding({"\xFF\xFEi\0", 4}, kCFStringEncodingUnicode, kCFStringEncodingUTF8),
      "i");
  EXPECT_EQ(ConvertTextEncoding("日本日本日本", kCFStringEncodingUTF8, 1).size(), 12U);
  EXPECT_EQ(ConvertTextEncoding("日本", kCFStringEncodingUTF8, kCFStringEncodingMacRoman), "");
  EXPECT_EQ(ConvertTextEncoding("", 0, kCFStringEncodingUTF8), "");
  EXPECT_EQ(ConvertTextEncoding({"a\0b", 3}, 0, kCFStringEncodingUTF8), "a");
  EXPECT_EQ(err.Text(), "");
  EXPECT_EQ(ConvertTextEncoding("a\xFF", kCFStringEncodingUTF8, 0), "");
  EXPECT_EQ(ConvertTextEncoding("b", 0x12345678, 0), "");
  EXPECT_EQ(err.Text(), "Error encoding a\xFF to 134217984\nError encoding b to 305419896\n");
}

}  // namespace
}  // namespace chapter
