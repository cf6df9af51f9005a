#include "toolbox/references/data_references.h"

#include "tests/toolbox/bytes.h"
#include "toolbox/references/aliases.h"
#include "toolbox/references/urls.h"

namespace toolbox {
namespace {

using namespace std::string_literals;
using Path = std::optional<fs::path>;

constexpr FourCC kAlias{"alis"}, kUrl{"url "}, kHandle{"hndl"};

class DataReferences : public InFolder {
 protected:
  // Creates a file at `name` in the folder.
  fs::path File(const std::string& name) const {
    fs::create_directories((folder_ / name).parent_path());
    return Store(name, Text("media"));
  }
  // The path of `name` in the folder, as tag 18 spells it.
  std::string Below(const std::string& name) const { return (folder_ / name).string().substr(1); }
};

TEST_F(DataReferences, AreReadAsOneOfFourCases) {
  const fs::path target = File("clips/a.mov"), ref = File("out/ref.mov");
  const DataReferenceEntry alias{kAlias, 0, AliasRecord(target, ref)};
  const DataReferenceEntry url{kUrl, 0, Text("../clips/a.mov\0"s)};
  const DataReferenceEntry resource{FourCC{"rsrc"}, 0x01000002, alias.data};
  EXPECT_EQ(ReadDataReference({kUrl, 1, {}}, ref, false), DataReference(ThisFile{}));
  for (const auto& entry : {alias, url}) {
    EXPECT_EQ(ReadDataReference(entry, ref, true), DataReference(OtherFile{target}));
    EXPECT_EQ(ReadDataReference(entry, ref, false), DataReference(entry));
  }
  fs::remove(target);
  for (const auto& entry : {alias, url, resource}) {
    EXPECT_EQ(ReadDataReference(entry, ref, true), DataReference(entry));
    EXPECT_EQ(WriteDataReference(DataReference(entry), ref, false), entry);
  }
  // A handle reference may bring its bytes.
  for (const auto& [record, data] :
       {std::pair("*5 data{ 'xy' }", "xy"), {"'abcd' 3/1 'a.m' ftyp{ 'MooV' } data{ }", ""}}) {
    const DataReference block = ReadDataReference({kHandle, 0, Made(record)}, ref, false);
    ASSERT_TRUE(std::holds_alternative<InMemory>(block));
    EXPECT_EQ(*std::get<InMemory>(block).data, Text(data));
  }
  for (const char* bad : {"*5", "*5 11 'dataxy'", "*5 7 'data'", "0 255/1", ""}) {
    const DataReferenceEntry entry{kHandle, 0, Made(bad)};
    EXPECT_EQ(ReadDataReference(entry, ref, false), DataReference(entry)) << bad;
  }
}

TEST_F(DataReferences, AreWrittenForTheRealPlaceOfBothFiles) {
  EXPECT_EQ(WriteDataReference(ThisFile{}, "/ref.mov", false), (DataReferenceEntry{kAlias, 1, {}}));
  EXPECT_THROW(WriteDataReference(InMemory{std::make_shared<Bytes>()}, "/ref.mov", false), Refused);

  const fs::path target = File("clips/a.mov");
  fs::create_directories(folder_ / "out");
  fs::create_directory_symlink(folder_ / "out", folder_ / "link");
  fs::create_symlink(target, folder_ / "out/a.mov");
  const OtherFile linked{folder_ / "link/a.mov"};
  EXPECT_EQ(WriteDataReference(linked, folder_ / "link/../link/new.mov", false),
            (DataReferenceEntry{kAlias, 0, AliasRecord(target, folder_ / "out/new.mov")}));
  EXPECT_EQ(WriteDataReference(linked, folder_ / "link/new.mp4", true),
            (DataReferenceEntry{kUrl, 0, FileUrl(target, folder_ / "out/new.mp4")}));
}

TEST(Url, LeadsToAPathOnThisHost) {
  const std::map<std::string, Path> urls{{"file:///m/a%20b.mov\0ignored"s, "/m/a b.mov"},
                                         {"FILE://LocalHost/m/%C3%a9.mov", "/m/\u00E9.mov"},
                                         {"file:/m/./x/../a.mov", "/m/a.mov"},
                                         {"/m/100%.mov", "/m/100%.mov"},
                                         {"/m/%4", "/m/%4"},
                                         {"a.mov", "/no/such/a.mov"},
                                         {"../in/a%3Ab?#.mo%76", "/no/in/a:b?#.mov"},
                                         {"in/a:b.mov", "/no/such/in/a:b.mov"}};
  for (const auto& [url, path] : urls) {
    EXPECT_EQ(ResolveUrl(Text(url), "/no/such/ref.mov"), path) << url;
  }
  for (const char* url : {"http://localhost/a.mov", "file://elsewhere/a.mov", "file:a.mov",
                          "file://localhost", "/m/a%00.mov", ""}) {
    EXPECT_EQ(ResolveUrl(Text(url), "/no/such/ref.mov"), Path()) << url;
  }
  EXPECT_EQ(ResolveUrl(Text("a.mov"), ""), Path());
}

TEST(Url, IsRelativeInTheFolderOfTheMovie) {
  for (const auto& [path, url] : {std::pair("/m/a b%\u00E9.mov", "a%20b%25%C3%A9.mov"),
                                  {"/m/in/a:b?#.mov", "in/a%3Ab%3F%23.mov"},
                                  {"/else/a.mov", "file:///else/a.mov"}}) {
    EXPECT_EQ(FileUrl(path, "/m/ref.mp4"), Text(url + "\0"s));
    EXPECT_EQ(ResolveUrl(FileUrl(path, "/m/ref.mp4"), "/m/ref.mp4"), Path(path));
  }
}

// --- Alias records

TEST(AliasRecord, HasTheseBytesForAFileInASiblingFolder) {
  const char* expected =
      "*4 272/2 2/2 *2 12/1 'Macintosh HD' *19 'H+' *6 5/1 'a.mov' *66 'TVODMooV'"
      " levelsFrom=2/2 levelsTo=2/2 *16"
      " 0/2 5/2 'clips' *1"
      " 2/2 30/2 'Macintosh HD:media:clips:a.mov'"
      " 14/2 12/2 5/2 x0061002E006D006F0076"
      " 15/2 26/2 12/2 x004D006100630069006E0074006F00730068002000480044"
      " 18/2 17/2 'media/clips/a.mov' *1"
      " 19/2 1/2 '/' *1 xFFFF0000";
  EXPECT_EQ(AliasRecord("/media/clips/a.mov", "/media/out/ref.mov"), Made(expected));
}

Bytes Tagged(std::uint64_t tag, const std::string& value) {
  return Join(BigEndian(tag, 2), BigEndian(value.size(), 2), Text(value), Zeros(value.size() % 2));
}
// The value of tag 14 for an ASCII name.
std::string Wide(const std::string& name) {
  std::string value{'\0', static_cast<char>(name.size())};
  for (const char letter : name) value += {'\0', letter};
  return value;
}

TEST(AliasRecord, KeepsEveryNameWhole) {
  const std::string longName(200, 'n');
  const std::tuple<fs::path, std::string, Bytes> parts[] = {
      {"/m:n/a:b.mov", "\aa/b.mov\0"s, Tagged(0, "m/n")},
      {"/m:n/a:b.mov", "Macintosh HD:m/n:a/b.mov", Tagged(14, Wide("a/b.mov"))},
      {"/m:n/a:b.mov", "", Tagged(18, "m:n/a:b.mov")},
      {"/\u00E9\U0001F3AC.mov", "\x06??.mov\0"s,
       Tagged(14, "\0\x07\0\xE9\xD8\x3C\xDF\xAC\0.\0m\0o\0v"s)},
      {"/caf\xE9.mov", "Macintosh HD:caf\xE9.mov",
       Tagged(14, "\0\x08\0c\0a\0f\xFF\xFD\0.\0m\0o\0v"s)},
      {"/caf\xE9.mov", "", Tagged(0, "Macintosh HD")},
      {"/" + longName, "?" + longName.substr(0, 63), Tagged(14, Wide(longName))},
  };
  for (const auto& [path, text, tagged] : parts) {
    EXPECT_TRUE(Contains(AliasRecord(path, ""), Text(text))) << path << text;
    EXPECT_TRUE(Contains(AliasRecord(path, ""), tagged)) << path << text;
  }
  EXPECT_THROW(AliasRecord("/", ""), Refused);
  EXPECT_THROW(AliasRecord("/" + std::string(33000, 'n'), ""), Refused);
}

TEST_F(DataReferences, StillResolveAfterTheCommonFolderHasMoved) {
  const fs::path link = folder_ / "link.mov";
  fs::create_symlink(folder_ / "elsewhere/all/same/ref.mov", link);
  for (const std::string target :
       {"same/a.mov", "a.mov", "clips/deep/\u00E9:.mov", "samesame/x", "same/in/x\xE9"}) {
    const Bytes record = AliasRecord(File("all/" + target), File("all/same/ref.mov"));
    EXPECT_EQ(ResolveAlias(record, folder_ / "all/same/ref.mov"), folder_ / "all" / target);
    fs::create_directories(folder_ / "elsewhere");
    fs::rename(folder_ / "all", folder_ / "elsewhere/all");
    EXPECT_EQ(ResolveAlias(record, link), folder_ / "elsewhere/all" / target);
    fs::remove_all(folder_ / "elsewhere");
  }
}

TEST_F(DataReferences, ResolveByRelativeThenAbsolutePathThenName) {
  const Bytes record = AliasRecord(File("clips/a.mov"), File("out/ref.mov"));
  const fs::path ref = File("copy/out/ref.mov");
  const Path besideIt = File("copy/out/a.mov"), relative = File("copy/clips/a.mov");
  EXPECT_EQ(ResolveAlias(record, ref), relative);
  fs::remove(*relative);
  fs::create_directory(*relative);  // a folder is not a match
  EXPECT_EQ(ResolveAlias(record, ref), folder_ / "clips/a.mov");
  EXPECT_EQ(ResolveAlias(record, ""), folder_ / "clips/a.mov");
  fs::remove(folder_ / "clips/a.mov");
  EXPECT_EQ(ResolveAlias(record, ref), besideIt);
  fs::remove(*besideIt);
  EXPECT_EQ(ResolveAlias(record, ref), Path());
}

// Records as another program may write them. The levels are -1, 0xFFFF, if there are none.
Bytes Version2(std::uint16_t levelsFrom, std::uint16_t levelsTo, const std::string& name,
               const Bytes& tagged) {
  return Join(Zeros(4), BigEndian(150 + tagged.size(), 2), Made("2/2 *42"),
              BigEndian(name.size(), 1), Text(name), Zeros(79 - name.size()), U16(levelsFrom),
              U16(levelsTo), Zeros(16), tagged);
}
Bytes Version3(const Bytes& tagged) {
  return Join(Zeros(4), BigEndian(58 + tagged.size(), 2), Made("3/2 *50"), tagged);
}

TEST_F(DataReferences, ReadRecordsOfOtherPrograms) {
  const fs::path ref = folder_ / "out/ref.mov";
  const Path target = File("out/b:c.mov"), odd = File("out/\uFFFDx");
  std::string colon = "Disk:" + Below("out/b/c.mov"), up = "Disk:" + Below("out:..:a.mov");
  std::replace(colon.begin(), colon.end() - 7, '/', ':');
  std::ranges::replace(up, '/', ':');
  const std::tuple<Bytes, fs::path, Path> records[] = {
      {Version3(Tagged(18, Below("out/b:c.mov"))), "", target},
      // The end tag, which some programs leave out
      {Version3(Join(Tagged(14, Wide("b/c.mov")), Tagged(0xFFFF, ""), Text("rest"))), ref, target},
      {Version3(Join(Tagged(18, "b:c.mov"), Tagged(19, "/" + Below("out")))), "", target},
      {Version3(Tagged(14, Wide("b/c.mov"))), ref, target},
      {Version3(Tagged(14, "\0\x02\xD8\x3C\0x"s)), ref, odd},  // half a surrogate pair
      {Version2(0xFFFF, 0xFFFF, "", Tagged(2, colon)), "", target},
      {Version2(1, 1, "", Tagged(2, "Disk:gone:b/c.mov")), ref, target},
      {Version2(0xFFFF, 0xFFFF, "b/c.mov", {}), ref, target},
      {Version2(1, 3, "z", Tagged(18, "Users/b:c.mov")), ref, {}},
      {Version2(32767, 1, "z", Tagged(18, "b:c.mov")), ref, {}},
  };
  for (const auto& [record, referrer, found] : records) {
    EXPECT_EQ(ResolveAlias(record, referrer), found);
  }
  File("out/in/x");
  File("a.mov");
  for (const Bytes& tags :  // a path with ".." or a zero byte is never followed
       {Tagged(18, Below("out/../a.mov")),
        Join(Tagged(18, "a.mov"), Tagged(19, "/" + Below("out/.."))), Tagged(2, up),
        Tagged(14, Wide("../a.mov")), Tagged(18, Below("a.mov\0"s))}) {
    EXPECT_EQ(ResolveAlias(Version3(tags), ref), Path());
    EXPECT_EQ(ResolveAlias(Version2(1, 2, "", tags), ref), Path());
  }
}

TEST_F(DataReferences, StayInsideARecordCutAnywhere) {
  const fs::path target = File("a.mov"), ref = folder_ / "ref.mov";
  const Bytes ours = AliasRecord(target, ref), theirs = Version3(Tagged(14, Wide("a.mov")));
  // The shortest parts that can lead to a file: the fixed part alone, and with a name.
  for (const auto& [whole, least] : {std::pair(ours, 150U), {theirs, 74U}}) {
    for (std::size_t length = 0; length < whole.size(); ++length) {
      const Path found = ResolveAlias(First(whole, length), ref);
      EXPECT_TRUE(!found || (found == target && length >= least)) << length;
    }
  }
  // The size that the record states, and its version.
  for (const auto& [head, found] :
       {std::pair("0 -1/2 2/2", Path(target)), {"0 149/2 2/2", Path()}, {"0 255/2 4/2", Path()}}) {
    Bytes lying = ours;
    std::ranges::copy(Made(head), lying.begin());
    EXPECT_EQ(ResolveAlias(lying, ref), found) << head;
  }
}

}  // namespace
}  // namespace toolbox
