#include "toolbox/atoms/tag_atoms.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

using namespace std::string_literals;

std::string TextOf(ByteSpan bytes) { return {bytes.begin(), bytes.end()}; }

// "type domain name kind value" of each tag.
std::string Described(const std::string& meta) {
  std::string lines;
  const Bytes bytes = Made(meta);
  for (const Tag& tag : ReadTags(bytes)) {
    lines += tag.type.Text() + ' ' + TextOf(tag.domain) + ' ' + TextOf(tag.name) + ' ' +
             std::to_string(tag.kind) + ' ' + TextOf(tag.value) + '\n';
  }
  return lines;
}

TEST(Tags, HaveATypeOrANameOfTheirOwn) {
  const std::string handler = "hdlr{ *8 'mdir' *13 } ";
  const std::string items =
      handler +
      "ilst{ desc{ data{ 1 0 'Hi' } }"
      " covr{ data{ 13 0 'jpeg' } name{ 'x' } data{ 14 0 'png' } }"
      " ----{ mean{ 0 'org.x' } name{ 0 'ID' } data{ 0 0 '7' } } none{ } shrt{ data{ *7 } } }";
  const std::string expected = "desc   1 Hi\ncovr   13 jpeg\ncovr   14 png\n---- org.x ID 0 7\n";
  EXPECT_EQ(Described("0 " + items), expected);
  EXPECT_EQ(Described(items), expected) << "QuickTime has no version";
  EXPECT_EQ(Described("0 " + handler), "");
}

TEST(Tags, HaveTheKeyWithTheNumberOfTheirType) {
  for (const auto& [number, name] :
       {std::pair("0", ""), {"1", "com.make"}, {"2", "com.model"}, {"3", ""}}) {
    const Bytes meta = Made(
        "hdlr{ *8 'mdir' *13 } keys{ 0 2 mdta{ 'com.make' } mdta{ 'com.model' } }"
        " ilst{ 28 $ data{ 1 0 'text' } }",
        {Made(number)});
    EXPECT_EQ(TextOf(ReadTags(meta).at(0).name), name);
  }
}

TEST(Tags, HaveNumbersOfTheirKind) {
  struct Case {
    std::uint32_t kind;
    const char* value;
    std::optional<std::int64_t> integer;
    std::optional<double> real;
  };
  const Case cases[] = {
      {Tag::kSignedNumber, "-5/1", -5, {}},
      {Tag::kSignedNumber, "251/2", 251, {}},
      {Tag::kSignedNumber, "-65536/3", -65536, {}},
      {Tag::kUnsignedNumber, "251/1", 251, {}},
      {Tag::kUnsignedNumber, "0x0102030405060708/8", 0x0102030405060708, {}},
      {Tag::kUnsignedNumber, "*9", {}, {}},
      {Tag::kSignedNumber, "", {}, {}},
      {Tag::kFloat, "0xBFC00000", {}, -1.5},
      {Tag::kDouble, "0x4004000000000000/8", {}, 2.5},
      {Tag::kFloat, "0x4004000000000000/8", {}, {}},
      {Tag::kUtf8Text, "'1'", {}, {}},
  };
  for (const Case& one : cases) {
    const Bytes value = Made(one.value);
    const Tag tag{.kind = one.kind, .value = value};
    EXPECT_EQ(tag.Integer(), one.integer) << one.value;
    EXPECT_EQ(tag.Real(), one.real) << one.value;
  }
  const Bytes track = Made("3 268/2 0/2"), genre = Made("265/2");
  using Pair = std::pair<std::uint16_t, std::uint16_t>;
  EXPECT_EQ(Tag{.value = track}.NumberAndTotal(), Pair(3, 268));
  EXPECT_EQ(Tag{.value = ByteSpan(track).first(5)}.NumberAndTotal(), Pair(3, 0));
  EXPECT_EQ(Tag{.value = genre}.Genre(), 265);
}

TEST(AssetText, EndsAtAZeroUnlessItIsUtf16) {
  const auto text = [](FourCC type, const char* payload) {
    const Bytes bytes = Made(payload);
    const auto found = ReadAssetText(type, bytes);
    return found ? std::to_string(found->language) + TextOf(found->text) : "none";
  };
  EXPECT_EQ(text(FourCC{"titl"}, "0 5575/2 'Hi' 0/1 'x'"), "5575Hi");
  EXPECT_EQ(text(FourCC{"auth"}, "0 1/2 xFEFF00480069"), "1\xFE\xFF\0H\0i"s);
  EXPECT_EQ(text(FourCC{"perf"}, "0 1/2"), "1");
  EXPECT_EQ(text(FourCC{"perf"}, "*5"), "none");
  EXPECT_EQ(text(FourCC{"loci"}, "0 1/2 'Hi'"), "none");
}

}  // namespace
}  // namespace toolbox
