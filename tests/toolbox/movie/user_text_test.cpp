#include "toolbox/movie/user_text.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/text_atoms.h"
#include "toolbox/movie/user_data.h"

namespace toolbox {
namespace {

constexpr FourCC kName{"\251nam"};

TEST(UserText, IsEntriesOfSizeLanguageAndText) {
  UserDataRecord data;
  SetText(data, kName, 1, 0, Text("Hi"));
  SetText(data, kName, 1, 14, Bytes{0xB6});
  SetText(data, kName, 1, 0, Text("Hello"));
  EXPECT_EQ(data.Item(kName, 1), Made("5/2 0/2 'Hello' 1/2 14/2 xB6"));
  EXPECT_EQ(TextOf(data, kName, 1, 14), Bytes{0xB6});
  EXPECT_EQ(CodeOf([&] { TextOf(data, kName, 1, 15); }), userDataItemNotFound);
  EXPECT_EQ(CodeOf([&] { TextOf(data, kName, 2, 0); }), userDataItemNotFound);
  SetText(data, kName, 1, 0, Bytes(70000, 'x'));
  EXPECT_EQ(TextOf(data, kName, 1, 0).size(), 65535U) << "cut where its size ends";
}

TEST(UserText, IsAddedOnlyToItemsOfTexts) {
  UserDataRecord data;
  data.items = {{kName, Text("raw text")}};
  const UserDataRecord before = data;
  EXPECT_EQ(CodeOf([&] { SetText(data, kName, 1, 0, {}); }), paramErr);
  EXPECT_EQ(CodeOf([&] { SetText(data, FourCC{"name"}, 1, 0, {}); }), paramErr);
  EXPECT_EQ(CodeOf([&] { SetText(data, kName, 2, 0, {}); }), userDataItemNotFound);
  EXPECT_EQ(CodeOf([&] { SetText(data, FourCC{"\251cmt"}, 0, 0, {}); }), userDataItemNotFound);
  EXPECT_EQ(CodeOf([&] { TextOf(data, kName, 1, 0); }), userDataItemNotFound);
  EXPECT_EQ(data, before);
  for (const char* cut : {"2/2 0/2 'H'", "0/2 0/1", "0 1/1"}) {
    EXPECT_EQ(ReadTextEntries(Made(cut)), std::nullopt) << cut;
  }
}

TEST(UserText, OfAnotherLanguageServesForLanguageZero) {
  const std::string own = "3/2 0/2 'own' ", unspecified = "2/2 0x7FFF/2 x618E ",
                    iso = "9/2 0x55C4/2 'Caf\u00e9 \u65e5' ", greek = "1/2 14/2 xB6 ",
                    wide = "6/2 0x15C7/2 xFFFEE9006100 ";
  const auto textIn = [](const std::string& payload) {
    UserDataRecord data;
    data.items = {{kName, Made(payload)}};
    return TextOf(data, kName, 1, 0);
  };
  EXPECT_EQ(textIn(greek + iso + unspecified + own), Text("own"));
  EXPECT_EQ(textIn(greek + iso + unspecified), Text("a\x8E"));
  EXPECT_EQ(textIn(greek + iso + wide), Text("Caf\x8E ?"));
  EXPECT_EQ(textIn(wide), Text("\x8E\x61"));
  EXPECT_EQ(textIn("2/2 0x55C4/2 x61FF"), Text("a?"));
  EXPECT_EQ(CodeOf([&] { textIn(greek); }), userDataItemNotFound);
}

}  // namespace
}  // namespace toolbox
