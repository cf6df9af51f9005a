#include "toolbox/read/read_fragments.h"

#include "tests/toolbox/movies.h"
#include "toolbox/plan/auxiliary_data.h"
#include "toolbox/read/read_movie.h"

namespace toolbox {
namespace {

// A fragment of one track, with 400 bytes of data. Unless a test says otherwise, it has sync
// samples of 10 units and 4 bytes with the first description.
Bytes Plain(const std::string& traf) {
  return Made("moof{ mfhd{ 0 1 } traf{ $ } } mdat{ *400 }", {Made(traf)});
}
// The usual header of a fragment of track 1, and one with a decode time.
const std::string kHeader = "tfhd{ 0x20000 1 } ";
std::string At(std::uint64_t time) {
  return kHeader + "tfdt{ 0x01000000 " + std::to_string(time) + "/8 } ";
}

class ReadFragments : public InFolder {
 protected:
  // A movie of tracks 1 and 2 of scale 600 whose header is 2000 bytes long with its padding.
  std::unique_ptr<MovieRecord> Read(const Bytes& fragments, TrackInFile first = {}) {
    const Bytes table = Made("stsd{ 0 2 test{ *6 1/2 } more{ *6 1/2 } }");
    if (first.table.empty()) first.table = table;
    const Bytes header =
        Made("moov{ $ $ $ mvex{ trex{ 0 1 1 10 4 0 } trex{ 0 2 1 10 4 0 } trex{ 0 9 1 10 4 0 } } }",
             {MovieHeaderAtom(), TrackAtom(first), TrackAtom({.id = 2, .table = table})});
    const Bytes room = Atom("free", Zeros(1992 - header.size()));
    return ReadMovieFile(Store("in.mp4", Join(header, room, fragments)), References::kResolve);
  }
  SampleTable Samples(const Bytes& fragments, std::size_t track = 0) {
    return Read(fragments)->tracks[track]->media->samples;
  }
  std::string Edits(const Bytes& fragments, const TrackInFile& first = {}) {
    return Told(Read(fragments, first)->tracks[0]->edits);
  }
};

TEST_F(ReadFragments, FindsDataFromEveryBase) {
  EXPECT_EQ(Told(Samples(Plain("tfhd{ 1 1 5/8 } trun{ 1 2 7 } trun{ 0 1 }"))),
            "12+4:10 16+4:10 20+4:10");
  EXPECT_EQ(Told(Samples(Plain(kHeader + "trun{ 1 1 -10 }"))), "1990+4:10");
  EXPECT_EQ(Told(Samples(Plain("tfhd{ 0x2003A 1 2 20 5 0x10000 } trun{ 5 2 100 0 }"
                               " trun{ 0x01000F01 2 100  7 1 0 -2  8 2 0x10000 3 }"))),
            "2100+5:20#1 2105+5:20~#1 2100+1:7^-2#1 2101+2:8^3~#1");
  // Without a base offset, the first track starts at the fragment, and each next one where the data
  // of the one before ends. Data of a track that the movie does not have is counted too.
  for (const auto& [first, flags, expected] : {std::tuple("1", "0", "2052+4:10"),
                                               {"1", "0x20000", "2020+4:10"},
                                               {"9", "0", "2052+4:10"}}) {
    const Bytes fragment =
        Made("moof{ traf{ tfhd{ 0 " + std::string(first) + " } trun{ 1 3 20 } } traf{ tfhd{ " +
             flags + " 2 } trun{ 1 1 20 } } } mdat{ *400 }");
    EXPECT_EQ(Told(Samples(fragment, 1)), expected);
  }
}

// Fragments of two samples each that start at `times`.
Bytes Timed(const std::vector<std::uint64_t>& times) {
  Bytes fragments;
  for (const std::uint64_t time : times) {
    fragments = Join(fragments, Plain(At(time) + "trun{ 0 2 }"));
  }
  return fragments;
}

TEST_F(ReadFragments, KeepsInStepWithTheTimesThatAreStated) {
  const auto durations = [&](const std::vector<std::uint64_t>& times) {
    std::string text;
    ForEachTime(Samples(Timed(times)), [&](std::uint32_t count, std::int64_t duration) {
      text += std::to_string(count) + 'x' + std::to_string(duration) + ' ';
    });
    return text;
  };
  EXPECT_EQ(durations({0, 20}), "4x10 ");
  EXPECT_EQ(durations({0, 25}), "1x10 1x15 2x10 ") << "a gap";
  EXPECT_EQ(durations({0, 18}), "1x10 1x8 2x10 ") << "rounded times";
  EXPECT_EQ(durations({700, 720}), "4x10 ") << "it starts late";
  EXPECT_EQ(durations({700, 0, 25}), "3x10 1x15 2x10 ") << "the clock started again";
  EXPECT_EQ(durations({0, 0x200000000, 0x200000014}), "6x10 ") << "it jumped";
  EXPECT_THROW(durations({UINT64_MAX}), Malformed);
  // No text is shown between fragments.
  const Bytes fragments = Timed({100, 120, 200, 230});
  EXPECT_EQ(Edits(fragments), "0+150");
  EXPECT_EQ(Edits(fragments, {.kind = "sbtl"}), "0+40 gap+60 100+20 gap+10 130+20");
  const Bytes list = Made("edts{ elst{ 0 1 70 110 0x10000 } }");
  EXPECT_EQ(Edits(fragments, {.kind = "text", .edits = list}), "10+30");
}

TEST_F(ReadFragments, ApplyTheEditListFromTheStartOfTheMedia) {
  // The samples of track 1 last 20 units and are shown 5 units later. The delay that both tracks
  // share is removed; the rest of the longer one stays.
  for (const auto& [time, other, entries, expected] :
       {std::tuple(0U, 0U, "", "gap+5 5+20 | 0+20"),
        {0U, 0U, "1  0 5 0x10000", "5+20 | 0+20"},
        {0U, 0U, "1  12 5 0x10000", "5+12 | 0+20"},
        {0U, 7U, "1  0 5 0x10000", "5+20 | gap+7 0+20"},
        {1000U, 1000U, "1  0 1005 0x10000", "5+20 | gap+1000 0+20"},
        {1000U, 1000U, "1  0 5 0x10000", "5+20 | 0+20"},
        {1000U, 1012U, "", "5+20 | gap+7 0+20"},
        {1000U, 990U, "1  0 5 0x10000", "gap+10 5+20 | 0+20"},
        {1000U, 0U, "2  30 -1 0x10000  1010 5 0x10000", "gap+1030 5+10 | 0+20"}}) {
    const Bytes list = Made("edts{ elst{ 0 $ } }", {Made(entries)});
    const Bytes fragment = Made(
        "moof{ traf{ tfhd{ 0x20000 1 } tfdt{ 0x01000000 $ } trun{ 0x801 2 100 5 5 } }"
        " traf{ tfhd{ 0x20000 2 } tfdt{ 0x01000000 $ } trun{ 1 2 100 } } } mdat{ *400 }",
        {U64(time), U64(other)});
    EXPECT_EQ(Told(*Read(fragment, {.edits = *entries == 0 ? Bytes() : list})), expected)
        << time << ' ' << other << ' ' << entries;
  }
  // Without a list, the pictures are shown from the start unless all are delayed.
  EXPECT_EQ(Edits(Plain(kHeader + "trun{ 0x800 2 0 5 }")), "0+25");
}

TEST_F(ReadFragments, ContinueTheSamplesOfTheHeader) {
  const Bytes table = Join(PlainTable(3, 10, 4, 8), Made("stss{ 0 1 1 } what{ 3 }"));
  const Bytes fragment = Plain(At(35) + "trun{ 0x201 1 50 9 }");
  const auto movie = Read(fragment, {.table = table});
  const SampleTable& samples = movie->tracks[0]->media->samples;
  EXPECT_EQ(Told(samples), "8+4:10 12+4:10~ 16+4:15~ 2050+9:10");
  EXPECT_EQ(FindSibling(samples.WholeRows()->otherTables, FourCC{"what"}), nullptr)
      << "it knew three samples";
  // An edit that ends with the samples of the header goes on.
  for (const auto& [entry, shown] : {std::pair("25 5 0x10000", "5+40"), {"20 5 0x10000", "5+20"}}) {
    const Bytes list = Made("edts{ elst{ 0 1 $ } }", {Made(entry)});
    EXPECT_EQ(Edits(fragment, {.table = table, .edits = list}), shown);
  }
}

TEST_F(ReadFragments, KeepTheDependenciesOfSamples) {
  for (const auto& [flags, expected] : {std::pair("0x02000000 0x01010000", ""),  // nothing unusual
                                        {"0x02000000 0x01810000", "x2018"},
                                        {"0 0x04000000", "x0040"}}) {
    const SampleTable samples = Samples(Plain(kHeader + "trun{ 0x400 2 " + flags + " }"));
    EXPECT_EQ(samples.WholeRows()->dependencies, Made(expected));
  }
}

TEST_F(ReadFragments, DropIncompleteSamples) {
  const Bytes whole = Plain(kHeader + "trun{ 1 1 100 }");
  for (const Bytes& rest : {Join(Plain(kHeader + "trun{ 1 1 0x100000 }"), whole),
                            Plain(kHeader + "trun{ 1 1 0x80000000 }"),
                            First(whole, whole.size() - 380), First(whole, 1)}) {
    EXPECT_EQ(Told(Samples(Join(whole, rest))), "2100+4:10");
  }
}

TEST_F(ReadFragments, BelieveNothing) {
  for (const std::string& traf :
       {kHeader + "trun{ 0x200 2 4 }",  // rows that are not there
        std::string("tfhd{ 2 1 3 } trun{ 0 1 }"),  // no such description
        std::string("trun{ 0 1 }"),  // no header
        std::string("tfhd{ 0x10 1 0 } trun{ 0 0xFFFFFFFF }")}) {  // nothing, too often
    EXPECT_THROW(Samples(Plain(traf)), Malformed) << traf;
  }
  const Bytes again = Made("traf{ tfhd{ 0x20000 1 } trun{ 0 500 } }");  // the same 2000 bytes
  EXPECT_THROW(Samples(Made("moof{ $ $ $ } mdat{ *2000 }", {again, again, again})), Malformed);
  const Bytes unlocated = Made("stsd{ 0 1 test{ *6 1/2 } } stsz{ 0 4 5 }");
  EXPECT_THROW(Read(Plain(kHeader + "trun{ 0 1 }"), {.table = unlocated}), Malformed);
  for (const char* encryption :
       {"senc{ 0 0 }", "saiz{ *9 }", "uuid{ xA2394F525A9B4F14A2446C427C648DF4 *8 }",
        "saiz{ 0 0/1 9 *8 } saio{ 0 1 9 }", "saiz{ 0 1/1 9 } saio{ 0 2 *8 }"}) {
    EXPECT_EQ(CodeOf([&] { Samples(Plain(kHeader + encryption + " trun{ 0 1 }")); }),
              featureUnsupported)
        << encryption;
  }
}

TEST_F(ReadFragments, MakeFramesOfWholePacketsOfPlainSound) {
  // How many samples of which size there are of sound of two channels of 16 bits. The header has
  // `inHeader` of them.
  const auto read = [&](const std::vector<std::string>& fragments, const char* format = "sowt",
                        std::uint32_t inHeader = 0) {
    Bytes file, rest;
    for (const std::string& fragment : fragments) file = Join(file, Plain(kHeader + fragment));
    if (inHeader != 0) rest = PlainTable(inHeader, 1, 1, 8);
    rest.erase(rest.begin(), rest.begin() + (rest.empty() ? 0 : 32));  // without 'stsd'
    const Bytes table =
        Made("stsd{ 0 1 36 $ *6 1/2 *8 2/2 16/2 *4 48000/2 0/2 } $", {Text(format), rest});
    const SampleTable samples =
        Read(file, {.kind = "soun", .table = table})->tracks[0]->media->samples;
    return std::to_string(samples.Count()) + " of " +
           std::to_string(samples.WholeRows()->constantSize);
  };
  // Rows of a duration and a size.
  const std::string two = "trun{ 0x300 2  10 40  10 40 }", three = "trun{ 0x300 1  3 12 }";
  EXPECT_EQ(read({two, three}), "23 of 4");
  EXPECT_EQ(read({two, three}, "ipcm"), "23 of 4");
  EXPECT_EQ(read({two, three}, "sowt", 5), "28 of 4");
  // The samples stay as they are stated.
  EXPECT_EQ(read({two, three}, "mp4a"), "3 of 0");
  EXPECT_EQ(read({two, "trun{ 0x300 1  11 40 }"}), "3 of 40") << "a gap";
  EXPECT_EQ(read({"trun{ 0x300 2  10 40  10 42 }"}), "2 of 0") << "half a frame";
  EXPECT_EQ(read({"sgpd{ 0x01000000 'roll' 2 1 -1/2 } sbgp{ 0 'roll' 1 2 0x10001 } " + two}),
            "2 of 40");
}

TEST_F(ReadFragments, HaveAuxiliaryData) {
  // Two samples without auxiliary information, then five with sizes 1 to 5 in two adjacent runs.
  const Bytes bare = Plain(kHeader + "trun{ 0 2 }");
  const auto movie = Read(Join(bare, Plain(kHeader + "saiz{ 0 0/1 5 x0102030405 } saio{ 0 1 300 }"
                                                     " trun{ 0 2 } trun{ 0 3 }")));
  const MediaRecord& media = *movie->tracks[0]->media;
  std::vector<std::uint64_t> ranges;
  const auto found = FindAuxiliaryData(media, media.samples);
  for (const CopyRange& range : found.at(0).ranges) {
    ranges.insert(ranges.end(), {range.at, range.length});
  }
  const std::uint64_t base = 2000 + bare.size();
  EXPECT_EQ(ranges, (std::vector{0UL, 0UL, base + 300, 3UL, base + 303, 12UL}));
}

TEST_F(ReadFragments, PutSamplesIntoGroupsOfTheMovieAndOfTheirOwn) {
  const auto fragment = [](const std::string& groups) {
    return Plain(kHeader + groups + " trun{ 0 1 } trun{ 0 2 }");
  };
  const std::string description = "sgpd{ 0x01000000 'roll' 2 1 ";
  const Bytes fragments =
      Join(fragment(""), fragment(description + "-2/2 } sbgp{ 0 'roll' 2  1 0x10001  1 1 }"),
           fragment(description + "-1/2 } sbgp{ 0 'roll' 1  9 0x10001 }"),
           fragment("csgp{ 0x15 'roll' 1 x02030001 }"), fragment(""));
  for (const auto& [groups, expected] :  // the default number is 0 and 1
       {std::pair("sgpd{ 0x01000000 'roll' 2 1 -1/2 }", "000210111010000"),
        {"sgpd{ 0x02000000 'roll' 2 1 1 -1/2 }", "111211111010111"}}) {
    const Bytes table = Made("stsd{ 0 1 test{ *6 1/2 } } $", {Made(groups)});
    const auto movie = Read(fragments, {.table = table});
    EXPECT_EQ(ToldGroups(movie->tracks[0]->media->samples), expected);
  }
}

}  // namespace
}  // namespace toolbox
