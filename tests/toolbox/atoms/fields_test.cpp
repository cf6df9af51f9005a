#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <sstream>
#include <string>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/auxiliary_atoms.h"
#include "toolbox/atoms/fragment_atoms.h"
#include "toolbox/atoms/gps_locations.h"
#include "toolbox/atoms/group_atoms.h"
#include "toolbox/atoms/header_atoms.h"
#include "toolbox/atoms/sample_atoms.h"

namespace toolbox {
namespace {

// All fields with their values, in file order.
class FieldLister {
 public:
  void operator()(const char* name, Integer auto value) { Say(name) << '=' << +value; }
  void operator()(const char* name, FourCC value) { Say(name) << "='" << value.Text() << '\''; }
  template <std::size_t N>
  void operator()(const char*, const std::array<std::uint8_t, N>&) {}
  void Version(std::uint32_t flags, bool isWide) {
    if (isWide) text << " version=1";
    if (flags != 0) text << " flags=" << flags;
  }
  void Wide(const char* name, Integer auto value) { (*this)(name, value); }
  void Narrow(const char* name, std::int64_t value) { (*this)(name, value); }
  template <class Row>
  void Table(const char* name, const Rows<Row>& rows) {
    Say(name) << '=' << rows.Count();
    rows.ForEach([this](const Row& row) { Braced([&] { Row::Fields(*this, row); }); });
  }
  template <class Entry>
  void List(const char* name, const std::vector<Entry>& entries) {
    Say(name) << '=' << entries.size();
    for (const Entry& entry : entries) Braced([&] { Entry::Fields(*this, entry); });
  }
  void Atoms(const char* name, const std::vector<Bytes>& atoms) {
    Say(name) << '=' << atoms.size();
    for (const Bytes& atom : atoms) text << " {" << atom.size() << " bytes}";
  }
  void Rest(const char* name, ByteSpan bytes) { Say(name) << '=' << bytes.size() << " bytes"; }

  std::ostringstream text;

