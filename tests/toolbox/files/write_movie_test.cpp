#include "toolbox/files/write_movie.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <numeric>

#include "tests/toolbox/bytes.h"
#include "toolbox/files/read_movie.h"
#include "toolbox/files/top_level.h"
#include "toolbox/files/write_file.h"

namespace toolbox {
namespace {

// Media data in which every two bytes tell their place.
Bytes Numbered(std::size_t size) {
  Bytes bytes;
  for (std::size_t i = 0; bytes.size() < size; ++i) {
    const Bytes next = U16(static_cast<std::uint16_t>(i * 40503 + 7));
    bytes.insert(bytes.end(), next.begin(), next.end());
  }
  return bytes;
}

// Where `part` stands first.
auto Find(auto& bytes, const Bytes& part) {
  return std::search(bytes.begin(), bytes.end(), part.begin(), part.end());
}

bool Contains(const Bytes& bytes, const Bytes& part) { return Find(bytes, part) != bytes.end(); }

std::vector<std::string> TopLevel(const Bytes& file) {
  std::vector<std::string> types;
  for (const TopLevelAtom& found : TopLevelAtoms(MemorySource(file)).atoms) {
    types.push_back(found.atom.type.Text());
  }
  return types;
}

class WriteMovie : public InFolder {
 protected:
  Bytes Flattened(const MovieRecord& movie, FileLayout layout) const {
    return Written(PlanFlattened(movie, {}), layout);
  }
  Bytes Written(const FilePlan& plan, FileLayout layout) const {
    OutputFile output(folder_ / "out.mov");
    WriteFile(plan, layout, folder_ / "out.mov", output);
    output.Commit();
    return Stored(folder_ / "out.mov");
  }
  std::unique_ptr<MovieRecord> ReadOutput() const {
    return ReadMovieFile(folder_ / "out.mov", References::kResolve);
  }
};

// All bytes of the samples of a track, read where its table says they lie.
Bytes SampleBytes(const TrackRecord& track) {
  Bytes all;
  const MediaRecord& media = *track.media;
  media.samples.ForEachPiece(0, media.samples.Count(), [&](const SamplePiece& piece) {
    const auto* other = std::get_if<OtherFile>(&media.ReferenceOf(piece.description));
    Bytes bytes(piece.size);
    FileSource((other != nullptr ? *other : *track.movie->file).path).Read(piece.offset, bytes);
    all.insert(all.end(), bytes.begin(), bytes.end());
  });
  return all;
}

// A file of two tracks of 3 s and 3000 bytes each, one chunk behind the other.
Bytes TwoTracks() {
  const Bytes data = Atom("mdat", Numbered(6000));
  return Join(data,
              Atom("moov", MovieHeaderAtom(600, 3),
                   TrackAtom({.id = 1, .table = PlainTable(30, 60, 100, 8)}),
                   TrackAtom({.id = 2, .kind = "soun", .table = PlainTable(60, 30, 50, 3008)})));
}

TEST_F(WriteMovie, PutsTheBytesOfEverySampleWhereItSaysTheyAre) {
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

TEST_F(WriteMovie, BeginsAsAQuickTimeMovie) {
  EXPECT_EQ(QuickTimeFileType(), Atom("ftyp", Text("qt  "), U32(0x20050300), Text("qt  ")));
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

// A movie header with atoms nobody knows at every level, as this project writes it.
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

// Durations and the time of the change are set in writing.
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
    const Bytes head = QuickTimeFileType();
    const Bytes source = Join(head, Atom("wide"), Atom("mdat", Numbered(3000)),
                              Atom("moov", MovieHeaderAtom(), FullHeader(36)));
    const auto movie = ReadMovieFile(Store("in.mov", source), References::kResolve);
    const Bytes file = Flattened(*movie, {.movieFirst = false, .compress = compress});
    Bytes header = ReadMovieHeader(MemorySource(file));
    Bytes expected = ReadMovieHeader(MemorySource(source));
    // Half a second a chunk, where the source has one chunk.
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

TEST_F(WriteMovie, WritesUserDataWithoutTerminator) {
  const Bytes items = Atom("name", Text("abc"));
  const auto movie =
      ReadMovieFile(Store("in.mov", Atom("moov", MovieHeaderAtom(), Atom("udta", items, U32(0)))),
                    References::kResolve);
  const Bytes file = Flattened(*movie, {.movieFirst = true, .compress = false});
  EXPECT_TRUE(Contains(file, Atom("udta", items)));
}

TEST_F(WriteMovie, StatesTheGivenTimeAsThatOfTheChange) {
  const auto movie = ReadMovieFile(Store("in.mov", TwoTracks()), References::kResolve);
  setenv("SOURCE_DATE_EPOCH", "1000", 1);
  const Bytes file = Flattened(*movie, {.movieFirst = true, .compress = false});
  unsetenv("SOURCE_DATE_EPOCH");
  EXPECT_TRUE(Contains(file, Join(Text("mvhd"), U32(0), U32(1), U32(2082845800), U32(600))));
}

}  // namespace
}  // namespace toolbox
