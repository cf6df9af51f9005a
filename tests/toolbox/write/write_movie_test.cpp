#include "toolbox/write/write_movie.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
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

constexpr FileLayout kPlain{.movieFirst = true, .compress = false};

// Media data in which every two bytes are different.
Bytes Numbered(std::size_t size) {
  Bytes bytes;
  for (std::size_t i = 0; bytes.size() < size; ++i) {
    const std::size_t number = i * 40503 + 7;
    bytes.push_back(static_cast<std::uint8_t>(number >> 8));
    bytes.push_back(static_cast<std::uint8_t>(number));
  }
  return bytes;
}

// Where `part` first occurs.
auto Find(const Bytes& bytes, const Bytes& part) {
  return std::search(bytes.begin(), bytes.end(), part.begin(), part.end());
}

// The content of the first atom of that type; nothing if there is none.
std::optional<Bytes> Content(const Bytes& file, const char* type) {
  const auto found = Find(file, Text(type));
  if (found == file.end()) return std::nullopt;
  const auto size = static_cast<std::ptrdiff_t>(FromBigEndian<std::uint32_t>(&*(found - 4)));
  return Bytes(found + 4, found - 4 + size);
}

std::string TopLevel(const Bytes& file) {
  std::string types;
  const MemorySource source(file);
  TopLevelWalk walk(source);
  while (const auto found = walk.Next()) types += found->type.Text() + " ";
  return types;
}

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

