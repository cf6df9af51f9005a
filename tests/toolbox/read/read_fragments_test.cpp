#include "toolbox/read/read_fragments.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_groups.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/auxiliary_data.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/write/update_file.h"

namespace toolbox {
namespace {

using Edits = std::vector<Edit>;

// All properties of a sample in a table.
struct Seen {
  std::uint64_t at = 0;
  std::uint32_t size = 0;
  std::int64_t time = 0, duration = 0, shown = 0;
  bool isSync = true;
  std::uint32_t description = 0;
  friend bool operator==(const Seen&, const Seen&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Seen& seen) {
    return out << "{" << seen.at << ", " << seen.size << ", " << seen.time << ", " << seen.duration
               << ", " << seen.shown << ", " << seen.isSync << ", " << seen.description << "}";
  }
};

std::vector<Seen> SeenIn(const SampleTable& table) {
  std::vector<Seen> all;
  ForEachPiece(table, {0, table.Count()}, [&](const SamplePiece& piece) {
    std::uint64_t at = piece.offset;
    for (std::uint64_t i = piece.sample; i < piece.sample + piece.count; ++i) {
      const auto size = static_cast<std::uint32_t>(SizeOf(table, i, 1, piece.description));
      all.push_back({at, size, table.TimeOf(i).units, table.DurationOf(i).units,
                     ShownAt(table, i).units, table.SyncAtOrBefore(i) == i, piece.description});
      at += size;
    }
  });
  return all;
}

const Bytes kDescriptions =
    Atom("stsd", U32(0), U32(2), Atom("test", Zeros(6), U16(1)), Atom("more", Zeros(6), U16(1)));
// Unless a test says otherwise: sync samples of 10 units and 4 bytes with the first description.
Bytes Defaults(std::uint32_t track) {
  return Atom("trex", U32(0), U32(track), U32(1), U32(10), U32(4), U32(0));
}
Bytes Header(std::uint32_t track, std::uint32_t flags = 0, const Bytes& fields = {}) {
  return Atom("tfhd", U32(flags), U32(track), fields);
}
Bytes Time(std::uint64_t time) { return Atom("tfdt", U32(0x01000000), U64(time)); }
Bytes RunOf(std::uint32_t count, std::uint32_t flags = 0, const Bytes& fields = {}) {
  return Atom("trun", U32(flags), U32(count), fields);
}
template <std::same_as<Bytes>... Parts>
Bytes Fragment(const Parts&... tracks) {
  return Atom("moof", Atom("mfhd", U32(0), U32(1)), tracks...);
}
template <std::same_as<Bytes>... Parts>
Bytes Plain(const Parts&... parts) {
  return Join(Fragment(Atom("traf", parts...)), Atom("mdat", Zeros(400)));
}
constexpr std::uint32_t kNoSync = 0x10000;

class ReadFragments : public InFolder {
 protected:
  // A movie of tracks 1 and 2 of scale 600 whose header is 2000 bytes long with its padding.
  std::unique_ptr<MovieRecord> Read(const Bytes& fragments, const TrackInFile& first = {},
                                    const TrackInFile& second = {.id = 2}) {
    const auto track = [](TrackInFile given) {
      if (given.table.empty()) given.table = kDescriptions;
      return TrackAtom(given);
    };
    Bytes file = Atom("moov", MovieHeaderAtom(), track(first), track(second),
                      Atom("mvex", Defaults(1), Defaults(2), Defaults(9)));
    file = Join(file, Atom("free", Zeros(1992 - file.size())));
    EXPECT_EQ(file.size(), 2000U);
    return ReadMovieFile(Store("in.mp4", Join(file, fragments)), References::kResolve);
  }
  std::vector<Seen> Samples(const Bytes& fragments, std::size_t track = 0) {
    return SeenIn(Read(fragments)->tracks[track]->media->samples);
  }
};

TEST_F(ReadFragments, FindsDataFromEveryBase) {
  EXPECT_EQ(Samples(Plain(Header(1, 1, U64(5)), RunOf(2, 1, U32(7)), RunOf(1))),
            (std::vector<Seen>{{12, 4, 0, 10, 0}, {16, 4, 10, 10, 10}, {20, 4, 20, 10, 20}}));
  const Bytes back = Plain(Header(1, 0x20000), RunOf(1, 1, U32(0xFFFFFFF6)));
  EXPECT_EQ(Samples(back).at(0).at, 1990U);
  // Without a base offset, the first track starts at the fragment, and each next one where the data
  // of the one before ends.
  const auto traf = [](std::uint32_t track, std::uint32_t flags) {
    return Atom("traf", Header(track, flags), RunOf(3, 1, U32(20)));
  };
  const Bytes data = Atom("mdat", Zeros(400));
  EXPECT_EQ(Samples(Join(Fragment(traf(1, 0), traf(2, 0)), data), 0).at(0).at, 2020U);
  EXPECT_EQ(Samples(Join(Fragment(traf(1, 0), traf(2, 0)), data), 1).at(0).at, 2052U);
  EXPECT_EQ(Samples(Join(Fragment(traf(1, 0), traf(2, 0x20000)), data), 1).at(0).at, 2020U);
  // Data of a track that the movie does not have is counted too.
  EXPECT_EQ(Samples(Join(Fragment(traf(9, 0), traf(2, 0)), data), 1).at(0).at, 2052U);
}

TEST_F(ReadFragments, TakesFromTheHeadersWhatARunDoesNotState) {
  const Bytes own =
      Header(1, 0x20000 | 2 | 8 | 0x10 | 0x20, Join(U32(2), U32(20), U32(5), U32(kNoSync)));
  const Bytes all = RunOf(2, 0x01000F01,
                          Join(U32(100), U32(7), U32(1), U32(0), U32(0xFFFFFFFE), U32(8), U32(2),
                               U32(kNoSync), U32(3)));
  EXPECT_EQ(Samples(Plain(own, RunOf(2, 5, Join(U32(100), U32(0))), all)),
            (std::vector<Seen>{{2100, 5, 0, 20, 0, true, 1},
                               {2105, 5, 20, 20, 20, false, 1},
                               {2100, 1, 40, 7, 38, true, 1},
                               {2101, 2, 47, 8, 50, false, 1}}));
}

TEST_F(ReadFragments, KeepsInOneRunWhatIsAlike) {
  Bytes fragments;
  for (std::uint64_t i = 0; i < 100; ++i) {
    fragments = Join(fragments, Fragment(Atom("traf", Header(1, 0x20000), Time(20 * i), RunOf(2))));
  }
  const auto movie = Read(fragments);
  const SampleRows& rows = *movie->tracks[0]->media->samples.WholeRows();
  EXPECT_EQ(rows.count, 200U);
  EXPECT_EQ(rows.times.size(), 1U);
  EXPECT_EQ(rows.chunkRuns.From(0)->end, rows.count) << "one run";
  EXPECT_TRUE(rows.sizes.IsEmpty() && rows.offsets.IsEmpty() && !rows.sync);
}

TEST_F(ReadFragments, KeepsInStepWithTheTimesThatAreStated) {
  using Deltas = std::vector<std::int64_t>;
  const auto deltas = [&](const std::vector<std::uint64_t>& times) {
    Bytes fragments;
    for (const std::uint64_t time : times) {
      fragments = Join(fragments, Plain(Header(1, 0x20000), Time(time), RunOf(2)));
    }
    Deltas found;
    for (const Seen& seen : Samples(fragments)) found.push_back(seen.duration);
    return found;
  };
  EXPECT_EQ(deltas({0, 20}), (Deltas{10, 10, 10, 10}));
  EXPECT_EQ(deltas({0, 25}), (Deltas{10, 15, 10, 10})) << "a gap";
  EXPECT_EQ(deltas({0, 18}), (Deltas{10, 8, 10, 10})) << "rounded times";
  EXPECT_EQ(deltas({700, 720}), (Deltas{10, 10, 10, 10})) << "it starts late";
  EXPECT_EQ(deltas({700, 0, 25}), (Deltas{10, 10, 10, 15, 10, 10})) << "the clock started again";
  EXPECT_EQ(deltas({0, 0x200000000, 0x200000014}), Deltas(6, 10)) << "it jumped";
  EXPECT_THROW(deltas({UINT64_MAX}), Malformed);
}

// The samples of a fragment last 20 units each and start at `time`.
TEST_F(ReadFragments, ShowsNoTextBetweenFragments) {
  const auto fragment = [](std::uint64_t time) {
    return Plain(Header(1, 0x20000), Time(time), RunOf(2));
  };
  const Bytes fragments = Join(fragment(100), fragment(120), fragment(200), fragment(230));
  const Bytes list = Atom("edts", Atom("elst", U32(0), U32(1), U32(70), U32(110), U32(0x10000)));
  const auto edits = [&](const std::string& kind, const Bytes& stated) {
    return Read(fragments, {.kind = kind, .edits = stated})->tracks[0]->edits.Edits();
  };
  const Edit none{{40}, {60}, Edit::kNothing, 1.0};
  EXPECT_EQ(edits("vide", {}), (Edits{{{0}, {150}, {0}, 1.0}}));
  EXPECT_EQ(edits("sbtl", {}), (Edits{{{0}, {40}, {0}, 1.0},
                                      none,
                                      {{100}, {20}, {100}, 1.0},
                                      {{120}, {10}, Edit::kNothing, 1.0},
                                      {{130}, {20}, {130}, 1.0}}));
  EXPECT_EQ(edits("text", list), (Edits{{{0}, {30}, {10}, 1.0}}));
}

TEST_F(ReadFragments, ApplyTheEditListFromTheStartOfTheMedia) {
  const auto entry = [](std::uint32_t duration, std::uint32_t mediaTime) {
    return Join(U32(duration), U32(mediaTime), U32(0x10000));
  };
  const auto edits = [&](std::uint64_t time, std::uint64_t other, const Bytes& entries) {
    const Bytes shownLate = RunOf(2, 0x801, Join(U32(100), U32(5), U32(5)));
    const Bytes tracks =
        Fragment(Atom("traf", Header(1, 0x20000), Time(time), shownLate),
                 Atom("traf", Header(2, 0x20000), Time(other), RunOf(2, 1, U32(100))));
    TrackInFile first;
    if (!entries.empty()) {
      const auto count = static_cast<std::uint32_t>(entries.size() / 12);
      first.edits = Atom("edts", Atom("elst", U32(0), U32(count), entries));
    }
    const auto movie = Read(Join(tracks, Atom("mdat", Zeros(400))), first);
    return std::pair(movie->tracks[0]->edits.Edits(), movie->tracks[1]->edits.Offset().units);
  };
  constexpr MovieTime kNone{};
  EXPECT_EQ(edits(0, 0, {}),
            (std::pair(Edits{{kNone, {5}, Edit::kNothing}, {{5}, {20}, {5}}}, std::int64_t{0})));
  EXPECT_EQ(edits(0, 0, entry(0, 5)).first, (Edits{{kNone, {20}, {5}}}));
  EXPECT_EQ(edits(0, 0, entry(12, 5)).first, (Edits{{kNone, {12}, {5}}}));
  EXPECT_EQ(edits(0, 7, entry(0, 5)), (std::pair(Edits{{kNone, {20}, {5}}}, std::int64_t{7})));
  EXPECT_EQ(edits(1000, 1000, entry(0, 1005)),
            (std::pair(Edits{{kNone, {20}, {5}}}, std::int64_t{1000})));
  // The delay that both tracks share is removed; the rest of the longer one stays.
  EXPECT_EQ(edits(1000, 1000, entry(0, 5)),
            (std::pair(Edits{{kNone, {20}, {5}}}, std::int64_t{0})));
  EXPECT_EQ(edits(1000, 1012, {}), (std::pair(Edits{{kNone, {20}, {5}}}, std::int64_t{7})));
  EXPECT_EQ(edits(1000, 990, entry(0, 5)),
            (std::pair(Edits{{kNone, {10}, Edit::kNothing}, {{10}, {20}, {5}}}, std::int64_t{0})));
  EXPECT_EQ(edits(1000, 0, Join(entry(30, 0xFFFFFFFF), entry(1010, 5))).first,
            (Edits{{kNone, {1030}, Edit::kNothing}, {{1030}, {10}, {5}}}));
}

TEST_F(ReadFragments, ContinueTheSamplesOfTheHeader) {
  const Bytes table =
      Join(PlainTable(3, 10, 4, 8), Atom("stss", U32(0), U32(1), U32(1)), Atom("what", U32(3)));
  const Bytes fragment =
      Plain(Header(1, 0x20000), Time(35), RunOf(1, 0x201, Join(U32(50), U32(9))));
  for (const char* kind : {"vide", "soun"}) {
    const auto movie = Read(fragment, {.kind = kind, .table = table});
    EXPECT_EQ(SeenIn(movie->tracks[0]->media->samples),
              (std::vector<Seen>{{8, 4, 0, 10, 0},
                                 {12, 4, 10, 10, 10, false},
                                 {16, 4, 20, 15, 20, false},
                                 {2050, 9, 35, 10, 35}}));
    const Siblings& others = movie->tracks[0]->media->samples.WholeRows()->otherTables;
    EXPECT_EQ(FindSibling(others, FourCC{"what"}), nullptr) << "it knew three samples";
  }

  // An edit that ends with the samples of the header goes on.
  for (const auto& [stated, shown] : {std::pair(25U, 40), std::pair(20U, 20)}) {
    const Bytes list = Atom("edts", Atom("elst", U32(0), U32(1), U32(stated), U32(5), U32(65536)));
    const auto movie = Read(fragment, {.table = table, .edits = list});
    EXPECT_EQ(movie->tracks[0]->edits.Edits(), (Edits{{{0}, {shown}, {5}, 1.0}}));
  }
}

TEST_F(ReadFragments, BeginWithAnEmptyEditIfPicturesAreDelayed) {
  const auto edits = [&](std::uint32_t first, std::uint32_t second) {
    const Bytes run = RunOf(2, 0x800, Join(U32(first), U32(second)));
    return Read(Plain(Header(1, 0x20000), run))->tracks[0]->edits.Edits();
  };
  EXPECT_EQ(edits(0, 5), (Edits{{{0}, {25}, {0}, 1.0}}));
  EXPECT_EQ(edits(5, 5), (Edits{{{0}, {5}, Edit::kNothing, 1.0}, {{5}, {20}, {5}, 1.0}}));
}

TEST_F(ReadFragments, KeepTheDependenciesOfSamples) {
  const auto dependencies = [&](std::uint32_t first, std::uint32_t second) {
    const auto movie =
        Read(Plain(Header(1, 0x20000), RunOf(2, 0x400, Join(U32(first), U32(second)))));
    return movie->tracks[0]->media->samples.WholeRows()->dependencies;
  };
  EXPECT_EQ(dependencies(0x02000000, 0x01010000), Bytes()) << "as every such sample does";
  EXPECT_EQ(dependencies(0x02000000, 0x01810000), (Bytes{0x20, 0x18}));
  EXPECT_EQ(dependencies(0, 0x04000000), (Bytes{0, 0x40}));
}

TEST_F(ReadFragments, DropIncompleteSamples) {
  const Bytes whole = Plain(Header(1, 0x20000), RunOf(1, 1, U32(100)));
  const Bytes beyond = Plain(Header(1, 0x20000), RunOf(1, 1, U32(1 << 20)));
  const Bytes early = Plain(Header(1, 0x20000), RunOf(1, 1, U32(0x80000000)));
  EXPECT_EQ(Samples(Join(whole, beyond, whole)).size(), 1U);
  EXPECT_EQ(Samples(Join(whole, early)).size(), 1U);
  for (const std::size_t cut : {std::size_t{380}, whole.size() - 1}) {
    const Bytes rest(whole.begin(), whole.end() - static_cast<std::ptrdiff_t>(cut));
    EXPECT_EQ(Samples(Join(whole, rest)).size(), 1U) << cut;
  }
}

TEST_F(ReadFragments, BelieveNothing) {
  const auto read = [&](const auto&... parts) { Samples(Plain(parts...)); };
  const Bytes plain = Header(1, 0x20000);
  EXPECT_THROW(read(plain, RunOf(2, 0x200, U32(4))), Malformed) << "rows that are not there";
  EXPECT_THROW(read(Header(1, 2, U32(3)), RunOf(1)), Malformed) << "no such description";
  EXPECT_THROW(read(RunOf(1)), Malformed) << "no header";
  EXPECT_THROW(read(Header(1, 0x10, U32(0)), RunOf(0xFFFFFFFF)), Malformed) << "nothing, too often";
  EXPECT_THROW(Samples([&] {
                 Bytes claims;
                 for (int i = 0; i < 100; ++i)
                   claims = Join(claims, Atom("traf", plain, RunOf(500)));
                 return Join(Fragment(claims), Atom("mdat", Zeros(3000)));
               }()),
               Malformed)
      << "the same bytes, again and again";
  const Bytes piff = Join(BigEndian(0xA2394F525A9B4F14, 8), BigEndian(0xA2446C427C648DF4, 8));
  for (const Bytes& encryption :
       {Atom("senc", U32(0), U32(0)), Atom("saiz", Zeros(9)), Atom("uuid", piff, Zeros(8)),
        Join(Atom("saiz", U32(0), U8(0), U32(9), Zeros(8)), Atom("saio", U32(0), U32(1), U32(9))),
        Join(Atom("saiz", U32(0), U8(1), U32(9)), Atom("saio", U32(0), U32(2), Zeros(8)))}) {
    EXPECT_EQ(CodeOf([&] { read(plain, encryption, RunOf(1)); }), featureUnsupported);
  }
}

// Sound of two channels of 16 bits; `runs` are pairs of a size and a duration. Says how many
// samples of which size there are, and when each chunk starts.
class ReadFragmentsOfPlainSound : public ReadFragments {
 protected:
  using Runs = std::vector<std::pair<std::uint32_t, std::uint32_t>>;
  struct Found {
    std::uint32_t samples = 0, size = 0;
    std::vector<std::int64_t> chunks;
    friend bool operator==(const Found&, const Found&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Found& found) {
      out << found.samples << " x " << found.size << " at";
      for (const std::int64_t time : found.chunks) out << ' ' << time;
      return out;
    }
  };
  Found ReadSound(const std::vector<Runs>& fragments, const Bytes& more = {},
                  const char* format = "sowt", std::uint32_t inHeader = 0) {
    const Bytes description =
        Atom(format, Zeros(6), U16(1), Zeros(8), U16(2), U16(16), Zeros(4), U32(48000U << 16));
    Bytes table = Atom("stsd", U32(0), U32(1), description);
    if (inHeader != 0) {
      const Bytes plain = PlainTable(inHeader, 1, 1, 8);
      table = Join(table, Bytes(plain.begin() + 32, plain.end()));
    }
    Bytes file;
    for (const Runs& runs : fragments) {
      Bytes rows;
      for (const auto& [size, duration] : runs) rows = Join(rows, U32(duration), U32(size));
      const Bytes run = RunOf(static_cast<std::uint32_t>(runs.size()), 0x300, rows);
      file = Join(file, Plain(Header(1, 0x20000), more, run));
    }
    const auto movie = Read(file, {.kind = "soun", .table = table});
    const SampleTable& samples = movie->tracks[0]->media->samples;
    const SampleRows& all = *samples.WholeRows();
    Found found{all.count, all.constantSize, {}};
    std::uint64_t next = 0;
    ForEachPiece(samples, {0, samples.Count()}, [&](const SamplePiece& piece) {
      if (piece.offset != next) found.chunks.push_back(samples.TimeOf(piece.sample).units);
      next = piece.offset + piece.size;
    });
    return found;
  }
};

TEST_F(ReadFragmentsOfPlainSound, MakesFramesOfWholePackets) {
  const std::vector<Runs> fragments{{{40, 10}, {40, 10}}, {{12, 3}}};
  const Found frames{23, 4, {0, 20}};
  EXPECT_EQ(ReadSound(fragments), frames);
  EXPECT_EQ(ReadSound(fragments, {}, "ipcm"), frames);
  EXPECT_EQ(ReadSound(fragments, {}, "sowt", 5), (Found{28, 4, {0, 5, 25}}));
  // The samples stay as they are stated.
  EXPECT_EQ(ReadSound(fragments, {}, "mp4a"), (Found{3, 0, {0, 20}}));
  EXPECT_EQ(ReadSound({{{40, 10}, {40, 10}}, {{40, 11}}}), (Found{3, 40, {0, 20}})) << "a gap";
  EXPECT_EQ(ReadSound({{{40, 10}, {42, 10}}}), (Found{2, 0, {0}})) << "half a frame";
  const Bytes group = Join(Atom("sgpd", U32(0x01000000), Text("roll"), U32(2), U32(1), U16(0xFFFF)),
                           Atom("sbgp", U32(0), Text("roll"), U32(1), U32(2), U32(0x10001)));
  EXPECT_EQ(ReadSound({{{40, 10}, {40, 10}}}, group), (Found{2, 40, {0}}));
}

TEST_F(ReadFragments, HaveAuxiliaryData) {
  // Two samples without auxiliary information, then five with sizes 1 to 5 in two adjacent runs.
  const Bytes beside = Join(Atom("saiz", U32(0), U8(0), U32(5), Bytes{1, 2, 3, 4, 5}),
                            Atom("saio", U32(0), U32(1), U32(300)));
  const Bytes bare = Plain(Header(1, 0x20000), RunOf(2));
  const auto movie = Read(Join(bare, Plain(Header(1, 0x20000), beside, RunOf(2), RunOf(3))));
  const MediaRecord& media = *movie->tracks[0]->media;
  const auto found = FindAuxiliaryData(media, media.samples);
  ASSERT_EQ(found.size(), 1U);
  std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
  for (const CopyRange& range : found[0].ranges) ranges.emplace_back(range.at, range.length);
  const std::uint64_t base = 2000 + bare.size();
  EXPECT_EQ(ranges, (std::vector<std::pair<std::uint64_t, std::uint64_t>>{
                        {0, 0}, {base + 300, 3}, {base + 303, 12}}));
}

std::vector<std::uint32_t> GroupNumbers(const SampleRows& rows, FourCC grouping) {
  std::vector<std::uint32_t> numbers(rows.count, 99);
  for (const SampleGroup& group : rows.groups) {
    if (group.grouping != grouping) continue;
    for (const GroupRun& run : group.runs) {
      std::fill(numbers.begin() + std::min(run.sample, rows.count), numbers.end(), run.group);
    }
  }
  return numbers;
}

TEST_F(ReadFragments, PutSamplesIntoGroupsOfTheMovieAndOfTheirOwn) {
  const auto described = [](std::uint32_t version, const Bytes& more, std::uint16_t roll) {
    return Atom("sgpd", U32(version << 24), Text("roll"), U32(2), more, U32(1), U16(roll));
  };
  const auto mapped = [](const auto&... rows) {
    return Atom("sbgp", U32(0), Text("roll"), U32(sizeof...(rows)), rows...);
  };
  const auto row = [](std::uint32_t count, std::uint32_t number) {
    return Join(U32(count), U32(number));
  };
  const Bytes own = Join(described(1, {}, 0xFFFE), mapped(row(1, 0x10001), row(1, 1)));
  const Bytes again = Join(described(1, {}, 0xFFFF), mapped(row(9, 0x10001)));
  const Bytes packed = Atom("csgp", U32(0x15), Text("roll"), U32(1), U8(2), U8(3), U8(0), U8(1));
  const auto fragment = [](const Bytes& groups) {
    return Plain(Header(1, 0x20000), groups, RunOf(1), RunOf(2));
  };
  for (const bool hasDefault : {false, true}) {
    const Bytes table =
        Join(kDescriptions, described(hasDefault ? 2 : 1, hasDefault ? U32(1) : Bytes(), 0xFFFF));
    const auto movie =
        Read(Join(fragment({}), fragment(own), fragment(again), fragment(packed), fragment({})),
             {.table = table});
    const SampleRows& rows = *movie->tracks[0]->media->samples.WholeRows();
    const std::uint32_t none = hasDefault ? 1 : 0;
    EXPECT_EQ(GroupNumbers(rows, FourCC{"roll"}),
              (std::vector<std::uint32_t>{none, none, none, 2, 1, none, 1, 1, 1, 0, 1, 0, none,
                                          none, none}));
    const auto all = rows.groups.at(0).descriptions.value().Entries();
    ASSERT_TRUE(all);
    EXPECT_EQ(all->entries.size(), 2U);
    EXPECT_EQ(all->defaultNumber, none);
  }
}

}  // namespace
}  // namespace toolbox
