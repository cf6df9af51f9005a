#include "toolbox/atoms/container_atoms.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/framing.h"

namespace toolbox {
namespace {

using namespace std::string_literals;

// Such as "one 1|two 22|".
std::string Split(const Bytes& bytes, ByteSpan* tail = nullptr) {
  std::string text;
  for (const AtomView& atom : SplitAtoms(bytes, tail)) {
    text += atom.type.Text() + std::string(atom.content.begin(), atom.content.end()) + '|';
  }
  return text;
}

TEST(Framing, UnderstandsAllThreeKindsOfSizesButNoneThatCannotBe) {
  EXPECT_EQ(Split(Made("one{ '1' } 1 'two ' 18/8 '22' 0 'rest' '333'")), "one 1|two 22|rest333|");
  EXPECT_EQ(Split(Made("one{ '1' } *7")), "one 1|");
  for (const char* bad : {"7 'tiny' *8", "1 'wide' 15/8 *8", "1 'wide' -1/8", "1 'wide' *7",
                          "17 'long' *8", "8 'cut'", "one{ } 'x'"}) {
    EXPECT_THROW(Split(Made(bad)), Malformed) << bad;
  }
  const Bytes broken = Made("one{ '1' } 9 'long'");
  ByteSpan tail;
  EXPECT_EQ(Split(broken, &tail), "one 1|");
  EXPECT_EQ(tail.size(), 8U);
}

// A container with a child of each quantity.
struct Box {
  static constexpr FourCC kType{"box "};
  Handler handler;
  std::optional<FileType> type;
  std::vector<std::variant<ChunkOffsets, SyncSamples>> tables;
  Siblings others;
  static void Children(auto& io, auto& box) { io(box.handler, box.type, box.tables, box.others); }
};

const Bytes kHandler = Made("hdlr{ 0 'mhlrvideappl' *8 'x' }"), kSync = Made("stss{ 0 1 7 }");

TEST(Containers, KeepStrangersAndTheOrderOfAllByteForByte) {
  const Bytes content = Made(
      "what{ 'first' } $ ftyp{ 'qt  ' 1 } 1 'wide' 17/8 '2' stco{ 0 0 } $ what{ } $"
      " ftyp{ 'only one is known' }",
      {kSync, kHandler, kSync});
  const Box box = Decode<Box>(content);
  EXPECT_EQ(box.tables.size(), 3U);
  EXPECT_EQ(Encode(box), Atom("box ", content));
}

TEST(Containers, PutNewChildrenInTheOrderOfTheListAndLeaveNoGaps) {
  Box box = Decode<Box>(Made("$ $ kept{ }", {kSync, kHandler}));
  box.tables.clear();
  box.type = FileType{FourCC{"new "}, 1, {}};
  EXPECT_EQ(Encode(box), Made("box{ $ kept{ } ftyp{ 'new ' 1 } }", {kHandler}));
  box.others.clear();
  EXPECT_EQ(Encode(box), Made("box{ $ ftyp{ 'new ' 1 } }", {kHandler}));
  const Box last = Decode<Box>(Made("$ 0 'last' 'abc'", {kHandler}));
  EXPECT_EQ(last.others.back().bytes, Made("last{ 'abc' }")) << "its size is stated";
}

TEST(Containers, TakeOneTableOfAKindAndJoinListsOfOneType) {
  const Bytes tables = Made("co64{ 0 1 9/8 } stco{ 0 1 9 } stsz{ 0 5 3 } stz2{ }");
  const auto table = Decode<SampleTableAtoms>(tables);
  EXPECT_EQ(std::get<ChunkOffsets>(table.chunkOffsets.value()).rows.Count(), 1U);
  EXPECT_EQ(FindSibling(table.others, FourCC{"co64"})->bytes, Made("co64{ 0 1 9/8 }"));
  EXPECT_EQ(std::get<ConstantSampleSize>(table.sizes.value()).count, 3U);
  EXPECT_EQ(Encode(Decode<TrackReferenceAtoms>(Made("hint{ 1 } chap{ 2 3 } hint{ 4 'odd' }"))),
            Made("tref{ hint{ 1 4 } chap{ 2 3 } }"));
}

TEST(UserDataAtoms, EndEarlyAndGiveMetaItsVersion) {
  for (const char* end : {"", "0", "7 'tiny'", "70 'long'", "*8", "0 'junk'"}) {
    EXPECT_EQ(
        Encode(Decode<UserDataAtoms>(Made("meta{ hdlr{ *25 } } name{ 'Ann' } $", {Made(end)}))),
        Made("udta{ meta{ 0 hdlr{ *25 } } name{ 'Ann' } }"))
        << end;
  }
}

TEST(Handler, HasItsNameAsTheKindOfFileWantsIt) {
  const auto named = [](FourCC componentType, const std::string& name) {
    return Handler{.componentType = componentType, .name = Text(name)};
  };
  const FourCC quickTime{"mhlr"};
  EXPECT_EQ(QuickTimeHandler(named({}, "Ann\0x"s)).name, Text("\3Ann"));
  EXPECT_EQ(QuickTimeHandler(named({}, "")).componentType, quickTime);
  EXPECT_EQ(QuickTimeHandler(named(quickTime, "Ann")).name, Text("Ann"));
  EXPECT_EQ(IsoHandler(named(quickTime, "\3Ann")).name, Text("Ann\0"s));
  EXPECT_EQ(IsoHandler(named({}, "Ann\0"s)).name, Text("Ann\0"s));
  EXPECT_EQ(IsoHandler(named(quickTime, "\3\xC4nn")).name, Text("\0"s));
  EXPECT_EQ(NewHandler({}, FourCC{"vide"}, "Ann").name, Text("Ann\0"s));
  EXPECT_EQ(NewHandler(quickTime, FourCC{"vide"}, "Ann").name, Text("\3Ann"));
}

}  // namespace
}  // namespace toolbox
