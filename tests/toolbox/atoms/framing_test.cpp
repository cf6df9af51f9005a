#include "toolbox/atoms/framing.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/header_atoms.h"

namespace toolbox {
namespace {

std::vector<std::string> Types(const std::vector<AtomView>& atoms) {
  std::vector<std::string> types;
  for (const AtomView& atom : atoms) types.push_back(atom.type.Text());
  return types;
}

Bytes Copy(ByteSpan bytes) { return {bytes.begin(), bytes.end()}; }

TEST(Framing, UnderstandsAllThreeKindsOfSizes) {
  const Bytes bytes = Join(Atom("one ", Text("1")), WideAtom("two ", Text("22")), U32(0),
                           Text("rest"), Text("333"));
  const auto atoms = SplitAtoms(bytes);
  ASSERT_EQ(Types(atoms), (std::vector<std::string>{"one ", "two ", "rest"}));
  EXPECT_EQ(Copy(atoms[0].content), Text("1"));
  EXPECT_EQ(Copy(atoms[1].content), Text("22"));
  EXPECT_EQ(Copy(atoms[1].whole), WideAtom("two ", Text("22")));
  EXPECT_EQ(Copy(atoms[2].content), Text("333"));
}

TEST(Framing, RefusesSizesThatCannotBe) {
  const auto frame = [](const Bytes& bytes) { return ReadFrame(bytes, bytes.size()); };
  EXPECT_FALSE(frame(Join(U32(7), Text("tiny"), Zeros(8))));
  EXPECT_FALSE(frame(Join(U32(1), Text("wide"), U64(15), Zeros(8))));
  EXPECT_FALSE(frame(Join(U32(1), Text("wide"), U64(0xFFFFFFFFFFFFFFFF))));
  EXPECT_FALSE(frame(Join(U32(1), Text("wide"), Zeros(7))));
  EXPECT_FALSE(frame(Join(U32(17), Text("long"), Zeros(8))));
  EXPECT_FALSE(frame(Join(U32(8), Text("cut"))));
  EXPECT_TRUE(frame(Join(U32(16), Text("just"), Zeros(8))));
}

TEST(Framing, KeepsWhatFollowsTheLastAtomOnlyForWhoAsks) {
  const Bytes padded = Join(Atom("one ", Text("1")), Zeros(7));
  const Bytes broken = Join(Atom("one ", Text("1")), U32(9), Text("long"));
  ByteSpan tail;
  EXPECT_EQ(SplitAtoms(padded).size(), 1U);
  EXPECT_THROW(SplitAtoms(broken), Malformed);
  EXPECT_THROW(SplitAtoms(Join(Atom("one "), Text("x"))), Malformed);
  EXPECT_EQ(SplitAtoms(broken, &tail).size(), 1U);
  EXPECT_EQ(Copy(tail), Join(U32(9), Text("long")));
}

TEST(Malformed, NamesTheAtomsAroundTheFaultAndTheField) {
  try {
    InAtom(FourCC{"moov"},
           [] { InAtom(FourCC{"trak"}, [] { Decode<MediaHeader>(Join(Zeros(16), U8(1))); }); });
    FAIL();
  } catch (const Malformed& fault) {
    EXPECT_EQ(fault.path, "/moov/trak/mdhd");
    EXPECT_EQ(fault.reason, "the atom ends inside duration");
  }
}

}  // namespace
}  // namespace toolbox
