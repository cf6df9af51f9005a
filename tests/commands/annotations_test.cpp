#include "chapter/annotations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <map>

#include "chapter/text.h"
#include "clipjoin/report.h"
#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/text_atoms.h"
#include "toolbox/calls/call.h"
#include "toolbox/movie/movie.h"
#include "utils/mpeg4_compatibility.h"

namespace chapter {
namespace {

using namespace toolbox;  // the bytes of a test
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using Items = std::vector<UserDataItem>;

constexpr FourCC kName{"\251nam"}, kMeta{"meta"};

Bytes Tag(const std::string& type, const Bytes& value) {
  return Atom(type, Atom("data", U32(1), U32(0), value));
}

Bytes Roman(const std::string& text) {
  return Join(U16(static_cast<std::uint16_t>(text.size())), U16(0), Text(text));
}

// What a 'meta' item of these atoms adds to a movie's user data. What is printed goes to `said`.
Items Converted(const Bytes& atoms, std::string* said = nullptr) {
  MovieRecord movie;
  const UserDataItem meta{kMeta, Join(Zeros(4), atoms)};
  movie.userData.items = {meta};
  CaptureStderr();
  ConvertMovieTags(&movie);
  const std::string printed = GetCapturedStderr();
  if (said != nullptr) *said = printed;
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
      {"Hello", "0:48656C6C6F"},
      {"Cafe\u0301", "0:4361668E"},
      {"“–€”", "0:D2D0DBD3"},
      {"Žižek", "0:3F693F656B 18:AE69BE656B"},
      {"Žluť", "0:3F6C753F 24:EB6C75E9"},
      {"żółw", "0:3F973F77 24:FD97B877"},
      {"İs", "0:3F73 17:DC73"},
      {"Þór", "0:3F9772 15:DE9772"},
      {"Țară", "0:3F61723F 37:DE6172BE"},
      {"Ελά", "0:3F3F3F 14:B6ECC0"},
      {"שלום", "0:3F3F3F3F 10:F9ECE5ED"},
      {"Київ", "0:3F3F3F3F 32:8AE8BBE2"},
      {"한국", "0:3F3F0000 23:C7D1B1B9"},
      {"日本", "0:3F3F0000 11:93FA967B"},
      {"ΑΒ", "0:3F3F0000 11:839F83A0"},
      {"Ελά 🎵!", "0:3F3F3F20 14:B6ECC020"},
      {"Ab 🎵!", "0:416220"},
      // Nothing of these from the start on: the bytes themselves.
      {"", "0:"},
      {"🎵", "0:F09F8EB5"},
      {"\xFF\xFE", "0:FFFE"},
  };
  for (const auto& [text, stored] : texts) EXPECT_EQ(Stored(text), stored) << text;
}

TEST(Annotations, TakeTheNamesThatQuickTimeHasForTags) {
  const Bytes list = Atom("ilst", Tag("\251wrt", Text("W")), Tag("\251grp", Text("G")),
                          Tag("\251too", Text("T")), Tag("\251cmt", Text("C")),
                          Tag("trkn", Bytes{0, 0, 0, 3, 1}), Tag("covr", Text("picture")),
                          Tag("tmpo", U16(120)), Tag("tmpo", U16(9)), Atom("\251nam", Text("cut")));
  const Items expected{
      {{"\251com"}, Roman("W")}, {{"\251des"}, Roman("G")},     {{"\251enc"}, Roman("T")},
      {{"\251cmt"}, Roman("C")}, {{"\251trk"}, Roman("3/256")}, {{"tmpo"}, U16(9)},
  };
  EXPECT_EQ(Converted(Join(Atom("hdlr", Zeros(25)), list, Atom("free", Zeros(9)))), expected);
  const std::map<int, std::string> genres{{0, ""}, {1, "Blues"}, {126, "Dance Hall"}, {127, ""}};
  for (const auto& [number, name] : genres) {
    const Bytes value = U16(static_cast<std::uint16_t>(number));
    EXPECT_EQ(Converted(Atom("ilst", Tag("gnre", value))), (Items{{{"\251gen"}, Roman(name)}}));
  }
}

TEST(Annotations, StopWhereAListIsMalformed) {
  const Bytes name = Tag("\251nam", Text("x")), list = Atom("ilst", name);
  const Items found{{kName, Roman("x")}};
  struct Row {
    Bytes atoms;
    Items items;
    std::string fault;
  };
  const Row rows[] = {
      {Join(U32(90), Text("ilst"), name), {}, "ilst length 90 at 0 exceeds container length 33"},
      {Join(U32(0x80000010), Text("ilst"), name),
       {},
       "ilst length -2147483632 at 0 exceeds container length 33"},
      {Join(list, Atom("uuid", Zeros(2))), found,
       "uuid length 10 at 25 exceeds container length 33"},
      {Atom("ilst", name, U32(7), Text("y\x1Bll"), Zeros(20)), found,
       "y\\x1bll length 7 at 25 exceeds container length 61"},
      // Padding is no fault, and ends a list.
      {Atom("ilst", name, Zeros(4)), found, ""},
      {Atom("ilst", name, Zeros(40)), found, ""},
      {Join(Atom("free"), list), {}, ""},
      {Join(list, Zeros(3)), found, ""},
      {{}, {}, ""},
  };
  for (const Row& row : rows) {
    std::string said;
    EXPECT_EQ(Converted(row.atoms, &said), row.items) << row.fault;
    const std::string start = "Error processing user data; atom ";
    EXPECT_EQ(said, row.fault.empty() ? "" : start + row.fault + "\n");
  }
  EXPECT_EQ(clipjoin::Close(true, 0), 0) << "no failure has been counted";
  MovieRecord movie;
  movie.userData.items = {{kMeta, {0, 0}}};
  ConvertMovieTags(&movie);
  ConvertMovieTags(nullptr);
  Bytes nest = name;
  for (int i = 0; i < 100; ++i) nest = Atom("ilst", nest);
  EXPECT_EQ(Converted(nest).size(), 1U) << "lists in lists are not followed to their end";
}

// The sanitizers check that nothing is read after the end.
TEST(Annotations, OfAListThatIsCutAreTheFirstOnes) {
  const Bytes list = Atom("ilst", Tag("trkn", Bytes{0, 0, 0, 3, 0, 12}), Tag("\251nam", Text("x")),
                          Atom("ilst", Tag("tmpo", U16(9))), Tag("\251ART", Text("y")));
  const Items all = Converted(list);
  CaptureStderr();
  for (std::size_t size = 8; size < list.size(); ++size) {
    UserDataRecord data;
    ConvertTagAtoms(&data, ByteSpan(list).first(size), static_cast<std::int64_t>(list.size()),
                    false);
    EXPECT_EQ(data.items, Items()) << "the list ends after the bytes";
    // The atoms of the list, whose stated end is after the bytes.
    ConvertTagAtoms(&data, ByteSpan(list).first(size).subspan(8),
                    static_cast<std::int64_t>(list.size()), true);
    ASSERT_LE(data.items.size(), all.size());
    EXPECT_TRUE(std::equal(data.items.begin(), data.items.end(), all.begin())) << size;
  }
  GetCapturedStderr();
}

TEST(Annotations, ReportADamagedItemAndGoOn) {
  SetCallHook([](std::string_view name) { return name == "GetUserData" ? memFullErr : noErr; });
  std::string said;
  Converted({}, &said);
  SetCallHook({});
  EXPECT_EQ(said, "Error in GetMoviesError at line 507 of clipjoin.cpp: -108\n");
  EXPECT_EQ(clipjoin::Close(true, 0), 1) << "the failure has been counted";
}

TEST(Annotations, AreNotTheLocationOfAWindow) {
  MovieRecord movie;
  movie.userData.items = {{FourCC{"WLOC"}, Zeros(4)}};
  EXPECT_FALSE(utils::HasAnnotations(&movie));
  movie.userData.items.push_back({kName, Roman("x")});
  EXPECT_TRUE(utils::HasAnnotations(&movie));
}

TEST(TextEncodings, AreConvertedIntoEachOther) {
  struct Row {
    std::string text;
    CFStringEncoding from, to;
    std::string expected, fault;
  };
  const Row rows[] = {
      {"Caf\x8E", kCFStringEncodingMacRoman, kCFStringEncodingUTF8, "Café", ""},
      {{"\xFF\xFEi\0", 4}, kCFStringEncodingUnicode, kCFStringEncodingUTF8, "i", ""},
      {"日本", kCFStringEncodingUTF8, 1, "\x93\xFA\x96\x7B", ""},
      {"日本", kCFStringEncodingUTF8, kCFStringEncodingMacRoman, "", ""},
      {{"a\0b", 3}, 0, kCFStringEncodingUTF8, "a", ""},
      {"a\xFF", kCFStringEncodingUTF8, 0, "", "Error encoding a\xFF to 134217984\n"},
      {"b", 0x12345678, 0, "", "Error encoding b to 305419896\n"},
  };
  for (const Row& row : rows) {
    CaptureStderr();
    EXPECT_EQ(ConvertTextEncoding(row.text, row.from, row.to), row.expected);
    EXPECT_EQ(GetCapturedStderr(), row.fault);
  }
}

}  // namespace
}  // namespace chapter
