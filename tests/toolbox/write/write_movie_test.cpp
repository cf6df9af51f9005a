#include "toolbox/write/write_movie.h"

#include "tests/toolbox/movies.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/movie/segments.h"
#include "toolbox/plan/flatten.h"
#include "toolbox/plan/reference.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/references/sources.h"
#include "toolbox/write/storage.h"
#include "toolbox/write/write_file.h"

namespace toolbox {
namespace {

constexpr FileLayout kPlain{.movieFirst = true, .compress = false};

// The content of the first atom of that type; nothing if there is none.
std::optional<Bytes> Content(const Bytes& file, const char* type) {
  const Bytes name = Text(type);
  const auto found = std::search(file.begin(), file.end(), name.begin(), name.end());
  if (found == file.end()) return std::nullopt;
  const auto size = static_cast<std::ptrdiff_t>(FromBigEndian<std::uint32_t>(&*(found - 4)));
  return Bytes(found + 4, found - 4 + size);
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
  const Bytes pictures = TrackAtom({.id = 1, .table = PlainTable(samples, 60, size, 8)});
  const TrackInFile sound{.id = 2, .kind = "soun", .table = PlainTable(samples, 60, size, second)};
  return Made("mdat{ $ } moov{ $ $ $ }",
              {data, MovieHeaderAtom(600, 3), pictures, TrackAtom(sound)});
}

// A file system that shares blocks is rare where tests run, but the layout for it is valid
// anywhere.
TEST_F(WriteMovie, PutsMediaWhereBlocksCanBeShared) {
  constexpr std::uint64_t kUnit = 4096;
  const Bytes data = Noise(1'100'000);
  MovieRecord movie;
  std::vector<std::unique_ptr<MovieRecord>> inputs;
  for (const std::uint32_t before : {80U, 90U}) {
    const Bytes track = TrackAtom({.table = PlainTable(100, 60, 11'000, before + 8)});
    inputs.push_back(Opened(std::to_string(before),
                            Made("free{ $ } mdat{ $ } moov{ $ $ }",
                                 {Zeros(before - 8), data, MovieHeaderAtom(600, 10), track})));
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

// Enough media data for several threads.
TEST_F(WriteMovie, CopiesLongMediaSideBySide) {
  Bytes data(20'000'000);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * i >> 11);
  const auto movie = Opened("in.mov", TwoTracks(10'000, 1000, data));
  const FilePlan plan = PlanFlattened(*movie, {.interleave = true, .maxChunksKept = 0});
  std::uint64_t reported = 0;
  plan.movie->progress = [&](std::uint64_t done, std::uint64_t) { reported = done; };
  Write(plan, {.movieFirst = true, .compress = true});
  EXPECT_GT(reported, data.size() / 2);
  const auto output = ReadOutput();
  EXPECT_TRUE(Join(SampleBytes(*output->tracks[0]), SampleBytes(*output->tracks[1])) == data);
}

// --- Nothing is lost

TEST_F(WriteMovie, KeepsUnknownAtomsByteForByteInTheirPlaces) {
  // A file as this project writes it, with unknown atoms at every level.
  const auto fileWith = [&](const Bytes& endOfUserData) {
    const Bytes user = Made("udta{ name{ 'abc' } $ }", {endOfUserData});
    const std::string dates = " 1 2082845800 ";
    const TrackInFile track{
        .table = Made("????{ 'stbl' } $ cslg{ *24 }", {PlainTable(5, 60, 100, 36)}),
        .edits = Made("tapt{ 'aperture' } edts{ ????{ 'edts' } elst{ 0 1 300 0 0x10000 } }"),
        .others = Made("tref{ chap{ 0 } } ????{ 'trak' } $", {user}),
        .references = Made("0 1 alis{ 1 }"),
        .inMedia = Made("????{ 'mdia' } $", {user}),
        .inInformation = Made("????{ 'minf' }"),
        .header =
            Made("tkhd{ 15" + dates + "1 *4 300 *16 $ 0x1400000 0xF00000 }", {IdentityFields()}),
        .mediaHeader = Made("mdhd{ 0" + dates + "600 300 0x55C4/2 7/2 }")};
    Bytes header = MovieHeaderAtom();
    std::ranges::copy(Made(dates + "600 300"), header.begin() + 12);
    return Made("$ wide{ } mdat{ $ } moov{ $ ????{ 'moov' } $ meta{ 'not understood' } $ }",
                {FileTypeOf({}), Noise(500), header, TrackAtom(track), user});
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

// --- Tables with a value for each sample

// A file of a movie of six samples of ten bytes, with more tables.
Bytes FileWith(const Bytes& tables, const std::string& format = "test") {
  const Bytes plain = PlainTable(6, 100, 10, 8);
  const std::ptrdiff_t old = 16 + 16;  // 'stsd' with an entry that says nothing
  const Bytes table = Join(Made("stsd{ 0 1 " + format + "{ *6 1/2 } }"),
                           Bytes(plain.begin() + old, plain.end()), tables);
  return Join(Atom("mdat", Noise(60)),
              Atom("moov", MovieHeaderAtom(), TrackAtom({.table = table})));
}

TEST_F(WriteMovie, CutsAndJoinsTheTablesOfEachSample) {
  const auto movie =
      Opened("in.mov", FileWith(Made("sdtp{ 0 'abcdef' } stdp{ 0 x000100020003000400050006 }"
                                     " padb{ 0 6 x123456 } stps{ 0 1 3 } stss{ 0 1 1 } cslg{ *24 }"
                                     " subs{ *8 }")));
  const auto expect = [&](const std::map<std::string, std::string>& tables) {
    const Bytes file = Flattened(*movie);
    for (const auto& [type, content] : tables) {
      const std::optional<Bytes> expected =
          content.empty() ? std::nullopt : std::optional(Made(content));
      EXPECT_EQ(Content(file, type.c_str()), expected) << type;
    }
  };
  expect({{"padb", "0 6 x123456"}, {"cslg", "*24"}});
  InsertMovieSegment(*Opened("plain.mov", FileWith({})), *movie, {}, {600}, {600});
  expect({{"sdtp", "0 'abcdef' *6"},
          {"stdp", "0 x000100020003000400050006 *12"},
          {"padb", "0 12 x123456 *3"},
          {"stps", "0 1 3"},
          {"stss", "0 7 1 7 8 9 10 11 12"},
          {"cslg", ""},
          {"subs", ""}});
  // It starts at the partial sync sample and has an odd number of samples.
  movie->tracks[0]->edits.Delete({900}, {300}, movie->tracks[0]->TimeClock());
  movie->tracks[0]->edits.Delete({0}, {200}, movie->tracks[0]->TimeClock());
  expect({{"sdtp", "0 'cdef' *3"}, {"padb", "0 7 x3456 *2"}, {"stps", "0 1 1"}});
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
Bytes Beside() { return Made("saiz{ 0 2/1 6 } saio{ 0 1 20 }"); }

TEST_F(WriteMovie, CopiesAuxiliaryData) {
  const auto movie = Opened("in.mov", FileWith(Beside(), "encv"));
  // This join uses nothing of the other file.
  const auto join = Opened("join.mov", FileWith(Beside()));
  InsertMovieSegment(*Opened("other.mov", FileWith({})), *join, {}, {600}, {0});
  join->tracks[0]->edits.Delete({0}, {600}, join->tracks[0]->TimeClock());
  const Bytes data = Noise(60), beside(data.begin() + 12, data.begin() + 24);
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
  EXPECT_TRUE(Contains(Written(PlanReference(*movie)), Beside())) << "it stays where it is";
}

TEST_F(WriteMovie, RefusesWhatWouldLeaveSamplesEncrypted) {
  const auto secret = Opened("in.mov", FileWith(Beside(), "encv"));
  const auto open = Opened("open.mov", FileWith(Beside()));
  const auto codeOfWriting = [&](const MovieRecord& movie) {
    return CodeOf([&] { Flattened(movie); });
  };
  EXPECT_EQ(CodeOf([&] { AddMovieSelection(*secret, *open); }), featureUnsupported);
  InsertMovieSegment(*open, *secret, {}, {600}, {600});
  EXPECT_EQ(secret->tracks.size(), 2U) << "nothing is joined to an encrypted track";
  EXPECT_EQ(codeOfWriting(*secret), noErr);
  for (MovieRecord* movie : {&*open, &*secret})
    movie->tracks[0]->edits.Delete({0}, {300}, movie->tracks[0]->TimeClock());
  EXPECT_EQ(codeOfWriting(*secret), featureUnsupported);
  EXPECT_EQ(CodeOf([&] { Write(PlanReference(*secret)); }), noErr);
  EXPECT_EQ(Content(Flattened(*open), "saio"), std::nullopt) << "no sample uses it any more";
  const auto torn = Opened("torn.mov", FileWith(Made("saio{ 0 1 20 }"), "encv"));
  EXPECT_EQ(codeOfWriting(*torn), invalidSampleTable);
}

// --- Input files that change, or that are still in use, while a movie is written

TEST_F(WriteMovie, UsesNoFileThatHasChanged) {
  const auto input = folder_ / "in.mov", output = Store("out.mov", Text("old"));
  const std::function<void(const MovieRecord&)> writers[] = {
      [&](const MovieRecord& movie) { WriteSelfContained(movie, {}, output, Existing::kReplace); },
      [&](const MovieRecord& movie) {
        const std::unique_ptr<StorageRecord, void (*)(StorageRecord*)> storage(
            OpenStorage(input, StorageAccess::kUpdate), CloseStorage);
        UpdateStorage(movie, storage.get());
      }};
  for (const auto& write : writers) {
    const auto movie = Opened("in.mov", TwoTracks(3, 10, Zeros(60)));
    Store("in.mov", TwoTracks(3, 10, Zeros(66)));
    EXPECT_EQ(CodeOf([&] { write(*movie); }), fBsyErr);
  }
  // A change while a file is copied is noticed at the end: of the movie file, or of another one.
  for (const auto& changing : {input, Store("media", Zeros(12 << 20))}) {
    const auto movie = Opened("in.mov", TwoTracks(6, 1 << 20, Zeros(12 << 20)));
    if (changing != input) movie->tracks[0]->media->dataReferences = {FileAt(changing)};
    bool isCopying = false;
    movie->progress = [&](std::uint64_t, std::uint64_t) {
      isCopying = true;
      fs::last_write_time(changing, 1'000'000'000);
    };
    EXPECT_EQ(CodeOf([&] { writers[0](*movie); }), fBsyErr);
    EXPECT_TRUE(isCopying);
    EXPECT_EQ(Stored(output), Text("old"));
  }
}

// The second new header may overwrite the tables of the movie that is still open.
TEST_F(WriteMovie, KeepsItsTablesInSeveralUpdates) {
  constexpr std::uint32_t kSamples = 600'000;
  MovieRecord made;
  const auto media = Store("media", {}), path = folder_ / "out.mov";
  made.file = OtherFile{media};
  fs::resize_file(media, std::uint64_t{kSamples} * 100);
  auto rows = PlainRows(kSamples, 10, 0);
  rows->sizes = {};
  for (std::uint32_t i = 0; i < kSamples; ++i) rows->sizes.Add(1 + i % 97);
  TrackRecord& track = AddPlainTrack(made, FourCC{"vide"}, 600, rows);
  track.edits.Append({600}, {0}, 1.0, track.TimeClock());
  Write(PlanReference(made));

  const auto movie = ReadMovieFile(path, References::kResolve);
  StorageRecord* storage = OpenStorage(path, StorageAccess::kUpdate);
  for (std::int16_t layer = 0; layer < 4; ++layer) {
    movie->tracks[0]->header.layer = layer;
    // The tables move towards the start of the file.
    if (layer == 1) movie->tracks[0]->edits.Delete({0}, {6'000'000}, track.TimeClock());
    UpdateStorage(*movie, storage);
    const auto saved = ReadMovieFile(path, References::kResolve);
    ASSERT_EQ(saved->tracks[0]->header.layer, layer);
    std::uint32_t sample = 0;
    ForEachEncodedSize(saved->tracks[0]->media->samples, [&](ByteSpan sizes) {
      Rows<SampleSize>(sizes).ForEach(
          [&](const SampleSize& row) { ASSERT_EQ(row.size, 1 + sample++ % 97); });
    });
    ASSERT_EQ(sample, kSamples);
  }
  CloseStorage(storage);
}

}  // namespace
}  // namespace toolbox
