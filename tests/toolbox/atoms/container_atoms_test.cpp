#include "toolbox/atoms/container_atoms.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

using namespace std::string_literals;

// A container with a child of each quantity.
struct Box {
  static constexpr FourCC kType{"box "};
  Handler handler;
  std::optional<FileType> type;
  std::vector<std::variant<ChunkOffsets, SyncSamples>> tables;
  Siblings others;
  static void Children(auto& io, auto& box) { io(box.handler, box.type, box.tables, box.others); }
};

const Bytes kHandler = Atom("hdlr", U32(0), Text("mhlrvideappl"), Zeros(8), Text("x"));
const Bytes kType = Atom("ftyp", Text("qt  "), U32(1));
const Bytes kSync = Atom("stss", U32(0), U32(1), U32(7));

TEST(Containers, KeepStrangersAndTheOrderOfAllByteForByte) {
  const Bytes content =
      Join(Atom("what", Text("first")), kSync, kType, WideAtom("wide", Text("2")),
           Atom("stco", U32(0), U32(0)), kHandler, Atom("what", Text("second")), kSync, kType);
  const Box box = Decode<Box>(content);
  EXPECT_EQ(box.tables.size(), 3U);
  EXPECT_EQ(FindSibling(box.others, FileType::kType)->bytes, kType) << "only one is known";
  EXPECT_EQ(Encode(box), Atom("box ", content));
}

TEST(Containers, PutNewChildrenInTheOrderOfTheListAndLeaveNoGaps) {
  Box box = Decode<Box>(Join(kSync, kHandler, Atom("kept")));
  box.tables.clear();
  box.type = FileType{FourCC{"new "}, 1, {}};
  EXPECT_EQ(Encode(box), Atom("box ", kHandler, Atom("kept"), Atom("ftyp", Text("new "), U32(1))));
  box.others.clear();
  EXPECT_EQ(Encode(box), Atom("box ", kHandler, Atom("ftyp", Text("new "), U32(1))));
}

TEST(Containers, RefuseToLackWhatMustBeThereAndNameThePlace) {
  const auto fault = [](const Bytes& content) {
    try {
      Decode<MovieAtoms>(content);
    } catch (const Malformed& malformed) {
      return malformed.path + ": " + malformed.reason;
    }
    return std::string();
  };
  EXPECT_EQ(fault({}), "/moov: the atom 'mvhd' is missing");
  EXPECT_EQ(fault(Join(Atom("mvhd", Zeros(100)), Atom("trak", kHandler))),
            "/moov/trak: the atom 'tkhd' is missing");
  EXPECT_EQ(fault(Join(Atom("mvhd", Zeros(100)), Atom("trak", Atom("tkhd", Zeros(9))))),
            "/moov/trak/tkhd: the atom ends inside modified");
}

TEST(Containers, StateTheSizeOfAChildOnceItIsNotTheLast) {
  const Box box = Decode<Box>(Join(kHandler, U32(0), Text("last"), Text("abc")));
  EXPECT_EQ(box.others.back().bytes, Atom("last", Text("abc")));
}

TEST(SampleTableAtoms, TakesOneKindOfSizesAndOfChunkOffsets) {
  const Bytes wide = Atom("co64", U32(0), U32(1), U64(9));
  const Bytes narrow = Atom("stco", U32(0), U32(1), U32(9));
  const auto table = Decode<SampleTableAtoms>(
      Join(wide, narrow, Atom("stsz", U32(0), U32(5), U32(3)), Atom("stz2")));
  EXPECT_EQ(std::get<ChunkOffsets>(table.chunkOffsets.value()).rows.Count(), 1U);
  EXPECT_EQ(FindSibling(table.others, FourCC{"co64"})->bytes, wide);
  EXPECT_EQ(std::get<ConstantSampleSize>(table.sizes.value()).count, 3U);
  const Bytes sizes = Atom("stsz", U32(0), U32(0), U32(1), U32(3));
  EXPECT_EQ(std::get<SampleSizes>(*Decode<SampleTableAtoms>(sizes).sizes).rows.Count(), 1U);
}

TEST(UserDataAtoms, EndsEarlyAndGivesMetaItsVersion) {
  const Bytes name = Atom("name", Text("Ann")), handler = Atom("hdlr", Zeros(25));
  const auto data = Decode<UserDataAtoms>(Join(Atom("meta", handler), name, U32(0), Text("junk")));
  EXPECT_EQ(Encode(data), Atom("udta", Atom("meta", U32(0), handler), name));
}

TEST(TrackReferenceAtoms, JoinsListsOfOneType) {
  const auto references = Decode<TrackReferenceAtoms>(
      Join(Atom("hint", U32(1)), Atom("chap", U32(2), U32(3)), Atom("hint", U32(4), Text("odd"))));
  EXPECT_EQ(Encode(references),
            Atom("tref", Atom("hint", U32(1), U32(4)), Atom("chap", U32(2), U32(3))));
}

TEST(Handler, HasItsNameAsTheKindOfFileWantsIt) {
  const auto named = [](FourCC componentType, const Bytes& name) {
    Handler handler;
    handler.componentType = componentType;
    handler.name = name;
    return handler;
  };
  const FourCC quickTime{"mhlr"};
  EXPECT_EQ(QuickTimeHandler(named({}, Text("Ann\0x"s))).name, Text("\3Ann"));
  EXPECT_EQ(QuickTimeHandler(named({}, {})).componentType, quickTime);
  EXPECT_EQ(QuickTimeHandler(named(quickTime, Text("Ann"))).name, Text("Ann"));
  EXPECT_EQ(IsoHandler(named(quickTime, Text("\3Ann"))).name, Text("Ann\0"s));
  EXPECT_EQ(IsoHandler(named({}, Text("Ann\0"s))).name, Text("Ann\0"s));
  EXPECT_EQ(IsoHandler(named(quickTime, Text("\3\xC4nn"))).name, Text("\0"s));
  EXPECT_EQ(NewHandler({}, FourCC{"vide"}, "Ann").name, Text("Ann\0"s));
  EXPECT_EQ(NewHandler(quickTime, FourCC{"vide"}, "Ann").name, Text("\3Ann"));
}

}  // namespace
}  // namespace toolbox
