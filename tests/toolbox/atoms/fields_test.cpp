// The fields of atoms, tables that stay encoded, and atoms with children.
#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/auxiliary_atoms.h"
#include "toolbox/atoms/container_atoms.h"
#include "toolbox/atoms/encoded_tables.h"
#include "toolbox/atoms/field_printer.h"
#include "toolbox/atoms/fragment_atoms.h"
#include "toolbox/atoms/framing.h"
#include "toolbox/atoms/gps_locations.h"
#include "toolbox/atoms/group_atoms.h"
#include "toolbox/atoms/header_atoms.h"
#include "toolbox/atoms/hint_atoms.h"
#include "toolbox/atoms/sample_atoms.h"

namespace toolbox {
namespace {

using namespace std::string_literals;

// Decodes the content of an atom. Decodes an atom. Returns its printed fields, and the atom encoded
// again.
template <class A>
std::pair<std::string, Bytes> PrintedAndEncoded(ByteSpan content) {
  const A atom = Decode<A>(content);
  std::ostringstream text;
  FieldPrinter printer(text, true);
  AtomFields(printer, atom);
  return {text.str(), Encode(atom)};
}

// The text describes both the bytes, as Made reads it, and what is printed: all words with a name.
// A text in double quotes is the rest of the atom and may be shorter.
using Layout = std::pair<decltype(&PrintedAndEncoded<FileType>), const char*>;

#define MATRIX "a=1 b=2 u=3 c=4 d=5 v=6 tx=-7 ty=8 w=9"

const Layout kLayouts[] = {
    {PrintedAndEncoded<FileType>,
     "ftyp{ majorBrand='qt  ' minorVersion=537199360 compatibleBrands=\"qt  \" }"},
    {PrintedAndEncoded<MovieHeader>,
     "mvhd{ version=1/1 flags=258/3 created=4294967297/8 modified=12/8 scale=600"
     " duration=78187493530/8 rate=98304 volume=384/2 '0123456789' " MATRIX " previewTime=21"
     " previewDuration=22 posterTime=23 selectionTime=24 selectionDuration=25 currentTime=26"
     " nextTrackId=27 }"},
    {PrintedAndEncoded<TrackHeader>,
     "tkhd{ version=1/1 flags=15/3 created=11/8 modified=12/8 id=3 'res1' duration=4294967296/8"
     " 'reserved' layer=-1/2 alternateGroup=2/2 volume=256/2 'rs' " MATRIX
     " width=20971520 height=15761408 }"},
    {PrintedAndEncoded<EditEntries>,
     "elst{ version=1/1 0/3 entries=2 { duration=5/8 mediaTime=-1/8 rate=65536 }"
     " { duration=6/8 mediaTime=2147483648/8 rate=131072 } }"},
    {PrintedAndEncoded<MediaHeader>,
     "mdhd{ version=1/1 0/3 created=11/8 modified=8589934592/8 scale=90000 duration=14/8"
     " language=21956/2 quality=7/2 }"},
    {PrintedAndEncoded<Handler>,
     "hdlr{ 0 componentType='mhlr' subtype='vide' manufacturer='appl' componentFlags=1"
     " componentFlagsMask=2 name=\"abc\" }"},
    {PrintedAndEncoded<VideoMediaHeader>,
     "vmhd{ 0/1 flags=1/3 mode=2/2 opColor=3/2 opColor=4/2 opColor=65535/2 }"},
    {PrintedAndEncoded<SoundMediaHeader>, "smhd{ 0 balance=-256/2 reserved=5/2 }"},
    {PrintedAndEncoded<CompositionOffsets>,
     "ctts{ version=1/1 0/3 rows=2 { count=3 offset=20 } { count=4 offset=-10 } }"},
    {PrintedAndEncoded<SampleToGroup>,
     "sbgp{ version=1/1 0/3 grouping='rap ' parameter=9 rows=1 { count=7 group=0 } }"},
    {PrintedAndEncoded<CompactSampleToGroup>,
     "csgp{ 0/1 flags=64/3 grouping='rap ' parameter=9 patterns=1 packed=\"ab\" }"},
    {PrintedAndEncoded<AuxiliarySizes>,
     "saiz{ 0/1 flags=1/3 type='cenc' parameter=3 constant=0/1 count=2 sizes=\"ab\" }"},
    {PrintedAndEncoded<GpsLocations>, "gps{ head=1103806595073/8 table=\"abcdefgh\" }"},
    {PrintedAndEncoded<HintHeader>,
     "hmhd{ 0 largestPacket=1450/2 averagePacket=1200/2 highestBitRate=16909060"
     " averageBitRate=132868 reserved=0 }"},
    {PrintedAndEncoded<TrackDefaults>,
     "trex{ 0 track=3 description=1 duration=1024 size=4 sampleFlags=65536 }"},
    {PrintedAndEncoded<TrackFragmentHeader>,
     "tfhd{ 0/1 flags=59/3 track=3 baseDataOffset=4294967296/8 description=2 duration=1024 size=4"
     " sampleFlags=65536 }"},
    {PrintedAndEncoded<TrackRun>,
     "trun{ 0/1 flags=1797/3 count=1 dataOffset=-4 firstSampleFlags=7 rows=\"abcdefghijkl\" }"},
};

#undef MATRIX

TEST(Fields, MeanTheSameInBytesAndInValues) {
  for (const auto& [retell, text] : kLayouts) {
    SCOPED_TRACE(text);
    const std::vector<std::string> words = Words(text);
    std::string printed;
    Bytes bytes;
    std::size_t least = SIZE_MAX, countAt = 0;  // what must be there, and where a table starts
    for (std::size_t i = 1; i + 1 < words.size(); ++i) {
      const std::string& word = words[i];
      if (word.ends_with('"')) least = std::min(least, bytes.size());
      if (word.starts_with("rows=") || word.starts_with("entries=")) countAt = bytes.size();
      const bool isBrace = word == "{" || word == "}";
      if (!isBrace) bytes = Join(bytes, Made(word));
      if (isBrace || word.find('=') != word.npos) printed += ' ' + word.substr(0, word.find('/'));
    }
    EXPECT_EQ(retell(bytes), std::pair(printed, Made(words[0] + " $ }", {bytes})));

    for (std::size_t size = 0; size < std::min(least, bytes.size()); ++size) {
      EXPECT_THROW(retell(ByteSpan(bytes).first(size)), Malformed) << size << " bytes";
    }
    if (countAt == 0 || least != SIZE_MAX) continue;
    for (const int highest : {0x7F, 0xFF}) {  // too many rows to allocate memory for
      std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(countAt), 4,
                  static_cast<std::uint8_t>(highest));
      EXPECT_THROW(retell(bytes), Malformed);
    }
  }
}

TEST(Fields, RefuseAnUnknownVersionAndImpossibleEntries) {
  EXPECT_THROW(Decode<MediaHeader>(Made("0x02000000 *60")), Malformed);
  for (const char* entries : {"0 1 7 *12", "0 0x7FFFFFFF 8 'test'", "0 2 8 'test'"}) {
    EXPECT_THROW(Decode<SampleDescriptions>(Made(entries)), Malformed) << entries;
  }
}

// --- Tables that stay encoded

TEST(EncodedNumbers, AreAViewUntilANumberIsAdded) {
  Bytes file = Made("7 0xFFFFFFFF");
  EncodedNumbers numbers(false, file);
  EncodedNumbers longer = numbers;
  longer.Add(2, 9);
  file[3] = 8;
  EXPECT_EQ(numbers[0], 8U);
  longer.Add(std::uint64_t{1} << 32);
  const ByteSpan all = longer.Encoded(0, longer.Count());
  EXPECT_EQ(Bytes(all.begin(), all.end()), Made("7/8 0xFFFFFFFF/8 9/8 9/8 0x100000000/8"));
  EXPECT_EQ(longer[4], 0x100000000U);
}

TEST(OffsetRuns, AreFoundForEachSampleAmongMany) {
  OffsetRuns added;
  Bytes rows;
  const auto offset = [](std::uint32_t sample) {
    return sample % 5 < 2 ? 0 : static_cast<std::int32_t>(sample / 5) - 40000;
  };
  for (std::uint32_t i = 0; i < 2000; ++i) added.Add(1, offset(i));
  for (std::uint32_t i = 0; i < 2000; i += 5) {
    rows = Join(rows, Made("2 0 3"), U32(static_cast<std::uint32_t>(offset(i + 2))));
  }
  for (const OffsetRuns& runs : {added, OffsetRuns::ViewOf(rows, 2000).value()}) {
    EXPECT_EQ(runs.Smallest(), -40000);
    EXPECT_EQ(runs.Largest(), 0);
    for (std::uint32_t i = 0; i < 2000; ++i) {
      EXPECT_EQ(runs.From(i)->offset, offset(i));
      EXPECT_EQ(runs.From(i)->sample, i - i % 5 + (i % 5 < 2 ? 0 : 2));
    }
  }
  // Rows in a form that we would not write cannot be a view.
  for (const auto& [bad, count] :
       {std::pair("2 5  1 6", 2U), {"2 5  1 6", 4U}, {"2 5  1 5", 3U}, {"2 5  1 6  0 7", 3U}}) {
    EXPECT_FALSE(OffsetRuns::ViewOf(Made(bad), count)) << bad;
  }
}

// Such as "1: 0-9/3 #0; ": the chunk, the samples, how many of them a chunk has, the description.
std::string RunsFrom(const ChunkRuns& runs, std::uint32_t sample) {
  std::ostringstream text;
  for (ChunkRuns::Walk run = runs.From(sample); !run.IsAtEnd(); run.Next()) {
    text << run->chunk << ": " << run->sample << '-' << run->end << '/' << run->samplesPerChunk
         << " #" << run->description << "; ";
  }
  return text.str();
}

TEST(ChunkRuns, IncludeChunksWithoutSamples) {
  ChunkRuns runs;
  runs.Add(1, 2, 3, 0);
  runs.Add(3, 1, 3, 0);  // continues the run
  runs.Add(7, 1, 4, 1);
  EXPECT_EQ(RunsFrom(runs, 0), "1: 0-9/3 #0; 4: 9-9/0 #1; 7: 9-13/4 #1; ");
  EXPECT_EQ(RunsFrom(runs, 9), "7: 9-13/4 #1; ");
  EXPECT_EQ(runs.Samples(), 13U);
  EXPECT_EQ(runs.Descriptions(), 2U);
}

TEST(ChunkRuns, AreAViewOfRowsInOrder) {
  const Bytes good = Made("1 2 1  4 5 2");
  const ChunkRuns runs = ChunkRuns::ViewOf(good, 5, 16, 2).value();
  EXPECT_EQ(RunsFrom(runs, 0), "0: 0-6/2 #0; 3: 6-16/5 #1; ");
  EXPECT_EQ(runs.Descriptions(), 2U);
  EXPECT_EQ(ChunkRuns::ViewOf(good, 5, 100, 2)->Samples(), 16U);
  EXPECT_FALSE(ChunkRuns::ViewOf(good, 5, 15, 2)) << "more samples than exist";
  EXPECT_FALSE(ChunkRuns::ViewOf(good, 3, 16, 2)) << "chunks that do not exist";
  EXPECT_FALSE(ChunkRuns::ViewOf(good, 5, 16, 1)) << "a description that does not exist";
  for (const char* rows : {"2 2 1  2 5 1", "1 0 1  2 5 1", "0 1 1"}) {
    EXPECT_FALSE(ChunkRuns::ViewOf(Made(rows), 5, 16, 1)) << rows;
  }
}

TEST(ChunkRuns, StayInsideTheTablesWhenTheFileChanges) {
  const Bytes good = Made("1 2 1  4 5 1");
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (const std::uint8_t value : Bytes{0, 1, 9, 0xFF}) {
      Bytes file = good;
      const auto runs = ChunkRuns::ViewOf(file, 5, 16, 1);
      ASSERT_TRUE(runs);
      file[i] = value;
      try {
        for (ChunkRuns::Walk run = runs->From(0); !run.IsAtEnd(); run.Next()) {
          const std::uint32_t samples = run->end - run->sample;
          ASSERT_LE(run->end, 16U);
          ASSERT_EQ(run->description, 0U);
          ASSERT_TRUE(samples == 0 || run->chunk + (samples - 1) / run->samplesPerChunk < 5);
        }
      } catch (const Refused& refused) {
        EXPECT_EQ(refused.code, invalidSampleTable);
      }
    }
  }
}

