#include "toolbox/references/aliases.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;
using namespace std::string_literals;
using Path = std::optional<fs::path>;

Bytes Raw(std::string_view text) { return {text.begin(), text.end()}; }
std::string Nuls(std::size_t count) { return std::string(count, '\0'); }
std::string Two(std::size_t value) {
  return {static_cast<char>(value >> 8 & 255), static_cast<char>(value & 255)};
}
std::string Tagged(std::size_t tag, const std::string& value) {
  return Two(tag) + Two(value.size()) + value + Nuls(value.size() % 2);
}
const std::string kEnd = "\xFF\xFF\0\0"s;

// A record as another program may write it.
Bytes Version2(int levelsFrom, int levelsTo, const std::string& name, const std::string& tagged) {
  return Raw(Nuls(4) + Two(150 + tagged.size()) + Two(2) + Nuls(42) +
             static_cast<char>(name.size()) + name + Nuls(79 - name.size()) +
             Two(static_cast<std::size_t>(levelsFrom)) + Two(static_cast<std::size_t>(levelsTo)) +
             Nuls(16) + tagged);
}
Bytes Version3(const std::string& tagged) {
  return Raw(Nuls(4) + Two(58 + tagged.size()) + Two(3) + Nuls(50) + tagged);
}
// The value of tag 14 for an ASCII name.
std::string Wide(std::string_view name) {
  std::string value = Two(name.size());
  for (const char letter : name) value += {'\0', letter};
  return value;
}

TEST(AliasRecord, IsThisForAFileInASiblingFolder) {
  std::string expected = "\0\0\0\0\x01\x10\0\x02\0\0\x0CMacintosh HD"s;  // size 272, version 2
  expected += Nuls(19) + "H+" + Nuls(6) + "\x05\x61.mov" + Nuls(66);
  expected += "TVODMooV\0\x02\0\x02"s + Nuls(16);  // levels
  expected += "\0\0\0\x05\x63lips\0"s;  // folder
  expected += "\0\x02\0\x1EMacintosh HD:media:clips:a.mov"s;
  expected += "\0\x0E\0\x0C\0\x05\0a\0.\0m\0o\0v"s;
  expected += "\0\x0F\0\x1A\0\x0C\0M\0a\0c\0i\0n\0t\0o\0s\0h\0 \0H\0D"s;
  expected += "\0\x12\0\x11media/clips/a.mov\0"s;
  expected += "\0\x13\0\x01/\0\xFF\xFF\0\0"s;
  ASSERT_EQ(expected.size(), 272U);
  EXPECT_EQ(AliasRecord("/media/clips/a.mov", "/media/out/ref.mov"), Raw(expected));
}

TEST(AliasRecord, KeepsEveryNameWhole) {
  const std::string longName(200, 'n');
  const std::pair<fs::path, std::vector<std::string>> cases[] = {
      {"/m:n/a:b.mov",
       {"\aa/b.mov\0"s, Tagged(0, "m/n"), Tagged(2, "Macintosh HD:m/n:a/b.mov"),
        Tagged(14, Wide("a/b.mov")), Tagged(18, "m:n/a:b.mov")}},
      {"/\u00E9\U0001F3AC.mov",
       {"\x06??.mov\0"s, Tagged(0, "Macintosh HD"),
        Tagged(14, "\0\x07\0\xE9\xD8\x3C\xDF\xAC\0.\0m\0o\0v"s)}},
      {"/caf\xE9.mov",
       {Tagged(14, "\0\x08\0c\0a\0f\xFF\xFD\0.\0m\0o\0v"s), Tagged(2, "Macintosh HD:caf\xE9.mov"),
        Tagged(18, "caf\xE9.mov")}},
      {"/" + longName, {"?" + longName.substr(0, 63), Tagged(14, Wide(longName))}},
  };
  for (const auto& [path, parts] : cases) {
    const Bytes record = AliasRecord(path, "");
    for (const std::string& part : parts) {
      EXPECT_NE(std::string(record.begin(), record.end()).find(part), std::string::npos) << part;
    }
  }
  EXPECT_THROW(AliasRecord("/", ""), Refused);
  EXPECT_THROW(AliasRecord("/" + std::string(33000, 'n'), ""), Refused);
}

class FileReference : public InFolder {
 protected:
  // Creates a file at `name` in the folder.
  fs::path File(const std::string& name) const {
    fs::create_directories((folder_ / name).parent_path());
    return Store(name, Raw("media"));
  }
  void Move(const std::string& from, const std::string& to) const {
    fs::create_directories((folder_ / to).parent_path());
    fs::rename(folder_ / from, folder_ / to);
  }
  // The path of `name` in the folder, as tag 18 spells it.
  std::string Below(const std::string& name) const { return (folder_ / name).string().substr(1); }
};

TEST_F(FileReference, LeadsThereAfterTheCommonFolderHasMoved) {
  for (const std::string target :
       {"same/a.mov", "a.mov", "clips/deep/\u00E9:.mov", "samesame/x", "same/in/x\xE9"}) {
    const Bytes record = AliasRecord(File("all/" + target), File("all/same/ref.mov"));
    EXPECT_EQ(ResolveAlias(record, folder_ / "all/same/ref.mov"), folder_ / "all" / target);
    Move("all", "elsewhere/all");
    EXPECT_EQ(ResolveAlias(record, folder_ / "elsewhere/all/same/ref.mov"),
              folder_ / "elsewhere/all" / target);
    fs::remove_all(folder_ / "elsewhere");
  }
}

