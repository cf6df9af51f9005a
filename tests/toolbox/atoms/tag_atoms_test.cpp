#include "toolbox/atoms/tag_atoms.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

const Bytes kHandler = Atom("hdlr", Zeros(8), Text("mdir"), Zeros(13));

Bytes Data(std::uint8_t kind, const Bytes& value) {
  return Atom("data", Bytes{0, 0, 0, kind, 0, 0, 0, 0}, value);
}

std::string TextOf(ByteSpan bytes) { return {bytes.begin(), bytes.end()}; }

// "type domain name kind value" of each tag.
std::vector<std::string> Described(const Bytes& meta) {
  std::vector<std::string> lines;
  for (const Tag& tag : ReadTags(meta)) {
    lines.push_back(tag.type.Text() + ' ' + TextOf(tag.domain) + ' ' + TextOf(tag.name) + ' ' +
                    std::to_string(tag.kind) + ' ' + TextOf(tag.value));
  }
  return lines;
}

TEST(Tags, HaveATypeOrANameOfTheirOwn) {
  const Bytes items =
      Atom("ilst", Atom("desc", Data(1, Text("Hi"))),
           Atom("covr", Data(13, Text("jpeg")), Atom("name", Text("x")), Data(14, Text("png"))),
           Atom("----", Atom("mean", Zeros(4), Text("org.x")), Atom("name", Zeros(4), Text("ID")),
                Data(0, Text("7"))),
           Atom("none"), Atom("shrt", Atom("data", Zeros(7))));
  const std::vector<std::string> expected = {"desc   1 Hi", "covr   13 jpeg", "covr   14 png",
                                             "---- org.x ID 0 7"};
  EXPECT_EQ(Described(Join(U32(0), kHandler, items)), expected);
  EXPECT_EQ(Described(Join(kHandler, items)), expected) << "QuickTime has no version";
  EXPECT_EQ(Described(Join(U32(0), kHandler)), std::vector<std::string>());
}

TEST(Tags, HaveTheKeyWithTheNumberOfTheirType) {
  const Bytes keys =
      Atom("keys", U32(0), U32(2), Atom("mdta", Text("com.make")), Atom("mdta", Text("com.model")));
  const auto meta = [&](std::uint32_t number) {
    const Bytes item = Join(U32(8 + 20), U32(number), Data(1, Text("text")));
    return Join(kHandler, keys, Atom("ilst", item));
  };
  EXPECT_EQ(TextOf(ReadTags(meta(1)).at(0).name), "com.make");
  EXPECT_EQ(TextOf(ReadTags(meta(2)).at(0).name), "com.model");
  EXPECT_EQ(TextOf(ReadTags(meta(3)).at(0).name), "");
  EXPECT_EQ(TextOf(ReadTags(meta(0)).at(0).name), "");
}

TEST(Tags, HaveNumbersOfTheirKind) {
  struct Case {
    std::uint32_t kind;
    Bytes value;
    std::optional<std::int64_t> integer;
    std::optional<double> real;
  };
  const Case cases[] = {
      {Tag::kSignedNumber, {0xFB}, -5, {}},
      {Tag::kSignedNumber, {0, 0xFB}, 251, {}},
      {Tag::kSignedNumber, {0xFF, 0, 0}, -65536, {}},
      {Tag::kUnsignedNumber, {0xFB}, 251, {}},
      {Tag::kUnsignedNumber, {1, 2, 3, 4, 5, 6, 7, 8}, 0x0102030405060708, {}},
      {Tag::kUnsignedNumber, Zeros(9), {}, {}},
      {Tag::kSignedNumber, {}, {}, {}},
      {Tag::kFloat, {0xBF, 0xC0, 0, 0}, {}, -1.5},
      {Tag::kDouble, {0x40, 4, 0, 0, 0, 0, 0, 0}, {}, 2.5},
      {Tag::kFloat, {0x40, 4, 0, 0, 0, 0, 0, 0}, {}, {}},
      {Tag::kUtf8Text, {'1'}, {}, {}},
  };
  for (const Case& one : cases) {
    const Tag tag{.kind = one.kind, .value = one.value};
    EXPECT_EQ(tag.Integer(), one.integer) << &one - cases;
    EXPECT_EQ(tag.Real(), one.real) << &one - cases;
  }
  const Bytes track = {0, 0, 0, 3, 1, 12, 0, 0}, genre = {1, 9};
  using Pair = std::pair<std::uint16_t, std::uint16_t>;
  EXPECT_EQ(Tag{.value = track}.NumberAndTotal(), Pair(3, 268));
  EXPECT_EQ(Tag{.value = ByteSpan(track).first(5)}.NumberAndTotal(), Pair(3, 0));
  EXPECT_EQ(Tag{.value = genre}.Genre(), 265);
}

TEST(AssetText, EndsAtAZeroUnlessItIsUtf16) {
  const Bytes head = {0, 0, 0, 0, 0x15, 0xC7}, utf16 = {0xFE, 0xFF, 0, 'H', 0, 'i'};
  const Bytes plain = Join(head, Bytes{'H', 'i', 0, 'x'}), wide = Join(head, utf16);
  EXPECT_EQ(TextOf(ReadAssetText(FourCC{"titl"}, plain)->text), "Hi");
  EXPECT_EQ(ReadAssetText(FourCC{"titl"}, plain)->language, 0x15C7);
  EXPECT_EQ(TextOf(ReadAssetText(FourCC{"auth"}, wide)->text), TextOf(utf16));
  EXPECT_EQ(TextOf(ReadAssetText(FourCC{"perf"}, head)->text), "");
  EXPECT_FALSE(ReadAssetText(FourCC{"perf"}, ByteSpan(head).first(5)));
  EXPECT_FALSE(ReadAssetText(FourCC{"loci"}, plain));
}

}  // namespace
}  // namespace toolbox