 private:
  std::ostream& Say(const char* name) { return text << ' ' << name; }
  template <class Body>
  void Braced(Body&& body) {
    text << " {";
    body();
    text << " }";
  }
};

// One atom as bytes and as values.
struct AtomCase {
  std::string name, type;
  Bytes content;
  std::string printed;
  std::size_t rest = 0;  // bytes at the end that may be fewer
  std::size_t countAt = 0;  // where the count of a table is; 0: no table
  std::function<std::string(ByteSpan)> print;
  std::function<Bytes(ByteSpan)> encodeAgain;
};

void PrintTo(const AtomCase& atom, std::ostream* out) { *out << atom.name; }

struct Ends {
  std::size_t rest = 0, countAt = 0;
};

template <class A>
AtomCase Case(std::string name, Bytes content, std::string printed, Ends ends = {}) {
  const auto print = [](ByteSpan bytes) {
    A atom = Decode<A>(bytes);
    FieldLister lister;
    AtomFields(lister, atom);
    return lister.text.str();
  };
  const auto encodeAgain = [](ByteSpan bytes) { return Encode(Decode<A>(bytes)); };
  return {std::move(name), A::kType.Text(), std::move(content), std::move(printed), ends.rest,
          ends.countAt,    print,           encodeAgain};
}

// The nine numbers of a matrix, all different.
Bytes MatrixBytes() {
  return Join(U32(1), U32(2), U32(3), U32(4), U32(5), U32(6), U32(0xFFFFFFF9), U32(8), U32(9));
}
const std::string kMatrix = " a=1 b=2 u=3 c=4 d=5 v=6 tx=-7 ty=8 w=9";

const std::vector<AtomCase> kCases{
    Case<FileType>("ftyp", Join(Text("qt  "), U32(0x20050300), Text("qt  mp42")),
                   " majorBrand='qt  ' minorVersion=537199360 compatibleBrands=8 bytes",
                   {.rest = 8}),
    Case<MovieHeader>("mvhd",
                      Join(U32(0x00000102), U32(11), U32(12), U32(600), U32(13), U32(0x18000),
                           U16(0x0180), Text("0123456789"), MatrixBytes(), U32(21), U32(22),
                           U32(23), U32(24), U32(25), U32(26), U32(27)),
                      " flags=258 created=11 modified=12 scale=600 duration=13 rate=98304"
                      " volume=384" +
                          kMatrix +
                          " previewTime=21 previewDuration=22 posterTime=23 selectionTime=24"
                          " selectionDuration=25 currentTime=26 nextTrackId=27"),
    Case<MovieHeader>("mvhd_wide",
                      Join(U32(0x01000000), U64(0x100000001), U64(12), U32(600), U64(0x123456789A),
                           U32(0x10000), U16(0x0100), Zeros(10), MatrixBytes(), Zeros(24), U32(27)),
                      " version=1 created=4294967297 modified=12 scale=600 duration=78187493530"
                      " rate=65536 volume=256" +
                          kMatrix +
                          " previewTime=0 previewDuration=0 posterTime=0 selectionTime=0"
                          " selectionDuration=0 currentTime=0 nextTrackId=27"),
    Case<TrackHeader>("tkhd",
                      Join(U32(0x0000000F), U32(11), U32(12), U32(3), Text("res1"), U32(1800),
                           Text("reserved"), U16(0xFFFF), U16(2), U16(0x0100), Text("rs"),
                           MatrixBytes(), U32(0x01400000), U32(0x00F08000)),
                      " flags=15 created=11 modified=12 id=3 duration=1800 layer=-1"
                      " alternateGroup=2 volume=256" +
                          kMatrix + " width=20971520 height=15761408"),
    Case<TrackHeader>(
        "tkhd_wide",
        Join(U32(0x01000001), U64(11), U64(12), U32(3), Zeros(4), U64(0x100000000), Zeros(8),
             U16(0), U16(0), U16(0), Zeros(2), MatrixBytes(), U32(1), U32(2)),
        " version=1 flags=1 created=11 modified=12 id=3 duration=4294967296 layer=0"
        " alternateGroup=0 volume=0" +
            kMatrix + " width=1 height=2"),
    Case<EditEntries>("elst",
                      Join(U32(0), U32(2), U32(1200), U32(0xFFFFFFFF), U32(0x10000),
                           U32(0xFFFFFFFE), U32(0x7FFFFFFF), U32(0xAAAB)),
                      " entries=2 { duration=1200 mediaTime=-1 rate=65536 }"
                      " { duration=4294967294 mediaTime=2147483647 rate=43691 }",
                      {.countAt = 4}),
    Case<EditEntries>("elst_wide",
                      Join(U32(0x01000000), U32(2), U64(5), U64(0xFFFFFFFFFFFFFFFF), U32(0x10000),
                           U64(6), U64(0x80000000), U32(0x20000)),
                      " version=1 entries=2 { duration=5 mediaTime=-1 rate=65536 }"
                      " { duration=6 mediaTime=2147483648 rate=131072 }",
                      {.countAt = 4}),
    Case<MediaHeader>(
        "mdhd", Join(U32(0), U32(11), U32(12), U32(44100), U32(0xFFFFFFFF), U16(0x55C4), U16(7)),
        " created=11 modified=12 scale=44100 duration=4294967295 language=21956"
        " quality=7"),
    Case<MediaHeader>(
        "mdhd_wide",
        Join(U32(0x01000000), U64(11), U64(0x200000000), U32(90000), U64(14), U16(0), U16(0)),
        " version=1 created=11 modified=8589934592 scale=90000 duration=14"
        " language=0 quality=0"),
    Case<Handler>("hdlr", Join(U32(0), Text("mhlrvideappl"), U32(1), U32(2), U8(3), Text("abc")),
                  " version=0 componentType='mhlr' subtype='vide' manufacturer='appl'"
                  " componentFlags=1 componentFlagsMask=2 name=4 bytes",
                  {.rest = 4}),
    Case<DataReferences>(
        "dref",
        Join(U32(0), U32(2), Atom("alis", U32(1)), Atom("url ", U32(0), Text("a.mov"), U8(0))),
        " version=0 entries=2 {12 bytes} {18 bytes}", {.countAt = 4}),
    Case<SampleDescriptions>("stsd",
                             Join(U32(0), U32(2), Atom("avc1", Zeros(6), U16(1), Text("more")),
                                  Atom("mp4v", Zeros(6), U16(2))),
                             " version=0 entries=2 {20 bytes} {16 bytes}", {.countAt = 4}),
    Case<TimeToSample>("stts", Join(U32(0), U32(2), U32(14), U32(10), U32(1), U32(0x80000005)),
                       " version=0 rows=2 { count=14 delta=10 } { count=1 delta=2147483653 }",
                       {.countAt = 4}),
    Case<CompositionOffsets>("ctts", Join(U32(0), U32(2), U32(3), U32(20), U32(4), U32(0xFFFFFFF6)),
                             " version=0 rows=2 { count=3 offset=20 } { count=4 offset=-10 }",
                             {.countAt = 4}),
    Case<CompositionOffsets>("ctts_signed", Join(U32(0x01000000), U32(1), U32(4), U32(0xFFFFFFFF)),
                             " version=16777216 rows=1 { count=4 offset=-1 }", {.countAt = 4}),
    Case<SyncSamples>("stss", Join(U32(0), U32(5), U32(1), U32(13), U32(25), U32(37), U32(256)),
                      " version=0 rows=5 { number=1 } { number=13 } { number=25 } { number=37 }"
                      " { number=256 }",
                      {.countAt = 4}),
    Case<PartialSyncSamples>("stps", Join(U32(0), U32(1), U32(258)),
                             " version=0 rows=1 { number=258 }", {.countAt = 4}),
    Case<SampleToChunk>("stsc",
                        Join(U32(0), U32(2), U32(1), U32(5), U32(1), U32(9), U32(3), U32(2)),
                        " version=0 rows=2 { firstChunk=1 samplesPerChunk=5 description=1 }"
                        " { firstChunk=9 samplesPerChunk=3 description=2 }",
                        {.countAt = 4}),
    Case<ConstantSampleSize>("stsz_constant", Join(U32(0), U32(4), U32(159000000)),
                             " version=0 size=4 count=159000000"),
    Case<SampleSizes>("stsz", Join(U32(0), U32(0), U32(2), U32(1000), U32(0x01020304)),
                      " version=0 constant=0 rows=2 { size=1000 } { size=16909060 }",
                      {.countAt = 8}),
    Case<CompactSampleSizes>("stz2", Join(U32(0), U32(4), U32(3), U8(0x12), U8(0x30)),
                             " version=0 fieldBits=4 count=3 fields=2 bytes", {.rest = 2}),
    Case<ChunkOffsets>("stco", Join(U32(0), U32(2), U32(48), U32(0xFFFFFFFF)),
                       " version=0 rows=2 { offset=48 } { offset=4294967295 }", {.countAt = 4}),
    Case<WideChunkOffsets>("co64", Join(U32(0), U32(1), U64(0x0102030405060708)),
                           " version=0 rows=1 { offset=72623859790382856 }", {.countAt = 4}),
    Case<DegradationPriorities>("stdp", Join(U32(0), U16(1), U16(0x203)),
                                " version=0 samples=4 bytes", {.rest = 4}),
    Case<PaddingBits>("padb", Join(U32(0), U32(3), U8(0x35), U8(0x70)),
                      " version=0 count=3 samples=2 bytes", {.rest = 2}),
    Case<SampleDependencies>("sdtp", Join(U32(0), U8(0x20), U8(0x18)), " version=0 samples=2 bytes",
                             {.rest = 2}),
    Case<SampleToGroup>("sbgp", Join(U32(0), Text("roll"), U32(1), U32(7), U32(1)),
                        " version=0 grouping='roll' rows=1 { count=7 group=1 }", {.countAt = 8}),
    Case<SampleToGroup>("sbgp_parameter",
                        Join(U32(0x01000000), Text("rap "), U32(9), U32(1), U32(7), U32(0)),
                        " version=16777216 grouping='rap ' parameter=9 rows=1"
                        " { count=7 group=0 }",
                        {.countAt = 12}),
    Case<SampleGroupDescriptions>("sgpd",
                                  Join(U32(0x01000000), Text("roll"), U32(2), U32(1), U16(0xFFFE)),
                                  " version=16777216 grouping='roll' rest=10 bytes", {.rest = 10}),
    Case<CompactSampleToGroup>("csgp", Join(U32(0x40), Text("rap "), U32(9), U32(1), U8(0x12)),
                               " version=64 grouping='rap ' parameter=9 patterns=1 packed=1 bytes",
                               {.rest = 1}),
    Case<AuxiliarySizes>("saiz", Join(U32(1), Text("cenc"), U32(3), U8(0), U32(2), U8(8), U8(16)),
                         " version=1 type='cenc' parameter=3 constant=0 count=2 sizes=2 bytes",
                         {.rest = 2}),
    Case<AuxiliaryOffsets>("saio", Join(U32(0x01000000), U32(1), U64(0x100000000)),
                           " version=16777216 count=1 table=8 bytes", {.rest = 8}),
    Case<GpsLocations>("gps", Join(U64(0x0000010100000001), U32(0x9000), U32(0x4000)),
                       " head=1103806595073 table=8 bytes", {.rest = 8}),
    Case<TrackDefaults>("trex", Join(U32(0), U32(3), U32(1), U32(1024), U32(4), U32(0x10000)),
                        " version=0 track=3 description=1 duration=1024 size=4 sampleFlags=65536"),
    Case<TrackFragmentHeader>("tfhd", Join(U32(0x20000), U32(3)), " version=131072 track=3"),
    Case<TrackFragmentHeader>(
        "tfhd_whole",
        Join(U32(0x3B), U32(3), U64(0x100000000), U32(2), U32(1024), U32(4), U32(0x10000)),
        " version=59 track=3 baseDataOffset=4294967296 description=2 duration=1024 size=4"
        " sampleFlags=65536"),
    Case<FragmentDecodeTime>("tfdt", Join(U32(0x01000000), U64(0x100000000)),
                             " version=1 time=4294967296"),
    Case<TrackRun>("trun", Join(U32(0x705), U32(1), U32(0xFFFFFFFC), U32(7), Zeros(12)),
                   " version=1797 count=1 dataOffset=-4 firstSampleFlags=7 rows=12 bytes",
                   {.rest = 12}),
};

class EveryAtom : public testing::TestWithParam<AtomCase> {};

INSTANTIATE_TEST_SUITE_P(Fields, EveryAtom, testing::ValuesIn(kCases),
                         [](const auto& named) { return named.param.name; });

TEST_P(EveryAtom, MeansTheSameInBytesAndInValues) {
  const AtomCase& atom = GetParam();
  EXPECT_EQ(atom.print(atom.content), atom.printed);
  EXPECT_EQ(atom.encodeAgain(atom.content), Atom(atom.type, atom.content));
}

TEST_P(EveryAtom, RefusesEveryTruncation) {
  const AtomCase& atom = GetParam();
  for (std::size_t size = 0; size < atom.content.size() - atom.rest; ++size) {
    try {
      atom.encodeAgain(ByteSpan(atom.content).first(size));
      ADD_FAILURE() << size << " bytes are taken for the whole atom";
    } catch (const Malformed& fault) {
      EXPECT_EQ(fault.path, "/" + atom.type);
    }
  }
}

// Such a count must not be used to allocate memory.
TEST_P(EveryAtom, BelievesNoCountBeyondItsBytes) {
  const AtomCase& atom = GetParam();
  if (atom.countAt == 0) return;
  for (const std::uint8_t highest : {std::uint8_t{0x7F}, std::uint8_t{0xFF}}) {
    Bytes content = atom.content;
    std::fill_n(content.begin() + static_cast<std::ptrdiff_t>(atom.countAt), 4, highest);
    EXPECT_THROW(atom.encodeAgain(content), Malformed);
  }
}

TEST(Fields, RefuseAnUnknownVersionAndImpossibleEntries) {
  EXPECT_THROW(Decode<MediaHeader>(Join(U32(0x02000000), Zeros(60))), Malformed);
  EXPECT_THROW(Decode<SampleDescriptions>(Join(U32(0), U32(1), U32(7), Zeros(12))), Malformed);
}

TEST(Fields, StateWhatDoesNotFitIn32BitsInVersion1) {
  MediaHeader header;
  header.duration = UINT32_MAX;
  EXPECT_EQ(Encode(header).size(), 32U);
  header.duration += 1;
  EXPECT_EQ(Encode(header), Atom("mdhd", U32(0x01000000), U64(0), U64(0), U32(600),
                                 U64(0x100000000), U16(0), U16(0)));
}

// A table that states `stated` rows and writes `made`.
CompositionOffsets Offsets(std::uint32_t stated, std::uint32_t made) {
  using Row = CompositionOffsets::Row;
  return {0, Rows<Row>(stated, [made](RowBatches<Row>& rows) {
            for (std::uint32_t i = 0; i < made; ++i) rows({i, -static_cast<std::int32_t>(i)});
          })};
}

TEST(Fields, WriteEveryRowInOnePieceOrInBlocks) {
  for (const std::uint32_t count : {0U, 1U, 255U, 256U, 257U, 1000U}) {
    Bytes content = Join(U32(0), U32(count));
    for (std::uint32_t i = 0; i < count; ++i) content = Join(content, U32(i), U32(0 - i));
    const CompositionOffsets table = Offsets(count, count);
    const Bytes whole = Join(Zeros(5000), Atom("ctts", content));
    const auto put = [&](auto& io) {
      io.Append(Zeros(5000));  // more than a block
      PutAtom(io, table);
    };
    EXPECT_EQ(Encoded(put), whole);
    FieldSizer sizer;
    put(sizer);
    Bytes block(4096), joined;
    FieldWriter writer(sizer.Found(), block, [&](ByteSpan bytes) {
      EXPECT_LE(bytes.size(), block.size());
      joined.insert(joined.end(), bytes.begin(), bytes.end());
    });
    put(writer);
    writer.Flush();
    EXPECT_EQ(joined, whole);
  }
}

TEST(Fields, AreNotWrittenOtherwiseThanMeasured) {
  EXPECT_THROW(Encode(Offsets(300, 299)), Malformed);
  EXPECT_THROW(Encode(Offsets(300, 301)), Malformed);
}

TEST(Fields, ReadAndWriteTheEndsOfEveryWidth) {
  const auto roundTrip = []<class T>(T value) {
    std::uint8_t bytes[sizeof(T)];
    ToBigEndian(value, bytes);
    return FromBigEndian<T>(bytes) == value;
  };
  EXPECT_TRUE(roundTrip(std::numeric_limits<std::int16_t>::min()));
  EXPECT_TRUE(roundTrip(std::numeric_limits<std::int64_t>::min()));
  EXPECT_TRUE(roundTrip(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(FourCC(0xA96E616D).Text(), "\\xa9nam");
}

}  // namespace
}  // namespace toolbox
