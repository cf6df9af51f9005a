#include "toolbox/write/write_movie.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <numeric>
#include <optional>

#include "tests/toolbox/bytes.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/movie/segments.h"
#include "toolbox/plan/flatten.h"
#include "toolbox/plan/reference.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/read/top_level.h"
#include "toolbox/write/write_file.h"

namespace toolbox {
namespace {

// Media data in which every two bytes are different.
Bytes Numbered(std::size_t size) {
  Bytes bytes;
  for (std::size_t i = 0; bytes.size() < size; ++i) {
    const Bytes next = U16(static_cast<std::uint16_t>(i * 40503 + 7));
    bytes.insert(bytes.end(), next.begin(), next.end());
  }
  return bytes;
}

// Where `part` first occurs.
auto Find(auto& bytes, const Bytes& part) {
  return std::search(bytes.begin(), bytes.end(), part.begin(), part.end());
}

bool Contains(const Bytes& bytes, const Bytes& part) { return Find(bytes, part) != bytes.end(); }

std::vector<std::string> TopLevel(const Bytes& file) {
  std::vector<std::string> types;
  const MemorySource source(file);
  TopLevelWalk walk(source);
  while (const auto found = walk.Next()) types.push_back(found->type.Text());
  return types;
}

class WriteMovie : public InFolder {
 protected:
  Bytes Flattened(const MovieRecord& movie, FileLayout layout) const {
    return Written(PlanFlattened(movie, {}), layout);
  }
  Bytes Written(const FilePlan& plan, FileLayout layout) const {
    Write(plan, layout);
    return Stored(folder_ / "out.mov");
  }
  void Write(const FilePlan& plan, FileLayout layout) const {
    OutputFile output(folder_ / "out.mov");
    WriteFile(plan, layout, folder_ / "out.mov", output);
    output.Commit();
  }
  std::unique_ptr<MovieRecord> Opened(const std::string& name, const Bytes& file) const {
    return ReadMovieFile(Store(name, file), References::kResolve);
  }
  std::unique_ptr<MovieRecord> ReadOutput() const {
    return ReadMovieFile(folder_ / "out.mov", References::kResolve);
  }
};

// All bytes of the samples of a track, read at the places that its table gives.
Bytes SampleBytes(const TrackRecord& track) {
  Bytes all;
  const MediaRecord& media = *track.media;
  ForEachPiece(media.samples, {0, media.samples.Count()}, [&](const SamplePiece& piece) {
    const auto* other = std::get_if<OtherFile>(&media.ReferenceOf(piece.description));
    Bytes bytes(piece.size);
    FileSource((other != nullptr ? *other : *track.movie->file).path).Read(piece.offset, bytes);
    all.insert(all.end(), bytes.begin(), bytes.end());
  });
  return all;
}

// A file of two tracks of 3 s and 3000 bytes each, with one chunk each.
Bytes TwoTracks() {
  const Bytes data = Atom("mdat", Numbered(6000));
  return Join(data,
              Atom("moov", MovieHeaderAtom(600, 3),
                   TrackAtom({.id = 1, .table = PlainTable(30, 60, 100, 8)}),
                   TrackAtom({.id = 2, .kind = "soun", .table = PlainTable(60, 30, 50, 3008)})));
}

TEST_F(WriteMovie, HasEverySampleAtItsOffset) {
  const auto movie = ReadMovieFile(Store("in.mov", TwoTracks()), References::kResolve);
  const Bytes video = SampleBytes(*movie->tracks[0]), sound = SampleBytes(*movie->tracks[1]);
  ASSERT_EQ(Join(video, sound), Numbered(6000));
  using Types = std::vector<std::string>;
  const std::pair<FileLayout, Types> layouts[] = {
      {{.movieFirst = true, .compress = false}, {"ftyp", "moov", "wide", "mdat"}},
      {{.movieFirst = true, .compress = true}, {"ftyp", "moov", "free", "wide", "mdat"}},
      {{.movieFirst = false, .compress = false}, {"ftyp", "wide", "mdat", "moov"}},
      {{.movieFirst = false, .compress = true}, {"ftyp", "wide", "mdat", "moov"}}};
  for (const auto& [layout, types] : layouts) {
    const Bytes file = Flattened(*movie, layout);
    EXPECT_EQ(TopLevel(file), types);
    const auto output = ReadOutput();
    ASSERT_EQ(output->tracks.size(), 2U);
    EXPECT_EQ(SampleBytes(*output->tracks[0]), video);
    EXPECT_EQ(SampleBytes(*output->tracks[1]), sound);
    EXPECT_EQ(output->tracks[0]->edits, movie->tracks[0]->edits);
    const bool isCompressed = Contains(file, Text("dcom"));
    EXPECT_EQ(isCompressed, layout.compress);
  }
}

// A file system that shares blocks is rare where tests run, but the layout for it is valid
// anywhere.
TEST_F(WriteMovie, PutsMediaWhereBlocksCanBeShared) {
  constexpr std::uint64_t kUnit = 4096;
  MovieRecord movie;
  std::vector<std::unique_ptr<MovieRecord>> inputs;
  for (const std::uint32_t before : {80U, 90U}) {
    const Bytes table = PlainTable(100, 60, 11'000, before + 8);
    inputs.push_back(
        Opened(std::to_string(before),
               Join(Atom("free", Zeros(before - 8)), Atom("mdat", Numbered(1'100'000)),
                    Atom("moov", MovieHeaderAtom(600, 10), TrackAtom({.table = table})))));
    InsertMovieSegment(*inputs.back(), movie, {}, inputs.back()->Duration(), movie.Duration());
  }
  for (const bool movieFirst : {true, false}) {
    const FilePlan plan = PlanFlattened(movie, {.maxChunksKept = 100, .unit = kUnit});
    ASSERT_EQ(plan.blocks.size(), 2U);
    Write(plan, {.movieFirst = movieFirst, .compress = movieFirst});
    const auto output = ReadOutput();
    EXPECT_EQ(SampleBytes(*output->tracks[0]), Join(Numbered(1'100'000), Numbered(1'100'000)));
    std::vector<std::uint64_t> places;
    const SampleTable& samples = output->tracks[0]->media->samples;
    ForEachPiece(samples, {0, samples.Count()},
                 [&](const SamplePiece& piece) { places.push_back(piece.offset % kUnit); });
    EXPECT_EQ(places, (std::vector<std::uint64_t>{88, 98}));
  }
}

// Enough media data for several threads, in large blocks and in chunks that are gathered.
TEST_F(WriteMovie, CopiesLongMediaSideBySide) {
  constexpr std::uint32_t kSamples = 10'000, kSize = 1000;
  constexpr std::uint64_t kStart = 8, kEach = std::uint64_t{kSamples} * kSize;
  Bytes data(2 * kEach);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * i >> 11);
  const Bytes movieAtom =
      Atom("moov", MovieHeaderAtom(600, 100),
           TrackAtom({.id = 1, .table = PlainTable(kSamples, 6, kSize, kStart)}),
           TrackAtom(
               {.id = 2, .kind = "soun", .table = PlainTable(kSamples, 6, kSize, kStart + kEach)}));
  const auto movie = Opened("in.mov", Join(Atom("mdat", data), movieAtom));
  const auto middle = data.begin() + static_cast<std::ptrdiff_t>(kEach);
  const Bytes pictures(data.begin(), middle), sound(middle, data.end());
  for (const bool interleave : {true, false}) {
    const FilePlan plan =
        PlanFlattened(*movie, {.interleave = interleave, .maxChunksKept = interleave ? 0U : 100U});
    std::uint64_t reported = 0;
    plan.movie->progress = [&](std::uint64_t done, std::uint64_t) { reported = done; };
    Write(plan, {.movieFirst = true, .compress = true});
    EXPECT_GT(reported, kEach);
    const auto output = ReadOutput();
    EXPECT_TRUE(SampleBytes(*output->tracks[0]) == pictures);
    EXPECT_TRUE(SampleBytes(*output->tracks[1]) == sound);
  }
  // A source that was changed is found by whichever thread opens it, and nothing replaces the file.
  const FilePlan plan = PlanFlattened(*movie, {});
  boost::filesystem::resize_file(folder_ / "in.mov", data.size() / 2);
  const auto before = StateOf(folder_ / "out.mov");
  EXPECT_THROW(Write(plan, {.movieFirst = true, .compress = true}), Refused);
  EXPECT_EQ(StateOf(folder_ / "out.mov"), before);
}

TEST_F(WriteMovie, BeginsAsAQuickTimeMovie) {
  EXPECT_EQ(FileTypeOf({}), Atom("ftyp", Text("qt  "), U32(0x20050300), Text("qt  ")));
}

TEST_F(WriteMovie, RefersToWhereTheSamplesAre) {
  const auto movie = ReadMovieFile(Store("in.mov", TwoTracks()), References::kResolve);
  const Bytes file = Written(PlanReference(*movie), {.movieFirst = false, .compress = false});
  EXPECT_EQ(TopLevel(file), (std::vector<std::string>{"ftyp", "moov"}));
  const auto output = ReadOutput();
  EXPECT_EQ(output->tracks[0]->media->dataReferences,
            (std::vector<DataReference>{OtherFile{folder_ / "in.mov"}}));
  EXPECT_EQ(Join(SampleBytes(*output->tracks[0]), SampleBytes(*output->tracks[1])), Numbered(6000));
}

// --- Nothing is lost

// A movie header as this project writes it, with unknown atoms at every level.
Bytes FullHeader(std::uint32_t dataStart) {
  const auto strange = [](const char* where) { return Atom("????", Text(where)); };
  const Bytes user = Atom("udta", Atom("name", Text("abc")));
  const TrackInFile track{
      .duration = 1800,
      .table = Join(strange("before the table"), PlainTable(30, 60, 100, dataStart),
                    Atom("cslg", Zeros(24))),
      .edits = Join(Atom("tapt", Text("aperture")),
                    Atom("edts", strange("in edts"),
                         Atom("elst", U32(0), U32(1), U32(1800), U32(0), U32(0x10000)))),
      .others = Join(Atom("tref", Atom("chap", U32(0))), strange("in trak"), user),
      .references = Join(U32(0), U32(1), Atom("alis", U32(1))),
      .inMedia = Join(strange("in mdia"), user),
      .inInformation = strange("in minf")};
  return Join(strange("in moov"), TrackAtom(track), Atom("meta", Text("not understood")), user);
}

// The header without the durations and the date of modification, which the writer sets.
Bytes Normalized(Bytes movie) {
  for (const auto& [type, offsets] :
       {std::pair{"mvhd", std::vector{12, 20}}, {"tkhd", {12}}, {"mdhd", {12, 20}}}) {
    const auto found = Find(movie, Text(type));
    for (const int offset : offsets) std::fill_n(found + offset, 4, std::uint8_t{0});
  }
  return movie;
}

TEST_F(WriteMovie, KeepsUnknownAtomsByteForByteInTheirPlaces) {
  for (const bool compress : {false, true}) {
    const Bytes head = FileTypeOf({});
    const Bytes source = Join(head, Atom("wide"), Atom("mdat", Numbered(3000)),
                              Atom("moov", MovieHeaderAtom(), FullHeader(36)));
    const auto movie = ReadMovieFile(Store("in.mov", source), References::kResolve);
    const Bytes file = Flattened(*movie, {.movieFirst = false, .compress = compress});
    const auto headerOf = [](const Bytes& bytes) {
      const HeldBytes held = ReadMovieHeader(MemorySource(bytes));
      return Bytes(held.Span().begin(), held.Span().end());
    };
    Bytes header = headerOf(file), expected = headerOf(source);
    // The source has one chunk; the output has chunks of half a second.
    const auto table = [](Bytes& bytes, const char* type) {
      const auto at = Find(bytes, Text(type)) - 4;
      const auto size =
          std::accumulate(at, at + 4, std::ptrdiff_t{0},
                          [](std::ptrdiff_t sum, int byte) { return sum << 8 | byte; });
      bytes.erase(at, at + size);
    };
    for (const char* type : {"stsc", "stco"}) table(header, type), table(expected, type);
    const auto sizesOf = [](Bytes& bytes) {
      for (const char* type : {"trak", "mdia", "minf", "stbl"}) {
        std::fill_n(Find(bytes, Text(type)) - 4, 4, std::uint8_t{0});
      }
    };
    sizesOf(header), sizesOf(expected);
    EXPECT_EQ(Normalized(header), Normalized(expected));
  }
}

TEST_F(WriteMovie, KeepsAReferenceMoviesTablesByteForByte) {
  const Bytes source = Join(Atom("moov", MovieHeaderAtom(), FullHeader(36)), Numbered(6000));
  const auto movie = ReadMovieFile(Store("in.mov", source), References::kResolve);
  const Bytes file = Written(PlanReference(*movie), {.movieFirst = false, .compress = false});
  const auto contentOf = [](const Bytes& bytes, const char* type, std::size_t size) {
    const auto at = Find(bytes, Text(type));
    return Bytes(at - 4, at - 4 + static_cast<std::ptrdiff_t>(size));
  };
  const std::size_t size = 8 + FromBigEndian<std::uint32_t>(&*(Find(source, Text("stbl")) - 4));
  EXPECT_EQ(contentOf(file, "stbl", size - 8), contentOf(source, "stbl", size - 8));
}

// --- Tables with a value for each sample

// The content of the first atom of that type; nothing if there is none.
std::optional<Bytes> Content(const Bytes& file, const char* type) {
  const auto found = Find(file, Text(type));
  if (found == file.end()) return std::nullopt;
  const auto size = static_cast<std::ptrdiff_t>(FromBigEndian<std::uint32_t>(&*(found - 4)));
  return Bytes(found + 4, found - 4 + size);
}

// A file of a movie of six samples of ten bytes, with more tables.
Bytes FileWith(const Bytes& tables, const Bytes& description = Atom("test", Zeros(6), U16(1))) {
  const Bytes plain = PlainTable(6, 100, 10, 8);
  const std::ptrdiff_t old = 16 + 16;  // 'stsd' with an entry that says nothing
  const Bytes table = Join(Atom("stsd", U32(0), U32(1), description),
                           Bytes(plain.begin() + old, plain.end()), tables);
  return Join(Atom("mdat", Numbered(60)),
              Atom("moov", MovieHeaderAtom(), TrackAtom({.table = table})));
}

Bytes SixOfEach() {
  return Join(Atom("sdtp", U32(0), Text("abcdef")),
              Atom("stdp", U32(0), U16(1), U16(2), U16(3), U16(4), U16(5), U16(6)),
              Atom("padb", U32(0), U32(6), U8(0x12), U8(0x34), U8(0x56)),
              Atom("stps", U32(0), U32(1), U32(3)), Atom("stss", U32(0), U32(1), U32(1)),
              Atom("cslg", Zeros(24)), Atom("subs", Zeros(8)));
}

TEST_F(WriteMovie, CutsAndJoinsTheTablesOfEachSample) {
  const auto movie = Opened("in.mov", FileWith(SixOfEach()));
  const auto plain = Opened("plain.mov", FileWith({}));
  const auto stated = [&](const char* type) {
    return Content(Flattened(*movie, {.movieFirst = true, .compress = false}), type);
  };
  EXPECT_EQ(stated("padb"), Join(U32(0), U32(6), U8(0x12), U8(0x34), U8(0x56)));
  EXPECT_EQ(stated("cslg"), Zeros(24)) << "no sample has changed";

  InsertMovieSegment(*plain, *movie, {}, {600}, {600});
  EXPECT_EQ(stated("sdtp"), Join(U32(0), Text("abcdef"), Zeros(6)));
  EXPECT_EQ(stated("stdp"),
            Join(U32(0), U16(1), U16(2), U16(3), U16(4), U16(5), U16(6), Zeros(12)));
  EXPECT_EQ(stated("padb"), Join(U32(0), U32(12), U8(0x12), U8(0x34), U8(0x56), Zeros(3)));
  EXPECT_EQ(stated("stps"), Join(U32(0), U32(1), U32(3)));
  EXPECT_EQ(stated("stss"),
            Join(U32(0), U32(7), U32(1), U32(7), U32(8), U32(9), U32(10), U32(11), U32(12)));
  EXPECT_EQ(stated("cslg"), std::nullopt);
  EXPECT_EQ(stated("subs"), std::nullopt);

  // It starts at the partial sync sample and has an odd number of samples.
  movie->tracks[0]->edits.Delete({900}, {300}, movie->tracks[0]->TimeClock());
  movie->tracks[0]->edits.Delete({0}, {200}, movie->tracks[0]->TimeClock());
  EXPECT_EQ(stated("sdtp"), Join(U32(0), Text("cdef"), Zeros(3)));
  EXPECT_EQ(stated("padb"), Join(U32(0), U32(7), U8(0x34), U8(0x56), Zeros(2)));
  EXPECT_EQ(stated("stps"), Join(U32(0), U32(1), U32(1)));
}

TEST_F(WriteMovie, RefusesATableForBillionsOfClaimedSamples) {
  const Bytes header =
      Atom("moov", MovieHeaderAtom(), TrackAtom({.table = PlainTable(4'000'000'000, 1, 1, 8)}));
  for (const Bytes& other :
       {Atom("stss", U32(0), U32(1), U32(1)), Atom("sdtp", U32(0), Zeros(6)), Bytes()}) {
    const auto claims = Opened("claims.mov", header), movie = Opened("in.mov", FileWith(other));
    InsertMovieSegment(*movie, *claims, {}, {600}, claims->Duration());
    const auto write = [&] { Written(PlanReference(*claims), {.movieFirst = true}); };
    EXPECT_EQ(CodeOf(write), invalidSampleTable);
  }
}

TEST_F(WriteMovie, KeepsTheTablesOfMediaWithoutSamples) {
  const Bytes groups = Atom("sgpd", U32(0x01000000), Text("roll"), U32(2), U32(1), U16(0xFFFF));
  const Bytes strange = Join(Atom("????", Text("of nothing")), groups);
  const Bytes table =
      Join(Atom("stsd", U32(0), U32(1), Atom("test", Zeros(6), U16(1))), Atom("stts", Zeros(8)),
           Atom("stsc", Zeros(8)), Atom("stsz", Zeros(12)), Atom("stco", Zeros(8)), strange);
  const auto movie = Opened("in.mov", Atom("moov", MovieHeaderAtom(), TrackAtom({.table = table})));
  const FileLayout layout{.movieFirst = true, .compress = false};
  for (const Bytes& file : {Flattened(*movie, layout), Written(PlanReference(*movie), layout)}) {
    EXPECT_TRUE(Contains(file, strange));
  }
}

// Six samples with two bytes of auxiliary information each, which starts at byte `at`.
Bytes Beside(std::uint32_t at) {
  return Join(Atom("saiz", U32(0), U8(2), U32(6)), Atom("saio", U32(0), U32(1), U32(at)));
}
Bytes Secret() { return Atom("encv", Zeros(6), U16(1)); }

TEST_F(WriteMovie, CopiesAuxiliaryData) {
  const auto movie = Opened("in.mov", FileWith(Beside(20), Secret()));
  // This join uses nothing of the other file.
  const auto join = Opened("join.mov", FileWith(Beside(20)));
  InsertMovieSegment(*Opened("other.mov", FileWith({})), *join, {}, {600}, {0});
  join->tracks[0]->edits.Delete({0}, {600}, join->tracks[0]->TimeClock());
  const Bytes data = Numbered(60), beside(data.begin() + 12, data.begin() + 24);
  for (const bool movieFirst : {false, true}) {
    for (const auto* source : {&*movie, &*join}) {
      const Bytes file = Flattened(*source, {.movieFirst = movieFirst, .compress = false});
      const auto offsets = Content(file, "saio");
      ASSERT_TRUE(offsets && offsets->size() == 16U);
      const auto at = static_cast<std::ptrdiff_t>(FromBigEndian<std::uint64_t>(&(*offsets)[8]));
      EXPECT_EQ(Bytes(file.begin() + at, file.begin() + at + 12), beside);
      EXPECT_EQ(SampleBytes(*ReadOutput()->tracks[0]), data);
    }
    // In a reference movie it stays where it is.
    const Bytes reference = Written(PlanReference(*movie), {.movieFirst = true, .compress = false});
    EXPECT_TRUE(Contains(reference, Beside(20)));
  }
}

TEST_F(WriteMovie, RefusesWhatWouldLeaveSamplesEncrypted) {
  const auto cut = [](MovieRecord& movie) {
    movie.tracks[0]->edits.Delete({0}, {300}, movie.tracks[0]->TimeClock());
  };
  const FileLayout layout{.movieFirst = true, .compress = false};
  const auto secret = Opened("in.mov", FileWith(Beside(20), Secret()));
  const auto open = Opened("open.mov", FileWith(Beside(20)));
  EXPECT_EQ(CodeOf([&] { InsertMovieSegment(*secret, *open, {}, {600}, {600}); }),
            featureUnsupported);
  EXPECT_EQ(CodeOf([&] { AddMovieSelection(*secret, *open); }), featureUnsupported);
  InsertMovieSegment(*open, *secret, {}, {600}, {600});
  EXPECT_EQ(secret->tracks.size(), 2U) << "what is encrypted is left alone";
  EXPECT_EQ(CodeOf([&] { Flattened(*secret, layout); }), noErr);
  cut(*open), cut(*secret);
  EXPECT_EQ(CodeOf([&] { Flattened(*secret, layout); }), featureUnsupported);
  EXPECT_EQ(CodeOf([&] { Written(PlanReference(*secret), layout); }), noErr);
  EXPECT_EQ(Content(Flattened(*open, layout), "saio"), std::nullopt) << "nobody needs it";
  const auto torn = Opened("torn.mov", FileWith(Atom("saio", U32(0), U32(1), U32(20)), Secret()));
  EXPECT_EQ(CodeOf([&] { Flattened(*torn, layout); }), invalidSampleTable);
}

TEST_F(WriteMovie, WritesUserDataWithoutTerminator) {
  const Bytes items = Atom("name", Text("abc"));
  const auto movie =
      ReadMovieFile(Store("in.mov", Atom("moov", MovieHeaderAtom(), Atom("udta", items, U32(0)))),
                    References::kResolve);
  const Bytes file = Flattened(*movie, {.movieFirst = true, .compress = false});
  EXPECT_TRUE(Contains(file, Atom("udta", items)));
}

TEST_F(WriteMovie, HasTheGivenModificationTime) {
  const auto movie = ReadMovieFile(Store("in.mov", TwoTracks()), References::kResolve);
  setenv("SOURCE_DATE_EPOCH", "1000", 1);
  const Bytes file = Flattened(*movie, {.movieFirst = true, .compress = false});
  unsetenv("SOURCE_DATE_EPOCH");
  EXPECT_TRUE(Contains(file, Join(Text("mvhd"), U32(0), U32(1), U32(2082845800), U32(600))));
}

}  // namespace
}  // namespace toolbox
