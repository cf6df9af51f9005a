#include "toolbox/read/read_movie.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/told.h"
#include "toolbox/atoms/compressed_movie.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {
namespace {

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
  std::string Samples(const Bytes& table, const std::string& kind = "vide") {
    return Told(ReadTrack({.kind = kind, .table = table})->tracks[0]->media->samples);
  }
  OSErr CodeOfReading(const Bytes& file, References references = References::kResolve) try {
    Read(file, references);
    return noErr;
  } catch (const Refused& refused) {
    return refused.code;
  } catch (const Malformed&) {
    return badPublicMovieAtom;
  }
};

const Bytes kTrack = TrackAtom({.table = PlainTable(6, 300, 10, 40)});
const Bytes kMovie = Atom("moov", MovieHeaderAtom(), kTrack);

TEST_F(ReadMovie, ConnectsItsTracksAndKnowsItsFile) {
  const auto movie = Read(Made(
      "moov{ $ $ $ udta{ name{ 'a' } name{ 'b' } 0 } }",
      {MovieHeaderAtom(), kTrack, TrackAtom({.id = 7, .others = Made("tref{ chap{ 1 99 } }")})}));
  ASSERT_EQ(movie->tracks.size(), 2U);
  EXPECT_EQ(movie->header.nextTrackId, 8U) << "the file states 2";
  EXPECT_EQ(movie->file, OtherFile{folder_ / "in.mov"});
  EXPECT_EQ(movie->userData,
            (UserDataRecord{{{FourCC{"name"}, Text("a")}, {FourCC{"name"}, Text("b")}}}));
  EXPECT_EQ(movie->tracks[1]->references.at(0).targets,
            (std::vector{movie->tracks[0].get(), static_cast<TrackRecord*>(nullptr)}));
}

TEST_F(ReadMovie, FindsTheHeaderAtAnyPlace) {
  const Bytes data = Made("mdat{ *60 }"), toTheEnd(kMovie.begin() + 4, kMovie.end());
  for (const Bytes& file :
       {kMovie, Made("ftyp{ 'qt  ' 0 } $ mdat{ }", {kMovie}), Join(data, data, kMovie),
        Made("$ 0 'mdat' *60", {kMovie}), Join(data, U32(0), toTheEnd),
        Join(data, WideAtom("moov", MovieHeaderAtom(), kTrack)),
        Join(WideAtom("mdat", Zeros(60)), kMovie, Text("junk")), Compressed(kMovie),
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
      {{}, noMovieFound},
      {Text("just some text that is no movie"), noMovieFound},
      {Made("mdat{ *100 }"), noMovieFound},
      {Bytes(kMovie.begin(), kMovie.end() - 1), badPublicMovieAtom},
      {Atom("moov", kTrack), badPublicMovieAtom},
      {Made("moov{ }"), badPublicMovieAtom},
      {Atom("moov", MovieHeaderAtom(0)), badPublicMovieAtom},
      {damaged, badPublicMovieAtom},
      {Made("moov{ cmov{ dcom{ 'zlib' } cmvd{ 100 'nonsense' } } }"), badPublicMovieAtom},
      {Made("moov{ cmov{ dcom{ 'nope' } cmvd{ 100 'nonsense' } } }"), cantFindHandler},
  };
  for (const auto& [file, code] : files) EXPECT_EQ(CodeOfReading(file), code) << file.size();
  for (const auto& [name, code] : {std::pair("none", couldNotResolveDataRef),
                                   {"in.mov/x", couldNotResolveDataRef},
                                   {"", notAFileErr}}) {
    const auto path = folder_ / name;
    EXPECT_EQ(CodeOf([&] { ReadMovieFile(path, References::kLeave); }), code) << name;
  }
}

TEST_F(ReadMovie, SurvivesAHeaderCutAnywhere) {
  const std::size_t withoutTrack = 8 + MovieHeaderAtom().size();
  for (std::size_t cut = 8; cut < kMovie.size(); ++cut) {
    // A movie without tracks is complete, and zeros after it are padding.
    if (cut >= withoutTrack && cut < withoutTrack + 3) continue;
    Bytes file(kMovie.begin(), kMovie.begin() + static_cast<std::ptrdiff_t>(cut));
    std::ranges::copy(U32(static_cast<std::uint32_t>(cut)), file.begin());
    EXPECT_NE(CodeOfReading(file), noErr) << "cut after " << cut;
  }
}

TEST_F(ReadMovie, WantsMediaThatAreInUse) {
  const auto file = [&](const Bytes& table) {
    const Bytes elsewhere = Made("0 1 url{ 0 'http://host/a.mov' 0/1 }");
    return Atom("moov", MovieHeaderAtom(), TrackAtom({.table = table, .references = elsewhere}));
  };
  EXPECT_EQ(CodeOfReading(file(PlainTable(6, 300, 10, 0))), couldNotResolveDataRef);
  EXPECT_EQ(CodeOfReading(file(PlainTable(6, 300, 10, 0)), References::kLeave), noErr);
  EXPECT_EQ(CodeOfReading(file(Bytes())), noErr) << "no sample needs it";
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
    EXPECT_EQ(Told(*ReadTrack({.table = PlainTable(6, 300, 10, 0), .edits = list})), expected);
  }
}

