#include "toolbox/movie/user_text.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/text_atoms.h"
#include "toolbox/movie/user_data.h"

namespace toolbox {
namespace {

constexpr FourCC kName{"\251nam"};

Bytes Entry(std::uint16_t language, const Bytes& text) {
  return Join(U16(static_cast<std::uint16_t>(text.size())), U16(language), text);
}

TEST(UserText, IsEntriesOfSizeLanguageAndText) {
  UserDataRecord data;
  SetText(data, kName, 1, 0, Text("Hi"));
  EXPECT_EQ(data.Item(kName, 1), (Bytes{0, 2, 0, 0, 'H', 'i'}));
  SetText(data, kName, 1, 14, Bytes{0xB6});
  SetText(data, kName, 1, 0, Text("Hello"));
  EXPECT_EQ(data.Item(kName, 1), (Bytes{0, 5, 0, 0, 'H', 'e', 'l', 'l', 'o', 0, 1, 0, 14, 0xB6}));
  EXPECT_EQ(TextOf(data, kName, 1, 14), Bytes{0xB6});
  EXPECT_EQ(CodeOf([&] { TextOf(data, kName, 1, 15); }), userDataItemNotFound);
  EXPECT_EQ(CodeOf([&] { TextOf(data, kName, 2, 0); }), userDataItemNotFound);
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
  for (const Bytes& cut : {Bytes{0, 2, 0, 0, 'H'}, Bytes{0, 0, 0}, Bytes{0, 0, 0, 0, 1}}) {
    EXPECT_EQ(ReadTextEntries(cut), std::nullopt);
  }
}

TEST(UserText, IsCutWhereItsSizeEnds) {
  UserDataRecord data;
  SetText(data, kName, 1, 0, Bytes(70000, 'x'));
  EXPECT_EQ(TextOf(data, kName, 1, 0).size(), 65535U);
  EXPECT_EQ(data.Item(kName, 1).size(), 4U + 65535U);
}

TEST(UserText, OfAnotherLanguageServesForLanguageZero) {
  const Bytes iso = Entry(0x55C4, Text("Caf\u00e9 \u65e5")), roman = Entry(0, Text("own")),
              unspecified = Entry(0x7FFF, Bytes{'a', 0x8E}), greek = Entry(14, Bytes{0xB6}),
              wide = Entry(0x15C7, Bytes{0xFF, 0xFE, 0xE9, 0, 'a', 0});
  const auto textIn = [](const Bytes& payload) {
    UserDataRecord data;
    data.items = {{kName, payload}};
    return TextOf(data, kName, 1, 0);
  };
  EXPECT_EQ(textIn(Join(greek, iso, unspecified, roman)), Text("own"));
  EXPECT_EQ(textIn(Join(greek, iso, unspecified)), (Bytes{'a', 0x8E}));
  EXPECT_EQ(textIn(Join(greek, iso, wide)), (Bytes{'C', 'a', 'f', 0x8E, ' ', '?'}));
  EXPECT_EQ(textIn(wide), (Bytes{0x8E, 'a'}));
  EXPECT_EQ(textIn(Entry(0x55C4, Bytes{'a', 0xFF})), (Bytes{'a', '?'}));
  EXPECT_EQ(CodeOf([&] { textIn(greek); }), userDataItemNotFound);
}

}  // namespace
}  // namespace toolbox
