#include "toolbox/atoms/framing.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/header_atoms.h"

namespace toolbox {
namespace {

// Such as "one 1|two 22|".
std::string Split(const Bytes& bytes, ByteSpan* tail = nullptr) {
  std::string text;
  for (const AtomView& atom : SplitAtoms(bytes, tail)) {
    text += atom.type.Text() + std::string(atom.content.begin(), atom.content.end()) + '|';
  }
  return text;
}

TEST(Framing, UnderstandsAllThreeKindsOfSizes) {
  const Bytes bytes = Made("one{ '1' } 1 'two ' 18/8 '22' 0 'rest' '333'");
  EXPECT_EQ(Split(bytes), "one 1|two 22|rest333|");
  EXPECT_EQ(SplitAtoms(bytes)[1].whole.size(), 18U);
}

TEST(Framing, RefusesSizesThatCannotBe) {
  const auto frame = [](const char* text) {
    const Bytes bytes = Made(text);
    return ReadFrame(bytes, bytes.size()).has_value();
  };
  EXPECT_TRUE(frame("16 'just' *8"));
  for (const char* bad : {"7 'tiny' *8", "1 'wide' 15/8 *8", "1 'wide' -1/8", "1 'wide' *7",
                          "17 'long' *8", "8 'cut'"}) {
    EXPECT_FALSE(frame(bad)) << bad;
  }
}

TEST(Framing, KeepsWhatFollowsTheLastAtomOnlyForWhoAsks) {
  const Bytes broken = Made("one{ '1' } 9 'long'");
  ByteSpan tail;
  EXPECT_EQ(Split(Made("one{ '1' } *7")), "one 1|");
  EXPECT_THROW(Split(broken), Malformed);
  EXPECT_THROW(Split(Made("one{ } 'x'")), Malformed);
  EXPECT_EQ(Split(broken, &tail), "one 1|");
  EXPECT_EQ(tail.size(), 8U);
}

}  // namespace
}  // namespace toolbox