class WriteMovie : public InFolder {
 protected:
  Bytes Flattened(const MovieRecord& movie, FileLayout layout = kPlain) const {
    return Written(PlanFlattened(movie, {}), layout);
  }
  Bytes Written(const FilePlan& plan, FileLayout layout = kPlain) const {
    Write(plan, layout);
    return Stored(folder_ / "out.mov");
  }
  void Write(const FilePlan& plan, FileLayout layout = kPlain) const {
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

// --- Media data

// A movie of pictures and sound, each with `samples` samples of `size` bytes in one chunk.
Bytes TwoTracks(std::uint32_t samples, std::uint32_t size, const Bytes& data) {
  const std::uint32_t second = 8 + samples * size;
  return Join(
      Atom("mdat", data),
      Atom("moov", MovieHeaderAtom(600, 3),
           TrackAtom({.id = 1, .table = PlainTable(samples, 60, size, 8)}),
           TrackAtom({.id = 2, .kind = "soun", .table = PlainTable(samples, 60, size, second)})));
}

TEST_F(WriteMovie, HasEverySampleAtItsOffset) {
  const Bytes data = Numbered(6000), video(data.begin(), data.begin() + 3000);
  const auto movie = Opened("in.mov", TwoTracks(30, 100, data));
  for (const auto& [layout, types] : {std::pair{FileLayout{true, false}, "ftyp moov wide mdat "},
                                      {FileLayout{true, true}, "ftyp moov free wide mdat "},
                                      {FileLayout{false, false}, "ftyp wide mdat moov "},
                                      {FileLayout{false, true}, "ftyp wide mdat moov "}}) {
    const Bytes file = Flattened(*movie, layout);
    EXPECT_EQ(TopLevel(file), types);
    EXPECT_EQ(Content(file, "dcom").has_value(), layout.compress);
    const auto output = ReadOutput();
    ASSERT_EQ(output->tracks.size(), 2U);
    EXPECT_EQ(Join(SampleBytes(*output->tracks[0]), SampleBytes(*output->tracks[1])), data);
    EXPECT_EQ(SampleBytes(*output->tracks[0]), video);
    EXPECT_EQ(output->tracks[0]->edits, movie->tracks[0]->edits);
  }
}

// A file system that shares blocks is rare where tests run, but the layout for it is valid
// anywhere.
TEST_F(WriteMovie, PutsMediaWhereBlocksCanBeShared) {
  constexpr std::uint64_t kUnit = 4096;
  const Bytes data = Numbered(1'100'000);
  MovieRecord movie;
  std::vector<std::unique_ptr<MovieRecord>> inputs;
  for (const std::uint32_t before : {80U, 90U}) {
    const Bytes table = PlainTable(100, 60, 11'000, before + 8);
    inputs.push_back(
        Opened(std::to_string(before),
               Join(Atom("free", Zeros(before - 8)), Atom("mdat", data),
                    Atom("moov", MovieHeaderAtom(600, 10), TrackAtom({.table = table})))));
    InsertMovieSegment(*inputs.back(), movie, {}, inputs.back()->Duration(), movie.Duration());
  }
  for (const bool movieFirst : {true, false}) {
    const FilePlan plan = PlanFlattened(movie, {.maxChunksKept = 100, .unit = kUnit});
    ASSERT_EQ(plan.blocks.size(), 2U);
    Write(plan, {.movieFirst = movieFirst, .compress = movieFirst});
    const auto output = ReadOutput();
    EXPECT_EQ(SampleBytes(*output->tracks[0]), Join(data, data));
    std::vector<std::uint64_t> places;
    ForEachPiece(output->tracks[0]->media->samples, {0, 200},
                 [&](const SamplePiece& piece) { places.push_back(piece.offset % kUnit); });
    EXPECT_EQ(places, (std::vector<std::uint64_t>{88, 98}));
  }
}

// Enough media data for several threads, in large blocks and in chunks that are gathered.
TEST_F(WriteMovie, CopiesLongMediaSideBySide) {
  Bytes data(20'000'000);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * i >> 11);
  const auto movie = Opened("in.mov", TwoTracks(10'000, 1000, data));
  for (const bool interleave : {true, false}) {
    const FilePlan plan =
        PlanFlattened(*movie, {.interleave = interleave, .maxChunksKept = interleave ? 0U : 100U});
    std::uint64_t reported = 0;
    plan.movie->progress = [&](std::uint64_t done, std::uint64_t) { reported = done; };
    Write(plan, {.movieFirst = true, .compress = true});
    EXPECT_GT(reported, data.size() / 2);
    const auto output = ReadOutput();
    EXPECT_TRUE(Join(SampleBytes(*output->tracks[0]), SampleBytes(*output->tracks[1])) == data);
  }
  // A source that was changed is found by whichever thread opens it, and nothing replaces the file.
  const FilePlan plan = PlanFlattened(*movie, {});
  boost::filesystem::resize_file(folder_ / "in.mov", data.size() / 2);
  const auto before = StateOf(folder_ / "out.mov");
  EXPECT_THROW(Write(plan), Refused);
  EXPECT_EQ(StateOf(folder_ / "out.mov"), before);
}

// --- Nothing is lost

TEST_F(WriteMovie, KeepsUnknownAtomsByteForByteInTheirPlaces) {
  const auto strange = [](const char* where) { return Atom("????", Text(where)); };
  // A file as this project writes it, with unknown atoms at every level.
  const auto fileWith = [&](const Bytes& endOfUserData) {
    const Bytes user = Atom("udta", Atom("name", Text("abc")), endOfUserData);
    const Bytes dates = Join(U32(1), U32(2082845800)), lasts = U32(300);
    const TrackInFile track{
        .table = Join(strange("in stbl"), PlainTable(5, 60, 100, 36), Atom("cslg", Zeros(24))),
        .edits = Join(Atom("tapt", Text("aperture")),
                      Atom("edts", strange("in edts"),
                           Atom("elst", U32(0), U32(1), lasts, U32(0), U32(0x10000)))),
        .others = Join(Atom("tref", Atom("chap", U32(0))), strange("in trak"), user),
        .references = Join(U32(0), U32(1), Atom("alis", U32(1))),
        .inMedia = Join(strange("in mdia"), user),
        .inInformation = strange("in minf"),
        .header = Atom("tkhd", U32(0xF), dates, U32(1), Zeros(4), lasts, Zeros(16),
                       IdentityFields(), U32(320 << 16), U32(240 << 16)),
        .mediaHeader = Atom("mdhd", U32(0), dates, U32(600), lasts, U16(0x55C4), U16(7))};
    Bytes header = MovieHeaderAtom();
    std::ranges::copy(Join(dates, U32(600), lasts), header.begin() + 12);
    return Join(FileTypeOf({}), Atom("wide"), Atom("mdat", Numbered(500)),
                Atom("moov", header, strange("in moov"), TrackAtom(track),
                     Atom("meta", Text("not understood")), user));
  };
  const auto movie = Opened("in.mov", fileWith(U32(0)));
  const auto headerOf = [](const Bytes& file) {
    const HeldBytes held = ReadMovieHeader(MemorySource(file));
    return Bytes(held.Span().begin(), held.Span().end());
  };
  setenv("SOURCE_DATE_EPOCH", "1000", 1);
  const Bytes expected = fileWith({});  // four zeros may end user data, and are not written
  EXPECT_EQ(Flattened(*movie, {.movieFirst = false, .compress = false}), expected);
  EXPECT_EQ(headerOf(Flattened(*movie, {false, true})), headerOf(expected));
  EXPECT_EQ(Content(Written(PlanReference(*movie)), "stbl"), Content(expected, "stbl"));
  unsetenv("SOURCE_DATE_EPOCH");
}

TEST_F(WriteMovie, KeepsTheTablesOfMediaWithoutSamples) {
  const Bytes groups = Atom("sgpd", U32(0x01000000), Text("roll"), U32(2), U32(1), U16(0xFFFF));
  const Bytes strange = Join(Atom("????", Text("of nothing")), groups);
  const Bytes table =
      Join(Atom("stsd", U32(0), U32(1), Atom("test", Zeros(6), U16(1))), Atom("stts", Zeros(8)),
           Atom("stsc", Zeros(8)), Atom("stsz", Zeros(12)), Atom("stco", Zeros(8)), strange);
  const auto movie = Opened("in.mov", Atom("moov", MovieHeaderAtom(), TrackAtom({.table = table})));
  for (const Bytes& file : {Flattened(*movie), Written(PlanReference(*movie))}) {
    EXPECT_NE(Find(file, strange), file.end());
  }
}

// --- Tables with a value for each sample

// A file of a movie of six samples of ten bytes, with more tables.
Bytes FileWith(const Bytes& tables, const char* format = "test") {
  const Bytes plain = PlainTable(6, 100, 10, 8);
  const std::ptrdiff_t old = 16 + 16;  // 'stsd' with an entry that says nothing
  const Bytes table = Join(Atom("stsd", U32(0), U32(1), Atom(format, Zeros(6), U16(1))),
                           Bytes(plain.begin() + old, plain.end()), tables);
  return Join(Atom("mdat", Numbered(60)),
              Atom("moov", MovieHeaderAtom(), TrackAtom({.table = table})));
}

TEST_F(WriteMovie, CutsAndJoinsTheTablesOfEachSample) {
  const Bytes each = Join(U16(1), U16(2), U16(3), U16(4), U16(5), U16(6));
  const auto movie = Opened(
      "in.mov",
      FileWith(Join(Atom("sdtp", U32(0), Text("abcdef")), Atom("stdp", U32(0), each),
                    Atom("padb", U32(0), U32(6), U8(0x12), U8(0x34), U8(0x56)),
                    Atom("stps", U32(0), U32(1), U32(3)), Atom("stss", U32(0), U32(1), U32(1)),
                    Atom("cslg", Zeros(24)), Atom("subs", Zeros(8)))));
  const auto plain = Opened("plain.mov", FileWith({}));
  const auto stated = [&](const char* type) { return Content(Flattened(*movie), type); };
  EXPECT_EQ(stated("padb"), Join(U32(0), U32(6), U8(0x12), U8(0x34), U8(0x56)));
  EXPECT_EQ(stated("cslg"), Zeros(24)) << "no sample has changed";

  InsertMovieSegment(*plain, *movie, {}, {600}, {600});
  EXPECT_EQ(stated("sdtp"), Join(U32(0), Text("abcdef"), Zeros(6)));
  EXPECT_EQ(stated("stdp"), Join(U32(0), each, Zeros(12)));
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
    EXPECT_EQ(CodeOf([&] { Write(PlanReference(*claims), {}); }), invalidSampleTable);
  }
}

// Six samples with two bytes of auxiliary information each, which starts at byte 20.
Bytes Beside() {
  return Join(Atom("saiz", U32(0), U8(2), U32(6)), Atom("saio", U32(0), U32(1), U32(20)));
}

TEST_F(WriteMovie, CopiesAuxiliaryData) {
  const auto movie = Opened("in.mov", FileWith(Beside(), "encv"));
  // This join uses nothing of the other file.
  const auto join = Opened("join.mov", FileWith(Beside()));
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
  }
  const Bytes reference = Written(PlanReference(*movie));
  EXPECT_NE(Find(reference, Beside()), reference.end()) << "it stays where it is";
}

TEST_F(WriteMovie, RefusesWhatWouldLeaveSamplesEncrypted) {
  const auto secret = Opened("in.mov", FileWith(Beside(), "encv"));
  const auto open = Opened("open.mov", FileWith(Beside()));
  const auto codeOfWriting = [&](const MovieRecord& movie) {
    return CodeOf([&] { Flattened(movie); });
  };
  EXPECT_EQ(CodeOf([&] { InsertMovieSegment(*secret, *open, {}, {600}, {600}); }),
            featureUnsupported);
  EXPECT_EQ(CodeOf([&] { AddMovieSelection(*secret, *open); }), featureUnsupported);
  InsertMovieSegment(*open, *secret, {}, {600}, {600});
  EXPECT_EQ(secret->tracks.size(), 2U) << "what is encrypted is left alone";
  EXPECT_EQ(codeOfWriting(*secret), noErr);
  for (MovieRecord* movie : {&*open, &*secret})
    movie->tracks[0]->edits.Delete({0}, {300}, movie->tracks[0]->TimeClock());
  EXPECT_EQ(codeOfWriting(*secret), featureUnsupported);
  EXPECT_EQ(CodeOf([&] { Write(PlanReference(*secret)); }), noErr);
  EXPECT_EQ(Content(Flattened(*open), "saio"), std::nullopt) << "nobody needs it";
  const auto torn = Opened("torn.mov", FileWith(Atom("saio", U32(0), U32(1), U32(20)), "encv"));
  EXPECT_EQ(codeOfWriting(*torn), invalidSampleTable);
}

}  // namespace
}  // namespace toolbox
