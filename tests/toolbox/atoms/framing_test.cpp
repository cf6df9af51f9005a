#include "toolbox/atoms/framing.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
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

TEST(Children, AreHandedOutByQuantity) {
  const Bytes content = Join(Atom("two ", Text("a")), Atom("one "), Atom("two ", Text("b")));
  Children children(content);
  EXPECT_EQ(children.Each(FourCC{"two "}).size(), 2U);
  EXPECT_FALSE(children.Maybe(FourCC{"none"}));
  EXPECT_NO_THROW(children.One(FourCC{"one "}));
  EXPECT_THROW(children.One(FourCC{"one "}), Malformed);
}

TEST(Children, KeepStrangersAndTheOrderOfAllByteForByte) {
  const Bytes header = Atom("hdlr", U32(0), Text("mhlrvideappl"), Zeros(8), Text("x"));
  const Bytes offsets = Atom("ftyp", Text("qt  "), U32(1));
  const Bytes content = Join(Atom("what", Text("first")), offsets, WideAtom("wide", Text("2")),
                             header, Atom("what", Text("second")));
  Children children(content);
  const auto handler = children.One<Handler>();
  const auto type = children.Maybe<FileType>();
  const Siblings others = children.Others();
  const auto put = [&](auto& io) {
    io.Atom(FourCC{"box "}, [&] {
      ChildWriter writer(io, others);
      writer.Add(handler);
      writer.Add(*type);
      writer.Finish();
    });
  };
  EXPECT_EQ(Encoded(put), Atom("box ", content));
}

TEST(Children, WithoutAPlaceGoToTheEndAndThoseThatLeftLeaveNoGap) {
  const Bytes content = Join(Atom("gone", Text("x")), Atom("kept"));
  Children children(content);
  children.One(FourCC{"gone"});
  const Siblings others = children.Others();
  const auto put = [&](auto& io) {
    ChildWriter writer(io, others);
    writer.Add(FileType{FourCC{"new "}, 1, {}});
    writer.Finish();
  };
  EXPECT_EQ(Encoded(put), Join(Atom("kept"), Atom("ftyp", Text("new "), U32(1))));
}

TEST(Children, StateTheirSizeOnceTheyAreNotTheLast) {
  const Bytes content = Join(U32(0), Text("last"), Text("abc"));
  const Siblings others = Children(content).Others();
  ASSERT_EQ(others.size(), 1U);
  EXPECT_EQ(others[0].bytes, Atom("last", Text("abc")));
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
