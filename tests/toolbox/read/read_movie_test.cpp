#include "toolbox/read/read_movie.h"

#include <fcntl.h>

#include "tests/toolbox/movies.h"
#include "toolbox/atoms/compressed_movie.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/movie/segments.h"
#include "toolbox/plan/reference.h"
#include "toolbox/read/file_atoms.h"
#include "toolbox/read/read_adts.h"
#include "toolbox/write/update_file.h"
#include "toolbox/write/write_file.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {
namespace {

using namespace std::string_literals;

Bytes Compressed(const Bytes& movie) {
  MovieDeflater deflater;
  deflater.Append(movie);
  return deflater.Finish().value();
}

// A table of samples whose tables are all given but for their description.
Bytes Table(const std::string& tables) { return Made("stsd{ 0 1 test{ *6 1/2 } } " + tables); }

class ReadMovie : public InFolder {
 protected:
  std::unique_ptr<MovieRecord> Read(const Bytes& file, References references = References::kLeave) {
    return ReadMovieFile(Store("in.mov", file), references);
  }
  // A movie with that track only.
  std::unique_ptr<MovieRecord> ReadTrack(const TrackInFile& track) {
    return Read(Atom("moov", MovieHeaderAtom(), TrackAtom(track)));
  }
  std::string Samples(const Bytes& table) {
    return Told(ReadTrack({.table = table})->tracks[0]->media->samples);
  }
  OSErr CodeOfReading(const Bytes& file) {
    return CodeOf([&] { Read(file, References::kResolve); });
  }
};

const Bytes kTable = PlainTable(6, 300, 10, 40), kTrack = TrackAtom({.table = kTable});
const Bytes kMovie = Atom("moov", MovieHeaderAtom(), kTrack);

TEST_F(ReadMovie, ConnectsItsTracksAndKnowsItsFile) {
  const auto movie =
      Read(Made("moov{ $ $ $ }", {MovieHeaderAtom(), kTrack,
                                  TrackAtom({.id = 7, .others = Made("tref{ chap{ 1 99 } }")})}));
  ASSERT_EQ(movie->tracks.size(), 2U);
  EXPECT_EQ(movie->header.nextTrackId, 8U) << "the file states 2";
  EXPECT_EQ(movie->file, OtherFile{folder_ / "in.mov"});
  EXPECT_EQ(movie->tracks[1]->references.at(0).targets,
            (std::vector{movie->tracks[0].get(), static_cast<TrackRecord*>(nullptr)}));
}

TEST_F(ReadMovie, FindsTheHeaderAtAnyPlace) {
  const Bytes data = Made("mdat{ *60 }"), toTheEnd(kMovie.begin() + 4, kMovie.end());
  for (const Bytes& file :
       {kMovie, Made("ftyp{ 'qt  ' 0 } $ mdat{ }", {kMovie}), Join(data, data, kMovie),
        Made("$ 0 'mdat' *60", {kMovie}), Join(data, U32(0), toTheEnd),
        Made("$ 1 'moov' $ $ $", {data, U64(kMovie.size() + 8), MovieHeaderAtom(), kTrack}),
        Join(Made("1 'mdat' 76/8 *60"), kMovie, Text("junk")), Compressed(kMovie),
        StoreMovie(kMovie), Made("$ moov{ 'another' }", {kMovie})}) {
    const auto movie = Read(file);
    ASSERT_EQ(movie->tracks.size(), 1U);
    EXPECT_EQ(Told(movie->tracks[0]->media->samples).substr(0, 23), "40+10:300 50+10:300 60+");
  }
}

TEST_F(ReadMovie, RefusesFilesWithTheCodeOfTheirFault) {
  Bytes damaged = Compressed(kMovie);
  damaged[damaged.size() / 2] ^= 0x55;
  const std::pair<Bytes, OSErr> files[] = {
      {Text("just some text that is no movie"), noMovieFound},
      {Bytes(kMovie.begin(), kMovie.end() - 1), badPublicMovieAtom},
      {Atom("moov", kTrack), badPublicMovieAtom},
      {Atom("moov", MovieHeaderAtom(0)), badPublicMovieAtom},
      {damaged, badPublicMovieAtom},
      {Made("moov{ cmov{ dcom{ 'zlib' } cmvd{ 100 'nonsense' } } }"), badPublicMovieAtom},
      {Made("moov{ cmov{ dcom{ 'nope' } cmvd{ 100 'nonsense' } } }"), cantFindHandler},
  };
  for (const auto& [file, code] : files) EXPECT_EQ(CodeOfReading(file), code) << file.size();
}

TEST_F(ReadMovie, RequiresTheMediaThatItUses) {
  for (const auto& [table, code] : {std::pair(kTable, couldNotResolveDataRef), {{}, noErr}}) {
    const TrackInFile track{.table = table, .references = Made("0 1 url{ 0 'http://host/a.mov' }")};
    EXPECT_EQ(CodeOfReading(Atom("moov", MovieHeaderAtom(), TrackAtom(track))), code);
  }
}

TEST_F(ReadMovie, TakesEditsAsTheyAreUnlessTheyAreImpossible) {
  for (const auto& [entries, expected] :
       {std::pair("0 3  100 -1 0x10000  200 50 0x10000  300 0 0x8000", "gap+100 50+200 0+300x0.5"),
        {"0x01000000 1  0x100000000/8 50/8 0x10000", "50+4294967296"},
        {"0 1  0 300 0x10000", "300+1500"},  // without a duration: the rest
        {"0 1  100 -2 0x10000", "0+1800"},
        {"0 1  100 0 0xFFFF0000", "0+1800"},
        {"0x01000000 2  0x1FFFFFFFFFFFFFFF/8 0/8 0x10000  1/8 9/8 0x10000", "0+1800"},
        {"0x01000000 1  -1/8 0/8 0x10000", "0+1800"}}) {
    const Bytes list = Made("edts{ elst{ $ } }", {Made(entries)});
    EXPECT_EQ(Told(*ReadTrack({.table = kTable, .edits = list})), expected);
  }
  // Without an edit list, the stated duration is used if it is within a unit of that of the media.
  const std::pair<std::uint32_t, const char*> durations[] = {
      {1078, "0+1078"}, {1080, "0+1080"}, {1077, "0+1079"}, {1081, "0+1079"}};
  for (const auto& [stated, expected] : durations) {
    EXPECT_EQ(Told(*ReadTrack({.scale = 1001, .duration = stated, .table = kTable})), expected);
  }
  EXPECT_EQ(Told(*ReadTrack({.duration = 600})), "");
}

TEST_F(ReadMovie, ReadsEveryFormOfSizesAndOffsetsAndAdjustsShortTables) {
  const std::string runs = "stts{ 0 1 3 10 } stsc{ 0 2  1 2 1  2 1 1 } ",
                    narrow = runs + "stco{ 0 2 100 50 } ",
                    few = "stts{ 0 1 2 10 } ctts{ 0 1 1 -2 } stss{ 0 4 3 0 1 77 } stsz{ 0 4 5 }",
                    small = "100+5:10 105+6:10 50+7:10";
  for (const auto& [tables, expected] : {std::pair(narrow + "stsz{ 0 0 3 5 6 7 }", small),
                                         {narrow + "stz2{ 0 4 3 x5670 }", small},
                                         {narrow + "stz2{ 0 8 3 x050607 }", small},
                                         {narrow + "stz2{ 0 16 3 5/2 6/2 7/2 }", small},
                                         {runs + "stsz{ 0 9 3 } co64{ 0 2 0x100000000/8 50/8 }",
                                          "4294967296+9:10 4294967305+9:10 50+9:10"},
                                         {few + " stco{ 0 2 0 50 } stsc{ 0 1 1 3 1 }",
                                          "0+4:10^-2 4+4:10~ 8+4:10 50+4:10~ 54+4:10~"}}) {
    EXPECT_EQ(Samples(Table(tables)), expected) << tables;
  }
  const Bytes table = Table(few + " stco{ 0 2 0 50 } stsc{ 0 2 1 3 1 2 1 1 }");
  EXPECT_EQ(LocatedCount(ReadTrack({.table = table})->tracks[0]->media->samples), 4U);

  // Missing values of samples are 0, but not for billions of samples that a small file claims.
  for (const auto& [samples, values] : {std::pair(6U, 3U), std::pair(4'000'000'000U, 0U)}) {
    const auto movie =
        ReadTrack({.table = Join(PlainTable(samples, 0, 4, 8), Made("sdtp{ 0 'abc' }"))});
    EXPECT_EQ(movie->tracks[0]->media->samples.WholeRows()->dependencies.size(), values);
  }
}

TEST_F(ReadMovie, RefusesTablesThatContradictThemselves) {
  const std::string stco = "stco{ 0 2 0 9 } ";
  EXPECT_NO_THROW(Samples(Table("stsz{ 0 4 5 } " + stco + "stsc{ 0 1 1 3 1 }")));
  for (const std::string& tables :
       {stco + "stsc{ 0 1 0 3 1 }", stco + "stsc{ 0 2 1 3 1 1 2 1 }", stco + "stsc{ 0 1 1 3 2 }",
        stco + "stsc{ 0 1 1 3 0 }", "co64{ 0 1 0x8000000000000000/8 }"s}) {
    EXPECT_EQ(CodeOf([&] { Samples(Table("stsz{ 0 4 5 } " + tables)); }), badPublicMovieAtom)
        << tables;
  }
}

TEST_F(ReadMovie, KnowsThePacketsAndFramesOfSound) {
  const std::string plain = "sowt{ *6 1/2 *8 2/2 16/2 *4 44100/2 0/2 }",
                    packed = "ima4{ *6 1/2 1/2 *6 2/2 16/2 0 44100/2 0/2 64 34 68 2 }";
  for (const auto& [description, count, delta, size, packet, bytes] :
       {std::tuple(packed, 640U, 1U, 1U, 64U, 680U),
        {plain, 6U, 1U, 1U, 1U, 24U},  // the stated size does not count
        {plain, 6U, 1U, 400U, 1U, 24U},
        {plain, 6U, 100U, 400U, 1U, 2400U}}) {  // samples of 100 frames
    Bytes table = PlainTable(count, delta, size, 8);
    table.erase(table.begin(), table.begin() + 32);  // 'stsd' and its entry
    table = Made("stsd{ 0 1 $ } $", {Made(description), table});
    const auto movie = ReadTrack({.kind = "soun", .table = table});
    const SampleTable& samples = movie->tracks[0]->media->samples;
    EXPECT_EQ(PacketLength(samples, 0), packet);
    EXPECT_EQ(SizeOf(samples, 0, count, 0), bytes);
  }
}

// --- Atoms of a file that are no part of its movie

class FileAtoms : public InFolder {
 protected:
  // What follows the movie header in a reference movie of a file that ends with `tail`.
  Bytes Copied(const Bytes& tail, const Bytes& front = {}) {
    return Behind(*Opened("in.mov", front, tail));
  }
  std::unique_ptr<MovieRecord> Opened(const std::string& name, const Bytes& front,
                                      const Bytes& tail, std::uint32_t samplesAt = 0) {
    const Bytes track = TrackAtom({.duration = 600, .table = PlainTable(6, 100, 10, samplesAt)});
    const Bytes file = Join(front, Atom("moov", MovieHeaderAtom(), track), tail);
    return ReadMovieFile(Store(name, file), References::kResolve);
  }
  Bytes Behind(const MovieRecord& movie) {
    OutputFile output(folder_ / "out.mov");
    WriteFile(PlanReference(movie), {.movieFirst = true, .compress = false}, folder_ / "out.mov",
              output);
    output.Commit();
    Bytes file = Stored(folder_ / "out.mov");
    for (int atom = 0; atom < 2; ++atom) {  // the file type and the movie header
      file.erase(file.begin(), file.begin() + FromBigEndian<std::uint32_t>(file.data()));
    }
    return file;
  }
};

TEST_F(FileAtoms, AreKeptUnlessTheyAreFreeSpaceOrMedia) {
  const Bytes own = Made("uuid{ '0123456789abcdef' 'kept' }");
  const Bytes places = Made("free{ *99 'N 48.2' } skip{ 'x' }");
  EXPECT_EQ(Copied(own, places), Join(places, own));
  for (const char* room :
       {"free{ }", "free{ *5000 }", "skip{ *1 }", "*40", "*3", "free{ mvhd{ *100 } }",
        "free{ cmov{ } }", "skip{ 'hdlr' *4 'mdirappl' }", "wide{ }", "mdat{ 'media' }",
        "pnot{ *12 }", "moof{ }", "sidx{ *4 }", "4000 'mdat' 'cut off'", "40 'moof'"}) {
    EXPECT_EQ(Copied(Made(room)), Bytes()) << room;
  }
}

TEST_F(FileAtoms, EndBeforeMediaOutsideAtoms) {
  const Bytes media = Join(U32(7), Text(std::string(80, 'm')));
  const Bytes before =
      Atom("moov", MovieHeaderAtom(), TrackAtom({.table = PlainTable(0, 0, 0, 0)}));
  const auto at = static_cast<std::uint32_t>(before.size());
  EXPECT_EQ(Behind(*Opened("in.mov", {}, media, at - 60)), media);
  EXPECT_EQ(Behind(*Opened("in.mov", {}, media, at - 59)), Bytes());
}

TEST_F(FileAtoms, LoseATrailerOnceMediaOfAnotherMovieIsAdded) {
  const Bytes own = Made("uuid{ '0123456789abcdef' }"), all = Join(own, Made("7 'a trailer'"));
  const auto movie = Opened("in.mov", {}, all), other = Opened("other.mov", {}, all);
  EXPECT_EQ(Behind(*movie), all);
  movie->tracks[0]->edits.Delete({0}, {300}, movie->tracks[0]->TimeClock());
  EXPECT_EQ(Behind(*movie), all) << "it is still that movie";
  const auto second = movie->Clone(), third = movie->Clone();
  InsertMovieSegment(*other, *movie, {}, {600}, {300});
  EXPECT_EQ(Behind(*movie), own);
  InsertTrackSegment(*other->tracks[0], *second->tracks[0], {}, {600}, {300});
  EXPECT_EQ(Behind(*second), own);
  std::ignore = third->tracks[0]->media->Append(other->tracks[0]->media->Copy(0, 6), 0, 6);
  EXPECT_EQ(Behind(*third), own);
  AddMovieSelection(*movie, *other);
  EXPECT_EQ(Behind(*other), own);
}

// A 'meta' with items: Item 1 has two extents. Item 2 is the second of these. Item 3 is in the atom
// itself.
std::string Items(int version, int at) {
  const std::string width = version == 2 ? "/4 " : "/2 ", method = version == 0 ? "" : "0/2 ";
  return "meta{ " + std::string(version == 1 ? "" : "0 ") + "hdlr{ *24 } iloc{ " +
         std::to_string(version) + "/1 0/3 0x4440/2 " + (version == 0 ? "2" : "3") + width +  //
         "1" + width + method + "0/2 " + std::to_string(at) + " 2/2  0 3  5 4  " +  //
         "2" + width + method + "0/2 0 1/2 " + std::to_string(at + 5) + " 4 " +
         (version == 0 ? "" : "3" + width + "1/2 0/2 0 1/2  2 1 ") + "} idat{ 'inside' } } ";
}

TEST_F(FileAtoms, FindItemsAtTheirNewPlaces) {
  for (const int version : {0, 1, 2}) {
    const Bytes copied = Copied({}, Made("mdat{ '....one..four....' } " + Items(version, 12)));
    ASSERT_EQ(Bytes(copied.begin(), copied.begin() + 23), Made("wide{ } mdat{ 'onefour' }"));
    const std::uint64_t at = Stored(folder_ / "out.mov").size() - copied.size() + 16;
    EXPECT_TRUE(Contains(copied, Join(U64(at), U64(3), U64(at + 3), U64(4))));
    EXPECT_TRUE(Contains(copied, Made("idat{ 'inside' }")));
    EXPECT_EQ(Contains(copied, Made("2/8 1/8 idat{ 'inside' }")), version != 0);
  }
  EXPECT_EQ(Copied(Made("meta{ 0 hdlr{ *24 } }")), Made("meta{ 0 hdlr{ *24 } }"));
}

TEST_F(FileAtoms, RefuseItemsThatAreNotThereOrWouldMove) {
  EXPECT_EQ(CodeOf([&] { Copied(Made(Items(0, 100000))); }), eofErr);
  EXPECT_EQ(CodeOf([&] { Copied(Made("meta{ 0 iloc{ 0x03000000 *20 } }")); }), featureUnsupported);
  const auto movie = Opened("in.mov", {}, Made(Items(0, 0) + "'trailer'"));
  const FileSource file(folder_ / "in.mov", O_RDWR);
  EXPECT_EQ(CodeOf([&] { UpdateFile(*movie, folder_ / "in.mov", file, true); }),
            featureUnsupported);
}

// --- Raw AAC

constexpr std::uint8_t kStereo = 0x80, kMono = 0x40;  // in the fourth byte
constexpr std::uint8_t k44100 = 0x50, k48000 = 0x4C, kNoRate = 0x7C;  // AAC LC, in the third

// A frame with a header of 7 bytes and `size` bytes of data.
Bytes Frame(std::uint32_t size, std::uint8_t rate = k44100, std::uint8_t channels = kStereo,
            std::uint8_t blocks = 1) {
  const std::uint32_t all = 7 + size;
  return Join(Bytes{0xFF, 0xF1, rate, static_cast<std::uint8_t>(channels | all >> 11),
                    static_cast<std::uint8_t>(all >> 3), static_cast<std::uint8_t>(all << 5 | 0x1F),
                    static_cast<std::uint8_t>(0xFC | (blocks - 1))},
              Zeros(size));
}

std::unique_ptr<MovieRecord> Read(const Bytes& file) { return ReadAdtsFile(MemorySource(file)); }

std::string Samples(const Bytes& file) {
  const auto movie = Read(file);
  return movie ? Told(movie->tracks.at(0)->media->samples) : "none";
}

TEST(ReadAdts, MakesATrackOfFrames) {
  const auto movie = Read(Join(Frame(20), Frame(3000), Frame(0, k44100, kStereo, 3)));
  const MediaRecord& media = *movie->tracks.at(0)->media;
  EXPECT_EQ(Told(media.samples), "7+20:1024 34+3000:1024 3041+0:3072");
  EXPECT_EQ(Told(*movie), "0+70") << "of 600 units a second";
  EXPECT_EQ(media.descriptions.at(0).bytes,
            Made("mp4a{ *6 1/2 *8 2/2 16/2 0 44100/2 0/2 esds{ 0 3/1 25/1 *3 4/1 17/1 x401500"
                 " 3000/2 0 $ 5/1 2/1 x1210 6/1 1/1 2/1 } }",
                 {U32(3020 * 8 * 44100 / 5120)}));
}

TEST(ReadAdts, SkipsBytesThatAreNotFrames) {
  const Bytes frame = Frame(5);
  const Bytes cut = First(frame, frame.size() - 1);
  EXPECT_EQ(Samples(Made("'ID3' x0400 0/1 0x0102 *130 'ID3' x0400 x10 1 *11 $ $", {frame, frame})),
            "168+5:1024 180+5:1024");
  // A frame header between other bytes, with no frame after it, is ignored.
  EXPECT_EQ(Samples(Made("$ $ 'rub' $ 'bish' $ $", {frame, frame, frame, frame, frame})),
            "7+5:1024 19+5:1024 50+5:1024 62+5:1024");
  for (const Bytes& end : {Made("'TAG' *125"), cut}) {
    EXPECT_EQ(Samples(Join(frame, frame, end)), "7+5:1024 19+5:1024");
  }
  for (const Bytes& other :
       {Frame(5, k48000), Frame(5, k44100, kMono)}) {  // a frame with other settings ends the sound
    EXPECT_EQ(Samples(Join(frame, frame, other, frame)), "7+5:1024 19+5:1024");
    EXPECT_EQ(Samples(Join(frame, other, frame)), "none") << "one frame may be chance";
  }
  Bytes checked = Join(frame, frame);
  for (const std::size_t at : {1U, 13U}) checked[at] = 0xF0;
  EXPECT_EQ(Samples(checked), "9+3:1024 21+3:1024") << "a checksum before the data";
}

TEST(ReadAdts, TakesNothingElseForSound) {
  for (const Bytes& file : {Bytes(), Text("some text that is longer than a header"), Frame(5),
                            Join(Frame(5, kNoRate), Frame(5, kNoRate)), Text("ID3"),
                            Made("'ID3' 4/2 0/1 0x7F7F7F7F $ $", {Frame(5), Frame(5)}),
                            Join(Text("x"), Frame(5), Frame(5)), Bytes(1000, 0xFF)}) {
    EXPECT_EQ(Read(file), nullptr);
  }
}

}  // namespace
}  // namespace toolbox
