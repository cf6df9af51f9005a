#include "toolbox/references/data_references.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "toolbox/references/aliases.h"
#include "toolbox/references/urls.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;
using namespace std::string_literals;

constexpr FourCC kAlias{"alis"}, kUrl{"url "}, kHandle{"hndl"};

class DataReferenceInFolder : public InFolder {
 protected:
  // Creates a file at `name` in the folder.
  fs::path Place(const std::string& name) const {
    fs::create_directories((folder_ / name).parent_path());
    return Store(name, Text("media"));
  }
};

TEST_F(DataReferenceInFolder, IsReadAsOneOfFourCases) {
  const fs::path target = Place("clips/a.mov"), ref = Place("out/ref.mov");
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
}

// A handle reference may bring its bytes.
TEST(DataReference, OfAHandleIsABlockOfMemoryOrStaysAsItCame) {
  for (const auto& [record, data] :
       {std::pair("*5 data{ 'xy' }", "xy"), {"'abcd' 3/1 'a.m' ftyp{ 'MooV' } data{ }", ""}}) {
    const DataReference block = ReadDataReference({kHandle, 0, Made(record)}, "/ref.mov", false);
    ASSERT_TRUE(std::holds_alternative<InMemory>(block));
    EXPECT_EQ(*std::get<InMemory>(block).data, Text(data));
  }
  for (const char* bad : {"*5", "*5 11 'dataxy'", "*5 7 'data'", "0 255/1", ""}) {
    const DataReferenceEntry entry{kHandle, 0, Made(bad)};
    EXPECT_EQ(ReadDataReference(entry, "/ref.mov", false), DataReference(entry)) << bad;
  }
}

TEST_F(DataReferenceInFolder, IsWrittenForTheRealPlaceOfBothFiles) {
  EXPECT_EQ(WriteDataReference(ThisFile{}, "/ref.mov", false), (DataReferenceEntry{kAlias, 1, {}}));
  EXPECT_THROW(WriteDataReference(InMemory{std::make_shared<Bytes>()}, "/ref.mov", false), Refused);

  const fs::path target = Place("clips/a.mov");
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
  const std::vector<std::pair<std::string, std::optional<boost::filesystem::path>>> urls = {
      {"file:///m/a%20b.mov\0ignored"s, "/m/a b.mov"},
      {"FILE://LocalHost/m/%C3%a9.mov", "/m/\u00E9.mov"},
      {"file:/m/./x/../a.mov", "/m/a.mov"},
      {"/m/100%.mov", "/m/100%.mov"},
      {"/m/%4", "/m/%4"},
      {"a.mov", "/no/such/a.mov"},
      {"../in/a%3Ab?#.mo%76", "/no/in/a:b?#.mov"},
      {"in/a:b.mov", "/no/such/in/a:b.mov"},
      {"http://localhost/a.mov", {}},
      {"file://elsewhere/a.mov", {}},
      {"file:a.mov", {}},
      {"file://localhost", {}},
      {"/m/a%00.mov", {}},
      {"", {}},
  };
  for (const auto& [url, path] : urls) {
    EXPECT_EQ(ResolveUrl(Text(url), "/no/such/ref.mov"), path) << url;
  }
  EXPECT_EQ(ResolveUrl(Text("a.mov"), ""), std::nullopt);
}

TEST(Url, IsRelativeInTheFolderOfTheMovie) {
  const std::vector<std::pair<boost::filesystem::path, std::string>> paths = {
      {"/m/a b%\u00E9.mov", "a%20b%25%C3%A9.mov"},
      {"/m/in/a:b?#.mov", "in/a%3Ab%3F%23.mov"},
      {"/else/a.mov", "file:///else/a.mov"},
  };
  for (const auto& [path, url] : paths) {
    EXPECT_EQ(FileUrl(path, "/m/ref.mp4"), Text(url + '\0'));
    EXPECT_EQ(ResolveUrl(FileUrl(path, "/m/ref.mp4"), "/m/ref.mp4"), path);
  }
}

}  // namespace
}  // namespace toolbox