// --- Atoms with children

// Such as "one 1|two 22|".
std::string Split(const Bytes& bytes, ByteSpan* tail = nullptr) {
  std::string text;
  for (const AtomView& atom : SplitAtoms(bytes, tail)) {
    text += atom.type.Text() + std::string(atom.content.begin(), atom.content.end()) + '|';
  }
  return text;
}

TEST(Framing, ReadsAllThreeKindsOfSizesAndRefusesImpossibleOnes) {
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

TEST(Containers, KeepUnknownAtomsAndTheOrderOfAllAtoms) {
  const Bytes content = Made(
      "what{ 'first' } $ ftyp{ 'qt  ' 1 } 1 'wide' 17/8 '2' stco{ 0 0 } $ what{ } $"
      " ftyp{ 'only one is known' }",
      {kSync, kHandler, kSync});
  const Box box = Decode<Box>(content);
  EXPECT_EQ(box.tables.size(), 3U);
  EXPECT_EQ(Encode(box), Atom("box ", content));
}

TEST(Containers, PutNewChildrenAtTheirPlacesAndCloseGaps) {
  Box box = Decode<Box>(Made("$ $ kept{ }", {kSync, kHandler}));
  box.tables.clear();
  box.type = FileType{FourCC{"new "}, 1, {}};
  EXPECT_EQ(Encode(box), Made("box{ $ kept{ } ftyp{ 'new ' 1 } }", {kHandler}));
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

TEST(UserDataAtoms, EndAtTheFirstInvalidAtomAndGiveMetaAVersion) {
  for (const char* end : {"", "0", "7 'tiny'", "70 'long'", "*8", "0 'junk'"}) {
    EXPECT_EQ(
        Encode(Decode<UserDataAtoms>(Made("meta{ hdlr{ *25 } } name{ 'Ann' } $", {Made(end)}))),
        Made("udta{ meta{ 0 hdlr{ *25 } } name{ 'Ann' } }"))
        << end;
  }
}

TEST(Handler, StoresItsNameInTheFormOfTheFileType) {
  const auto named = [](FourCC componentType, const std::string& name) {
    return Handler{.componentType = componentType, .name = Text(name)};
  };
  const FourCC quickTime{"mhlr"};
  EXPECT_EQ(QuickTimeHandler(named({}, "Ann\0x"s)).name, Text("\3Ann"));
  EXPECT_EQ(QuickTimeHandler(named({}, "")).componentType, quickTime);
  EXPECT_EQ(QuickTimeHandler(named(quickTime, "Ann")).name, Text("Ann"));
  EXPECT_EQ(IsoHandler(named(quickTime, "\3Ann")).name, Text("Ann\0"s));
  EXPECT_EQ(IsoHandler(named(quickTime, "\3\xC4nn")).name, Text("\0"s));
  EXPECT_EQ(NewHandler({}, FourCC{"vide"}, "Ann").name, Text("Ann\0"s));
  EXPECT_EQ(NewHandler(quickTime, FourCC{"vide"}, "Ann").name, Text("\3Ann"));
}

}  // namespace
}  // namespace toolbox
