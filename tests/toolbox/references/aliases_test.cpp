#include "toolbox/references/aliases.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem/fstream.hpp>
#include <boost/filesystem/operations.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "toolbox/refused.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;
using namespace std::string_literals;
using Path = std::optional<fs::path>;

Bytes Raw(std::string_view text) { return {text.begin(), text.end()}; }
std::string Zeros(std::size_t count) { return std::string(count, '\0'); }
std::string U16(std::size_t value) {
  return {static_cast<char>(value >> 8 & 255), static_cast<char>(value & 255)};
}
std::string Tagged(std::size_t tag, const std::string& value) {
  return U16(tag) + U16(value.size()) + value + Zeros(value.size() % 2);
}
const std::string kEnd = "\xFF\xFF\0\0"s;

// A record as another program may write it.
Bytes Version2(int levelsFrom, int levelsTo, const std::string& name, const std::string& tagged) {
  return Raw(Zeros(4) + U16(150 + tagged.size()) + U16(2) + Zeros(42) +
             static_cast<char>(name.size()) + name + Zeros(79 - name.size()) +
             U16(static_cast<std::size_t>(levelsFrom)) + U16(static_cast<std::size_t>(levelsTo)) +
             Zeros(16) + tagged);
}
Bytes Version3(const std::string& tagged) {
  return Raw(Zeros(4) + U16(58 + tagged.size()) + U16(3) + Zeros(50) + tagged);
}
// The value of tag 14 for an ASCII name.
std::string Wide(std::string_view name) {
  std::string value = U16(name.size());
  for (const char letter : name) value += {'\0', letter};
  return value;
}

bool Holds(const Bytes& record, std::string_view part) {
  return std::string(record.begin(), record.end()).find(part) != std::string::npos;
}

TEST(AliasRecord, IsThisForAFileInASiblingFolder) {
  std::string expected = "\0\0\0\0\x01\x10\0\x02\0\0\x0CMacintosh HD"s;  // size 272, version 2
  expected += Zeros(19) + "H+" + Zeros(6) + "\x05\x61.mov" + Zeros(66);
  expected += "TVODMooV\0\x02\0\x02"s + Zeros(16);  // levels
  expected += "\0\0\0\x05\x63lips\0"s;  // folder
  expected += "\0\x02\0\x1EMacintosh HD:media:clips:a.mov"s;
  expected += "\0\x0E\0\x0C\0\x05\0a\0.\0m\0o\0v"s;
  expected += "\0\x0F\0\x1A\0\x0C\0M\0a\0c\0i\0n\0t\0o\0s\0h\0 \0H\0D"s;
  expected += "\0\x12\0\x11media/clips/a.mov\0"s;
  expected += "\0\x13\0\x01/\0\xFF\xFF\0\0"s;
  ASSERT_EQ(expected.size(), 272U);
  EXPECT_EQ(AliasRecord("/media/clips/a.mov", "/media/out/ref.mov"), Raw(expected));
}

TEST(AliasRecord, CountsTheLevelsOnBothSidesOfTheCommonFolder) {
  const auto levels = [](const char* target, const char* referrer) {
    const Bytes record = AliasRecord(target, referrer);
    return Bytes(record.begin() + 130, record.begin() + 134);
  };
  EXPECT_EQ(levels("/m/a.mov", "/m/ref.mov"), (Bytes{0, 1, 0, 1}));
  EXPECT_EQ(levels("/m/a.mov", "/m/a.mov"), (Bytes{0, 1, 0, 1}));
  EXPECT_EQ(levels("/m/a.mov", "/m/out/deep/ref.mov"), (Bytes{0, 3, 0, 1}));
  EXPECT_EQ(levels("/a.mov", "/m/ref.mov"), (Bytes{0, 2, 0, 1}));
  EXPECT_EQ(levels("/m/out/a.mov", "/m/output/ref.mov"), (Bytes{0, 2, 0, 2}));
  EXPECT_EQ(levels("/m/a.mov", ""), (Bytes{255, 255, 255, 255}));
}

TEST(AliasRecord, KeepsEveryNameWhole) {
  const Bytes swapped = AliasRecord("/m:n/a:b.mov", "");
  EXPECT_TRUE(Holds(swapped, "\aa/b.mov\0"s));
  EXPECT_TRUE(Holds(swapped, Tagged(0, "m/n")));
  EXPECT_TRUE(Holds(swapped, Tagged(2, "Macintosh HD:m/n:a/b.mov")));
  EXPECT_TRUE(Holds(swapped, Tagged(14, Wide("a/b.mov"))));
  EXPECT_TRUE(Holds(swapped, Tagged(18, "m:n/a:b.mov")));

  const Bytes foreign = AliasRecord("/\u00E9\U0001F3AC.mov", "");
  EXPECT_TRUE(Holds(foreign, "\x06??.mov\0"s));
  EXPECT_TRUE(Holds(foreign, Tagged(0, "Macintosh HD")));
  EXPECT_TRUE(Holds(foreign, Tagged(14, "\0\x07\0\xE9\xD8\x3C\xDF\xAC\0.\0m\0o\0v"s)));

  const Bytes latin1 = AliasRecord("/caf\xE9.mov", "");
  EXPECT_TRUE(Holds(latin1, Tagged(14, "\0\x08\0c\0a\0f\xFF\xFD\0.\0m\0o\0v"s)));
  EXPECT_TRUE(Holds(latin1, Tagged(2, "Macintosh HD:caf\xE9.mov")));
  EXPECT_TRUE(Holds(latin1, Tagged(18, "caf\xE9.mov")));

  const std::string longName(200, 'n');
  const Bytes cut = AliasRecord("/" + longName, "");
  EXPECT_EQ(Bytes(cut.begin() + 50, cut.begin() + 114), Raw("?" + longName.substr(0, 63)));
  EXPECT_TRUE(Holds(cut, Tagged(14, Wide(longName))));
}