TEST_F(FileReference, PrefersTheRelativeThenTheAbsoluteWayThenTheName) {
  const Bytes record = AliasRecord(File("clips/a.mov"), File("out/ref.mov"));
  const fs::path ref = File("copy/out/ref.mov");
  const Path besideIt = File("copy/out/a.mov"), relative = File("copy/clips/a.mov");
  EXPECT_EQ(ResolveAlias(record, ref), relative);
  fs::remove(*relative);
  fs::create_directory(*relative);  // a folder is not what is looked for
  EXPECT_EQ(ResolveAlias(record, ref), folder_ / "clips/a.mov");
  EXPECT_EQ(ResolveAlias(record, ""), folder_ / "clips/a.mov");
  fs::remove(folder_ / "clips/a.mov");
  EXPECT_EQ(ResolveAlias(record, ref), besideIt);
  fs::remove(*besideIt);
  EXPECT_EQ(ResolveAlias(record, ref), Path());
}

TEST_F(FileReference, StartsWhereTheMovieReallyLies) {
  const Bytes record = AliasRecord(File("clips/a.mov"), File("out/ref.mov"));
  Move("clips", "all/clips");
  Move("out", "all/out");
  fs::create_symlink(folder_ / "all/out/ref.mov", folder_ / "link.mov");
  EXPECT_EQ(ResolveAlias(record, folder_ / "link.mov"), folder_ / "all/clips/a.mov");
}

TEST_F(FileReference, ReadsRecordsOfOtherPrograms) {
  const fs::path ref = folder_ / "out/ref.mov";
  const Path target = File("out/b:c.mov");
  const std::string posix = Below("out/b:c.mov");
  std::string colon = "Disk:" + Below("out/b/c.mov");
  std::replace(colon.begin(), colon.end() - 7, '/', ':');

  const Path odd = File("out/\uFFFDx");  // a name with half a surrogate pair
  const std::tuple<Bytes, fs::path, Path> records[] = {
      {Version3(Tagged(18, posix) + kEnd), "", target},
      {Version3(Tagged(18, posix)), "", target},  // some leave the end out
      {Version3(Tagged(18, "b:c.mov") + Tagged(19, "/" + Below("out")) + kEnd), "", target},
      {Version3(Tagged(14, Wide("b/c.mov")) + kEnd), ref, target},
      {Version3(Tagged(14, "\0\x02\xD8\x3C\0x"s) + kEnd), ref, odd},
      {Version2(-1, -1, "", Tagged(2, colon) + kEnd), "", target},
      {Version2(1, 1, "", Tagged(2, "Disk:gone:b/c.mov") + kEnd), ref, target},
      {Version2(-1, -1, "b/c.mov", ""), ref, target},
      {Version2(1, 3, "z", Tagged(18, "Users/b:c.mov") + kEnd), ref, {}},
      {Version2(32767, 1, "z", Tagged(18, "b:c.mov") + kEnd), ref, {}},
  };
  for (const auto& [record, referrer, found] : records) {
    EXPECT_EQ(ResolveAlias(record, referrer), found);
  }
}

TEST_F(FileReference, TakesNoWayThroughDoubleDotsOrNuls) {
  const fs::path ref = File("out/ref.mov");
  File("out/in/x");
  File("a.mov");
  std::string colon = "Disk:" + Below("out:..:a.mov");
  std::ranges::replace(colon, '/', ':');
  for (const std::string& tags :
       {Tagged(18, Below("out/../a.mov")), Tagged(18, "a.mov") + Tagged(19, "/" + Below("out/..")),
        Tagged(2, colon), Tagged(14, Wide("../a.mov")), Tagged(18, Below("a.mov\0"s))}) {
    EXPECT_EQ(ResolveAlias(Version3(tags + kEnd), ref), Path());
    EXPECT_EQ(ResolveAlias(Version2(1, 2, "", tags + kEnd), ref), Path());
  }
}

TEST_F(FileReference, StaysInsideARecordCutAnywhere) {
  const Path target = File("a.mov");
  const fs::path ref = folder_ / "ref.mov";
  // The shortest records that can lead to a file: the fixed part alone, and with a name.
  const std::pair<Bytes, std::size_t> records[] = {
      {AliasRecord(*target, ref), 150}, {Version3(Tagged(14, Wide("a.mov")) + kEnd), 74}};
  for (const auto& [whole, least] : records) {
    ASSERT_EQ(ResolveAlias(whole, ref), target);
    for (std::size_t length = 0; length < whole.size(); ++length) {
      const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
      const Path found = ResolveAlias(cut, ref);
      EXPECT_TRUE(!found || (found == target && length >= least)) << length;
    }
  }
  Bytes lying = AliasRecord(*target, ref);
  lying[4] = lying[5] = 0xFF;
  EXPECT_EQ(ResolveAlias(lying, ref), target);
  lying[4] = 0, lying[5] = 149;
  EXPECT_EQ(ResolveAlias(lying, ref), Path());
  lying[5] = 0xFF, lying[7] = 4;
  EXPECT_EQ(ResolveAlias(lying, ref), Path());
}

}  // namespace
}  // namespace toolbox
