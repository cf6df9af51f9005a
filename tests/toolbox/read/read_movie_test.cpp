#include "toolbox/read/read_movie.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/compressed_movie.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {
namespace {

using Edits = std::vector<Edit>;
using Range = std::pair<std::uint64_t, std::uint64_t>;

// The offset and size of each sample in its file.
std::vector<Range> Places(const MediaRecord& media) {
  std::vector<Range> places;
  ForEachPiece(media.samples, {0, media.samples.Count()}, [&](const SamplePiece& piece) {
    std::uint64_t at = piece.offset;
    for (std::uint64_t i = piece.sample; i < piece.sample + piece.count; ++i) {
      places.emplace_back(at, SizeOf(media.samples, i, 1, piece.description));
      at += places.back().second;
    }
  });
  return places;
}

Bytes Compressed(const Bytes& movie) {
  MovieDeflater deflater;
  deflater.Append(movie);
  return deflater.Finish().value();
}

class ReadMovie : public InFolder {
 protected:
  std::unique_ptr<MovieRecord> Read(const Bytes& file, References references = References::kLeave) {
    return ReadMovieFile(Store("in.mov", file), references);
  }
  // A movie with that track only.
  std::unique_ptr<MovieRecord> ReadTrack(const TrackInFile& track) {
    return Read(Atom("moov", MovieHeaderAtom(), TrackAtom(track)));
  }
  SampleTable ReadTable(const Bytes& table) {
    return ReadTrack({.table = table})->tracks[0]->media->samples;
  }
  EditList ReadEdits(const Bytes& entries, std::uint32_t mediaDelta = 300) {
    return ReadTrack({.table = PlainTable(6, mediaDelta, 10, 0),
                      .edits = Atom("edts", Atom("elst", entries))})
        ->tracks[0]
        ->edits;
  }
  OSErr CodeOfReading(const Bytes& file, References references = References::kResolve) {
    try {
      Read(file, references);
      return noErr;
    } catch (const Refused& refused) {
      return refused.code;
    } catch (const Malformed&) {
      return badPublicMovieAtom;
    }
  }
};

const Bytes kTrack = TrackAtom({.table = PlainTable(6, 300, 10, 40)});
const Bytes kMovie = Atom("moov", MovieHeaderAtom(), kTrack);

TEST_F(ReadMovie, TellsWhatTheHeadersSay) {
  const Bytes header =
      Atom("tkhd", U32(0x01000001), U64(0x100000000), U64(12), U32(7), Zeros(4), U64(1800),
           Zeros(8), U16(3), U16(4), U16(0x80), Zeros(2), IdentityFields(), U32(5), U32(6));
  const Bytes mediaHeader =
      Atom("mdhd", U32(0x01000000), U64(21), U64(22), U32(44100), U64(0), U16(0x15C7), U16(9));
  const Bytes movieHeader =
      Atom("mvhd", U32(0x01000000), U64(31), U64(32), U32(1000), U64(0), U32(0x8000), U16(0x80),
           Zeros(10), IdentityFields(), U32(1), U32(2), U32(3), U32(4), U32(5), U32(6), U32(8));
  const Bytes user = Atom("udta", Atom("name", Text("a")), Atom("name", Text("b")), U32(0));
  const auto movie =
      Read(Atom("moov", movieHeader,
                TrackAtom({.table = PlainTable(6, 300, 10, 0),
                           .others = Join(Atom("tref", Atom("chap", U32(7), U32(99))), user),
                           .header = header,
                           .mediaHeader = mediaHeader}),
                user));
  EXPECT_EQ(movie->header.scale, 1000);
  EXPECT_EQ(movie->header.created, 31U);
  EXPECT_EQ(movie->header.rate, 0x8000);
  EXPECT_EQ(movie->header.volume, 0x80);
  EXPECT_EQ(movie->header.previewTime, 1);
  EXPECT_EQ(movie->header.currentTime, 6);
  EXPECT_EQ(movie->header.nextTrackId, 8U);
  EXPECT_EQ(movie->file, OtherFile{folder_ / "in.mov"});
  const UserDataRecord items{{{FourCC{"name"}, Text("a")}, {FourCC{"name"}, Text("b")}}};
  EXPECT_EQ(movie->userData, items);
  ASSERT_EQ(movie->tracks.size(), 1U);
  const TrackRecord& track = *movie->tracks[0];
  EXPECT_EQ(track.header.id, 7U);
  EXPECT_EQ(track.header.flags, 1U);
  EXPECT_EQ(track.header.created, 0x100000000U);
  EXPECT_EQ(track.header.layer, 3);
  EXPECT_EQ(track.header.alternateGroup, 4);
  EXPECT_EQ(track.header.volume, 0x80);
  EXPECT_EQ(std::pair(track.header.width, track.header.height), std::pair(5, 6));
  EXPECT_EQ(track.userData, items);
  ASSERT_EQ(track.references.size(), 1U);
  EXPECT_EQ(track.references[0].targets,
            (std::vector{movie->tracks[0].get(), static_cast<TrackRecord*>(nullptr)}));
  EXPECT_EQ(track.media->header.scale, 44100);
  EXPECT_EQ(track.media->header.language, 0x15C7);
  EXPECT_EQ(track.media->header.quality, 9);
  EXPECT_EQ(track.media->Type(), FourCC{"vide"});
  EXPECT_EQ(track.media->descriptions.size(), 1U);
}

TEST_F(ReadMovie, FindsTheHeaderAtAnyPlace) {
  const Bytes data = Atom("mdat", Zeros(60)), stretched = Join(U32(0), Text("mdat"), Zeros(60));
  const Bytes toTheEnd = Join(U32(0), Bytes(kMovie.begin() + 4, kMovie.end()));
  const Bytes wide = WideAtom("moov", MovieHeaderAtom(), kTrack);
  for (const Bytes& file :
       {kMovie, Join(Atom("ftyp", Text("qt  "), U32(0)), kMovie, data), Join(data, data, kMovie),
        Join(kMovie, stretched), Join(data, toTheEnd), Join(data, wide),
        Join(WideAtom("mdat", Zeros(60)), kMovie, Text("junk")), Compressed(kMovie),
        StoreMovie(kMovie), Join(kMovie, Atom("moov", Text("another")))}) {
    const auto movie = Read(file);
    ASSERT_EQ(movie->tracks.size(), 1U);
    EXPECT_EQ(Places(*movie->tracks[0]->media).at(2), (Range{60, 10}));
  }
}

TEST_F(ReadMovie, RefusesFilesWithTheCodeOfTheirFault) {
  const auto cutMovie = Bytes(kMovie.begin(), kMovie.end() - 1);
  const Bytes noHeader = Atom("moov", kTrack);
  const auto compressed = [](const char* method, const Bytes& stream) {
    return Atom("moov", Atom("cmov", Atom("dcom", Text(method)), Atom("cmvd", U32(100), stream)));
  };
  Bytes damaged = Compressed(kMovie);
  damaged[damaged.size() / 2] ^= 0x55;
  EXPECT_EQ(CodeOfReading({}), noMovieFound);
  EXPECT_EQ(CodeOfReading(Text("just some text that is no movie")), noMovieFound);
  EXPECT_EQ(CodeOfReading(Atom("mdat", Zeros(100))), noMovieFound);
  EXPECT_EQ(CodeOfReading(cutMovie), badPublicMovieAtom);
  EXPECT_EQ(CodeOfReading(noHeader), badPublicMovieAtom);
  EXPECT_EQ(CodeOfReading(Atom("moov")), badPublicMovieAtom);
  EXPECT_EQ(CodeOfReading(Atom("moov", MovieHeaderAtom(0))), badPublicMovieAtom);
  EXPECT_EQ(CodeOfReading(damaged), badPublicMovieAtom);
  EXPECT_EQ(CodeOfReading(compressed("zlib", Text("nonsense"))), badPublicMovieAtom);
  EXPECT_EQ(CodeOfReading(compressed("nope", Text("nonsense"))), cantFindHandler);
  EXPECT_EQ(CodeOf([&] { ReadMovieFile(folder_ / "none", References::kLeave); }),
            couldNotResolveDataRef);
  EXPECT_EQ(CodeOf([&] { ReadMovieFile(folder_ / "in.mov" / "x", References::kLeave); }),
            couldNotResolveDataRef);
  EXPECT_EQ(CodeOf([&] { ReadMovieFile(folder_, References::kLeave); }), notAFileErr);
}

TEST_F(ReadMovie, SaysWhereABrokenHeaderIsBroken) {
  try {
    ReadTrack({.table = Join(PlainTable(6, 300, 10, 0), Atom("stss", U32(0), U32(9)))});
    FAIL();
  } catch (const Malformed& fault) {
    EXPECT_EQ(fault.path, "/moov/trak/mdia/minf/stbl/stss");
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
  const Bytes elsewhere =
      Join(U32(0), U32(1), Atom("url ", U32(0), Text("http://host/a.mov"), U8(0)));
  const auto file = [&](const Bytes& table) {
    return Atom("moov", MovieHeaderAtom(), TrackAtom({.table = table, .references = elsewhere}));
  };
  EXPECT_EQ(CodeOfReading(file(PlainTable(6, 300, 10, 0))), couldNotResolveDataRef);
  EXPECT_EQ(CodeOfReading(file(PlainTable(6, 300, 10, 0)), References::kLeave), noErr);
  EXPECT_EQ(CodeOfReading(file(Bytes())), noErr) << "no sample needs it";
}

// --- Edit lists

Bytes Entry(std::uint32_t duration, std::uint32_t mediaTime, std::uint32_t rate = 0x10000) {
  return Join(U32(duration), U32(mediaTime), U32(rate));
}

TEST_F(ReadMovie, TakesEditsAsTheyAre) {
  EXPECT_EQ(
      ReadEdits(Join(U32(0), U32(3), Entry(100, 0xFFFFFFFF), Entry(200, 50), Entry(300, 0, 0x8000)))
          .Edits(),
      (Edits{{{0}, {100}, {-1}}, {{100}, {200}, {50}}, {{300}, {300}, {0}, 0.5}}));
  EXPECT_EQ(
      ReadEdits(Join(U32(0x01000000), U32(1), U64(0x100000000), U64(50), U32(0x10000))).Edits(),
      (Edits{{{0}, {0x100000000}, {50}}}));
}

TEST_F(ReadMovie, ReadsALastEditWithoutDurationAsTheRest) {
  EXPECT_EQ(ReadEdits(Join(U32(0), U32(1), Entry(0, 300))).Edits(), (Edits{{{0}, {1500}, {300}}}));
}

TEST_F(ReadMovie, ShowsTheWholeMediaInPlaceOfABadEditList) {
  const Edits whole{{{0}, {1800}, {0}}};
  EXPECT_EQ(ReadEdits(Join(U32(0), U32(1), Entry(100, 0xFFFFFFFE))).Edits(), whole);
  EXPECT_EQ(ReadEdits(Join(U32(0), U32(1), Entry(100, 0, 0xFFFF0000))).Edits(), whole);
  EXPECT_EQ(ReadEdits(Join(U32(0x01000000), U32(1), U64(0xFFFFFFFFFFFFFFFF), U64(0), U32(0x10000)))
                .Edits(),
            whole);
}

TEST_F(ReadMovie, WithoutEditListTrustsTheStatedDurationWithinAUnit) {
  const auto durationWhenStated = [&](std::uint32_t stated) {
    return ReadTrack({.scale = 1001, .duration = stated, .table = PlainTable(6, 300, 10, 0)})
        ->tracks[0]
        ->edits.Duration()
        .units;
  };
  EXPECT_EQ(durationWhenStated(1078), 1078);
  EXPECT_EQ(durationWhenStated(1080), 1080);
  EXPECT_EQ(durationWhenStated(1077), 1079);
  EXPECT_EQ(durationWhenStated(0xFFFFFFFF), 1079);
  EXPECT_TRUE(ReadTrack({.duration = 600})->tracks[0]->edits.Edits().empty());
}

// --- Sample tables

TEST_F(ReadMovie, ReadsEveryFormOfSizesAndOffsets) {
  const auto table = [](const Bytes& sizes, const Bytes& offsets) {
    return Join(Atom("stsd", U32(0), U32(1), Atom("test", Zeros(6), U16(1))),
                Atom("stts", U32(0), U32(1), U32(3), U32(10)),
                Atom("stsc", U32(0), U32(2), U32(1), U32(2), U32(1), U32(2), U32(1), U32(1)), sizes,
                offsets);
  };
  const Bytes narrow = Atom("stco", U32(0), U32(2), U32(100), U32(50));
  const Bytes wide = Atom("co64", U32(0), U32(2), U64(0x100000000), U64(50));
  const auto places = [&](const Bytes& sizes, const Bytes& offsets) {
    return Places(*ReadTrack({.table = table(sizes, offsets)})->tracks[0]->media);
  };
  const std::vector<Range> expected{{100, 5}, {105, 6}, {50, 7}};
  EXPECT_EQ(places(Atom("stsz", U32(0), U32(0), U32(3), U32(5), U32(6), U32(7)), narrow), expected);
  EXPECT_EQ(places(Atom("stz2", U32(0), U32(4), U32(3), U8(0x56), U8(0x70)), narrow), expected);
  EXPECT_EQ(places(Atom("stz2", U32(0), U32(8), U32(3), U8(5), U8(6), U8(7)), narrow), expected);
  EXPECT_EQ(places(Atom("stz2", U32(0), U32(16), U32(3), U16(5), U16(6), U16(7)), narrow),
            expected);
  EXPECT_EQ(places(Atom("stsz", U32(0), U32(9), U32(3)), wide),
            (std::vector<Range>{{0x100000000, 9}, {0x100000009, 9}, {50, 9}}));
}

TEST_F(ReadMovie, FitsTablesThatStateTooFewSamples) {
  const SampleTable table =
      ReadTable(Join(Atom("stsd", U32(0), U32(1), Atom("test", Zeros(6), U16(1))),
                     Atom("stts", U32(0), U32(1), U32(2), U32(10)),
                     Atom("ctts", U32(0), U32(1), U32(1), U32(0xFFFFFFFE)),
                     Atom("stss", U32(0), U32(4), U32(3), U32(0), U32(1), U32(77)),
                     Atom("stsc", U32(0), U32(1), U32(1), U32(3), U32(1)),
                     Atom("stsz", U32(0), U32(4), U32(5)), Atom("stco", U32(0), U32(1), U32(0))));
  EXPECT_EQ(table.Duration(), MediaTime{50});
  EXPECT_EQ(ShownAt(table, 0), MediaTime{-2});
  EXPECT_EQ(ShownAt(table, 1), MediaTime{10});
  EXPECT_EQ(LocatedCount(table), 3U);
  EXPECT_EQ(table.SyncAtOrBefore(1), 0U);
  EXPECT_EQ(table.SyncAtOrBefore(4), 2U);

  // Missing values of samples are 0, but not for billions of samples that a small file claims.
  for (const auto& [samples, values] : {std::pair(6U, 3U), std::pair(4'000'000'000U, 0U)}) {
    const SampleTable few =
        ReadTable(Join(PlainTable(samples, 0, 4, 8), Atom("sdtp", U32(0), Text("abc"))));
    EXPECT_EQ(few.WholeRows()->dependencies.size(), values);
  }
}

TEST_F(ReadMovie, RefusesTablesThatContradictThemselves) {
  const auto codeOf = [&](const Bytes& chunks) {
    return CodeOfReading(
        Atom("moov", MovieHeaderAtom(),
             TrackAtom({.table = Join(Atom("stsd", U32(0), U32(1), Atom("test", Zeros(6), U16(1))),
                                      Atom("stsz", U32(0), U32(4), U32(5)), chunks)})));
  };
  const Bytes one = Atom("stco", U32(0), U32(2), U32(0), U32(9));
  EXPECT_EQ(codeOf(Join(Atom("stsc", U32(0), U32(1), U32(1), U32(1), U32(1)), one)), noErr);
  EXPECT_EQ(codeOf(Join(Atom("stsc", U32(0), U32(1), U32(0), U32(1), U32(1)), one)),
            badPublicMovieAtom);
  EXPECT_EQ(codeOf(Join(Atom("stsc", U32(0), U32(1), U32(1), U32(1), U32(2)), one)),
            badPublicMovieAtom);
  EXPECT_EQ(codeOf(Atom("co64", U32(0), U32(1), U64(0x8000000000000000))), badPublicMovieAtom);
  EXPECT_EQ(codeOf(Atom("stts", U32(0), U32(1), U32(2), Zeros(3))), badPublicMovieAtom);
}

TEST_F(ReadMovie, KnowsThePacketsOfCompressedSound) {
  const Bytes description = Atom("ima4", Zeros(6), U16(1), U16(1), Zeros(6), U16(2), U16(16),
                                 U32(0), U32(44100U << 16), U32(64), U32(34), U32(68), U32(2));
  const SampleTable table =
      ReadTrack({.kind = "soun",
                 .table = Join(Atom("stsd", U32(0), U32(1), description),
                               Atom("stts", U32(0), U32(1), U32(640), U32(1)),
                               Atom("stsc", U32(0), U32(1), U32(1), U32(640), U32(1)),
                               Atom("stsz", U32(0), U32(1), U32(640)),
                               Atom("stco", U32(0), U32(1), U32(0)))})
          ->tracks[0]
          ->media->samples;
  EXPECT_EQ(PacketLength(table, 0), 64U);
  EXPECT_EQ(SizeOf(table, 0, 640, 0), 680U);
}

TEST_F(ReadMovie, KnowsWhetherASampleOfPlainSoundIsOneFrame) {
  const Bytes description =
      Atom("sowt", Zeros(6), U16(1), Zeros(8), U16(2), U16(16), Zeros(4), U32(44100U << 16));
  const auto bytes = [&](std::uint32_t delta, std::uint32_t size) {
    const Bytes plain = PlainTable(6, delta, size, 8);
    const Bytes rest(plain.begin() + 32, plain.end());  // after 'stsd' and its entry
    const Bytes table = Join(Atom("stsd", U32(0), U32(1), description), rest);
    return SizeOf(ReadTrack({.kind = "soun", .table = table})->tracks[0]->media->samples, 0, 6, 0);
  };
  EXPECT_EQ(bytes(1, 1), 24U) << "the size in the table does not count";
  EXPECT_EQ(bytes(1, 400), 24U);
  EXPECT_EQ(bytes(100, 400), 2400U) << "samples of 100 frames";
}

// --- User data

TEST_F(ReadMovie, ReadsUserDataUpToItsEnd) {
  const auto items = [&](const Bytes& content) {
    return Read(Atom("moov", MovieHeaderAtom(), Atom("udta", content)))->userData.items;
  };
  const std::vector<UserDataItem> one{{FourCC{"WLOC"}, U32(5)}};
  const Bytes item = Atom("WLOC", U32(5));
  EXPECT_EQ(items(item), one);
  EXPECT_EQ(items(Join(item, U32(0))), one);
  EXPECT_EQ(items(Join(item, U32(7), Text("tiny"))), one);
  EXPECT_EQ(items(Join(item, U32(70), Text("long"))), one);
  EXPECT_EQ(items(Join(item, Zeros(8))), one) << "a 0 ends the list, whatever follows it";
}

TEST_F(ReadMovie, AddsTheVersionThatMetaMayLack) {
  const Bytes handler = Atom("hdlr", Zeros(8), Text("mdir"), Zeros(13));
  const auto payload = [&](const Bytes& content) {
    return Read(Atom("moov", MovieHeaderAtom(), Atom("udta", Atom("meta", content))))
        ->userData.items.at(0)
        .payload;
  };
  EXPECT_EQ(payload(Join(U32(0), handler)), Join(U32(0), handler));
  EXPECT_EQ(payload(handler), Join(U32(0), handler));
}

}  // namespace
}  // namespace toolbox