TEST(AliasRecord, RefusesWhatNoRecordCanHold) {
  EXPECT_THROW(AliasRecord("/", ""), Refused);
  EXPECT_THROW(AliasRecord("/" + std::string(33000, 'n'), ""), Refused);
}

// Each test has its own folder, which is removed after it.
class FileReference : public testing::Test {
 protected:
  FileReference() { fs::create_directories(root_); }
  ~FileReference() override { fs::remove_all(root_); }

  // Creates a file at `name` in the folder.
  fs::path File(const std::string& name) const {
    const fs::path path = root_ / name;
    fs::create_directories(path.parent_path());
    fs::ofstream(path) << "media";
    return path;
  }
  void Move(const std::string& from, const std::string& to) const {
    fs::create_directories((root_ / to).parent_path());
    fs::rename(root_ / from, root_ / to);
  }
  // The path of `name` in the folder, as tag 18 spells it.
  std::string Below(const std::string& name) const { return (root_ / name).string().substr(1); }

  const fs::path root_ = fs::canonical(fs::temp_directory_path()) / fs::unique_path();
};

TEST_F(FileReference, LeadsThereAfterTheCommonFolderHasMoved) {
  for (const std::string target :
       {"same/a.mov", "a.mov", "clips/deep/\u00E9:.mov", "same/in/x\xE9"}) {
    const Bytes record = AliasRecord(File("all/" + target), File("all/same/ref.mov"));
    EXPECT_EQ(ResolveAlias(record, root_ / "all/same/ref.mov"), root_ / "all" / target);
    Move("all", "elsewhere/all");
    EXPECT_EQ(ResolveAlias(record, root_ / "elsewhere/all/same/ref.mov"),
              root_ / "elsewhere/all" / target);
    fs::remove_all(root_ / "elsewhere");
  }
}

TEST_F(FileReference, PrefersTheRelativeThenTheAbsoluteWayThenTheName) {
  const Bytes record = AliasRecord(File("clips/a.mov"), File("out/ref.mov"));
  const fs::path ref = File("copy/out/ref.mov");
  const Path besideIt = File("copy/out/a.mov"), relative = File("copy/clips/a.mov");
  EXPECT_EQ(ResolveAlias(record, ref), relative);
  fs::remove(*relative);
  fs::create_directory(*relative);  // a folder is not what is looked for
  EXPECT_EQ(ResolveAlias(record, ref), root_ / "clips/a.mov");
  EXPECT_EQ(ResolveAlias(record, ""), root_ / "clips/a.mov");
  fs::remove(root_ / "clips/a.mov");
  EXPECT_EQ(ResolveAlias(record, ref), besideIt);
  fs::remove(*besideIt);
  EXPECT_EQ(ResolveAlias(record, ref), Path());
}

TEST_F(FileReference, StartsWhereTheMovieReallyLies) {
  const Bytes record = AliasRecord(File("clips/a.mov"), File("out/ref.mov"));
  Move("clips", "all/clips");
  Move("out", "all/out");
  fs::create_symlink(root_ / "all/out/ref.mov", root_ / "link.mov");
  EXPECT_EQ(ResolveAlias(record, root_ / "link.mov"), root_ / "all/clips/a.mov");
}

TEST_F(FileReference, ReadsRecordsOfOtherPrograms) {
  const fs::path ref = root_ / "out/ref.mov";
  const Path target = File("out/b:c.mov");
  const std::string posix = Below("out/b:c.mov");
  std::string colon = "Disk:" + Below("out/b/c.mov");
  std::replace(colon.begin(), colon.end() - 7, '/', ':');

  EXPECT_EQ(ResolveAlias(Version3(Tagged(18, posix) + kEnd), ""), target);
  EXPECT_EQ(ResolveAlias(Version3(Tagged(18, posix)), ""), target);  // some leave the end out
  EXPECT_EQ(
      ResolveAlias(Version3(Tagged(18, "b:c.mov") + Tagged(19, "/" + Below("out")) + kEnd), ""),
      target);
  EXPECT_EQ(ResolveAlias(Version3(Tagged(14, Wide("b/c.mov")) + kEnd), ref), target);
  EXPECT_EQ(ResolveAlias(Version2(-1, -1, "", Tagged(2, colon) + kEnd), ""), target);
  EXPECT_EQ(ResolveAlias(Version2(1, 1, "", Tagged(2, "Disk:gone:b/c.mov") + kEnd), ref), target);
  EXPECT_EQ(ResolveAlias(Version2(-1, -1, "b/c.mov", ""), ref), target);

  const Path odd = File("out/\uFFFDx");  // a name with half a surrogate pair
  EXPECT_EQ(ResolveAlias(Version3(Tagged(14, "\0\x02\xD8\x3C\0x"s) + kEnd), ref), odd);

  EXPECT_EQ(ResolveAlias(Version2(1, 3, "z", Tagged(18, "Users/b:c.mov") + kEnd), ref), Path());
  EXPECT_EQ(ResolveAlias(Version2(32767, 1, "z", Tagged(18, "b:c.mov") + kEnd), ref), Path());
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
  const fs::path ref = root_ / "ref.mov";
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