TEST_F(ReadMovie, WithoutEditListTrustsTheStatedDurationWithinAUnit) {
  for (const auto& [stated, expected] : {std::pair(1078U, "0+1078"),
                                         {1080U, "0+1080"},
                                         {1077U, "0+1079"},
                                         {1081U, "0+1079"},
                                         {UINT32_MAX, "0+1079"}}) {
    EXPECT_EQ(
        Told(*ReadTrack({.scale = 1001, .duration = stated, .table = PlainTable(6, 300, 10, 0)})),
        expected);
  }
  EXPECT_EQ(Told(*ReadTrack({.duration = 600})), "");
}

TEST_F(ReadMovie, ReadsEveryFormOfSizesAndOffsets) {
  const std::string times = "stts{ 0 1 3 10 } stsc{ 0 2  1 2 1  2 1 1 } ",
                    narrow = times + "stco{ 0 2 100 50 } ";
  for (const char* sizes : {"stsz{ 0 0 3 5 6 7 }", "stz2{ 0 4 3 x5670 }", "stz2{ 0 8 3 x050607 }",
                            "stz2{ 0 16 3 5/2 6/2 7/2 }"}) {
    EXPECT_EQ(Samples(Table(narrow + sizes)), "100+5:10 105+6:10 50+7:10") << sizes;
  }
  EXPECT_EQ(Samples(Table(times + "stsz{ 0 9 3 } co64{ 0 2 0x100000000/8 50/8 }")),
            "4294967296+9:10 4294967305+9:10 50+9:10");
}

TEST_F(ReadMovie, FitsTablesThatStateTooFewSamples) {
  const std::string tables =
      "stts{ 0 1 2 10 } ctts{ 0 1 1 -2 } stss{ 0 4 3 0 1 77 } stsz{ 0 4 5 } stco{ 0 2 0 50 } ";
  EXPECT_EQ(Samples(Table(tables + "stsc{ 0 1 1 3 1 }")),
            "0+4:10^-2 4+4:10~ 8+4:10 50+4:10~ 54+4:10~");
  const auto few = ReadTrack({.table = Table(tables + "stsc{ 0 2 1 3 1 2 1 1 }")});
  EXPECT_EQ(LocatedCount(few->tracks[0]->media->samples), 4U);

  // Missing values of samples are 0, but not for billions of samples that a small file claims.
  for (const auto& [samples, values] : {std::pair(6U, 3U), std::pair(4'000'000'000U, 0U)}) {
    const Bytes table = Join(PlainTable(samples, 0, 4, 8), Made("sdtp{ 0 'abc' }"));
    const auto movie = ReadTrack({.table = table});
    EXPECT_EQ(movie->tracks[0]->media->samples.WholeRows()->dependencies.size(), values);
  }
}

TEST_F(ReadMovie, RefusesTablesThatContradictThemselves) {
  const std::string stco = "stco{ 0 2 0 9 } ", stbl = "/moov/trak/mdia/minf/stbl";
  EXPECT_NO_THROW(Samples(Table("stsz{ 0 4 5 } " + stco + "stsc{ 0 1 1 3 1 }")));
  for (const auto& [tables, path] : {std::pair(stco + "stsc{ 0 1 0 3 1 }", ""),
                                     {stco + "stsc{ 0 2 1 3 1 1 2 1 }", ""},
                                     {stco + "stsc{ 0 1 1 3 2 }", ""},
                                     {stco + "stsc{ 0 1 1 3 0 }", ""},
                                     {"co64{ 0 1 0x8000000000000000/8 }", ""},
                                     {"stts{ 0 1 2 *3 }", "/stts"}}) {
    try {
      Samples(Table("stsz{ 0 4 5 } " + tables));
      ADD_FAILURE() << tables;
    } catch (const Malformed& fault) {
      EXPECT_EQ(fault.path, stbl + path) << tables;
    }
  }
}

TEST_F(ReadMovie, KnowsThePacketsAndFramesOfSound) {
  const auto sound = [&](const std::string& description, const Bytes& plain) {
    const Bytes rest(plain.begin() + 32, plain.end());  // after 'stsd' and its entry
    const auto movie =
        ReadTrack({.kind = "soun", .table = Made("stsd{ 0 1 $ } $", {Made(description), rest})});
    const SampleTable& samples = movie->tracks[0]->media->samples;
    return std::pair(PacketLength(samples, 0),
                     SizeOf(samples, 0, static_cast<std::uint32_t>(samples.Count()), 0));
  };
  using Found = std::pair<std::uint32_t, std::uint64_t>;
  EXPECT_EQ(
      sound("ima4{ *6 1/2 1/2 *6 2/2 16/2 0 44100/2 0/2 64 34 68 2 }", PlainTable(640, 1, 1, 0)),
      Found(64, 680));
  const std::string plain = "sowt{ *6 1/2 *8 2/2 16/2 *4 44100/2 0/2 }";
  EXPECT_EQ(sound(plain, PlainTable(6, 1, 1, 8)), Found(1, 24)) << "the size does not count";
  EXPECT_EQ(sound(plain, PlainTable(6, 1, 400, 8)), Found(1, 24));
  EXPECT_EQ(sound(plain, PlainTable(6, 100, 400, 8)), Found(1, 2400)) << "samples of 100 frames";
}

}  // namespace
}  // namespace toolbox
