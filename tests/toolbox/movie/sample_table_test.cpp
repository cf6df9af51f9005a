#include "toolbox/movie/sample_table.h"

#include <array>

#include "tests/toolbox/movies.h"
#include "toolbox/movie/sample_times.h"

namespace toolbox {
namespace {

// A sample in the simple model that the table is compared with.
struct Sample {
  std::int64_t time = 0, duration = 0;  // decode time
  std::int32_t offset = 0;
  std::uint32_t size = 0, description = 0;
  std::uint64_t at = 0;  // in its file
  bool isSync = false, isPartial = false;
  std::uint8_t dependency = 0;
  std::uint64_t stretchStart = 0;
  friend bool operator==(const Sample&, const Sample&) = default;
};

struct Source {
  SampleTable table;
  std::vector<Sample> samples;
};

// Samples in chunks of three descriptions. Some sources have only the required tables.
Source SomeSource(Random& random, std::uint32_t count) {
  const bool isPlain = random.Below(3) == 0;
  Source source;
  auto rows = std::make_shared<SampleRows>();
  rows->count = count;
  if (isPlain) {
    rows->constantSize = 3;
  } else {
    rows->sync.emplace();
  }
  std::uint64_t place = 1000;
  for (std::uint32_t i = 0, chunk = 0; i < count; ++chunk) {
    const std::uint32_t perChunk = std::min(1 + random.Below(3), count - i);
    Sample sample{.size = 3, .description = random.Below(3), .isSync = true};
    place += random.Below(20);
    rows->AddChunks(chunk, 1, perChunk, sample.description);
    rows->chunkOffsets.Add(place);
    for (const std::uint32_t end = i + perChunk; i < end; ++i) {
      sample.duration = 1 + random.Below(3);
      rows->AddTimes(1, static_cast<std::uint32_t>(sample.duration));
      if (!isPlain) {
        sample.offset = static_cast<std::int32_t>(random.Below(16)) - 5;
        sample.size = random.Below(9);
        sample.isSync = random.Below(3) == 0;
        sample.isPartial = !sample.isSync && random.Flip();
        sample.dependency = static_cast<std::uint8_t>(random.Below(256));
        rows->AddOffsets(1, sample.offset);
        rows->sizes.Add(sample.size);
        if (sample.isSync) rows->sync->push_back(i);
        if (sample.isPartial) rows->partialSync.push_back(i);
        rows->dependencies.push_back(sample.dependency);
      }
      sample.at = std::exchange(place, place + sample.size);
      source.samples.push_back(sample);
    }
  }
  source.table = SampleTable(std::move(rows));
  return source;
}

// A table of random slices, and the model of it.
class Joined : public testing::TestWithParam<unsigned> {
 protected:
  Joined() {
    for (int i = 0; i < 3; ++i) sources_.push_back(SomeSource(random_, 1 + random_.Below(25)));
    for (int i = 0; i < 8; ++i) Append();
  }
  void Append();
  std::int64_t End() const {
    return samples_.empty() ? 0 : samples_.back().time + samples_.back().duration;
  }

  Random random_{GetParam()};
  std::vector<Source> sources_;
  SampleTable table_;
  std::vector<Sample> samples_;
  std::int64_t shownUntil_ = 0;
  // The source, the end and the descriptions of the slice added last.
  std::tuple<std::size_t, std::uint64_t, std::vector<std::uint32_t>> last_;
};

void Joined::Append() {
  const std::size_t index = random_.Below(sources_.size());
  const Source& source = sources_[index];
  const std::uint64_t count = source.samples.size();
  std::uint64_t from = random_.Below(count);
  const auto& [lastIndex, lastEnd, lastMap] = last_;
  if (index == lastIndex && lastEnd < count && random_.Flip()) from = lastEnd;
  const std::uint64_t to = from + random_.Below(count - from + 1);
  std::vector<std::uint32_t> map{random_.Below(2), 2 + random_.Below(2), 4};
  map.resize(1 + std::ranges::max(source.samples, {}, &Sample::description).description);
  const bool continues = index == lastIndex && from == lastEnd && map == lastMap;

  const std::int64_t base = table_.AppendSlice(source.table, {from, to}, map).units;
  if (from == to) {
    EXPECT_EQ(base, End());
    return;
  }
  const std::uint64_t stretch = continues ? samples_.back().stretchStart : samples_.size();
  std::vector<Sample> added;
  std::int64_t time = 0, shownFrom = INT64_MAX, shownUntil = INT64_MIN;
  for (std::uint64_t i = from; i < to; ++i) {
    Sample& sample = added.emplace_back(source.samples[i]);
    sample.time = base + time;
    sample.description = map[sample.description];
    sample.stretchStart = stretch;
    shownFrom = std::min(shownFrom, time + sample.offset);
    time += sample.duration;
    shownUntil = std::max(shownUntil, time + sample.offset);
  }
  const std::int64_t overlap = samples_.empty() || continues ? 0 : shownUntil_ - End() - shownFrom;
  if (overlap > 0) samples_.back().duration += overlap;
  EXPECT_EQ(base, End());
  shownUntil_ = std::max(shownUntil_, base + shownUntil);
  samples_.insert(samples_.end(), added.begin(), added.end());
  last_ = {index, to, map};
}

TEST_P(Joined, TellsTheTimeOfEverySample) {
  TimeCursor forward(table_), anyhow(table_);
  for (std::uint64_t i = 0; i < samples_.size(); ++i) {
    const Sample &sample = samples_[i], &other = samples_[random_.Below(samples_.size())];
    EXPECT_EQ(table_.TimeOf(i).units, sample.time);
    EXPECT_EQ(table_.DurationOf(i).units, sample.duration);
    EXPECT_EQ(ShownAt(table_, i).units, sample.time + sample.offset);
    EXPECT_EQ(forward.TimeOf(i).units, sample.time);
    EXPECT_EQ(forward.DurationOf(i).units, sample.duration);
    EXPECT_EQ(anyhow.TimeOf(static_cast<std::uint64_t>(&other - samples_.data())).units,
              other.time);
    for (std::int64_t later = 0; later < sample.duration; ++later) {
      ASSERT_EQ(table_.SampleAt({sample.time + later}), i);
    }
  }
  EXPECT_EQ(table_.Duration().units, End());
  EXPECT_EQ(anyhow.TimeOf(samples_.size()).units, End());
  EXPECT_EQ(table_.SampleAt({-1}), 0U);
  EXPECT_EQ(table_.SampleAt({End()}), samples_.size() - 1);
}

TEST_P(Joined, WalksEverySample) {
  std::vector<Sample> seen(samples_.size());
  std::size_t next = 0;
  const auto runInto = [&](auto Sample::*member) {
    return [&seen, &next, member](std::uint32_t count, auto value) {
      EXPECT_TRUE(next == 0 || seen.at(next - 1).*member != value) << "runs are not joined";
      while (count-- != 0) seen.at(next++).*member = value;
    };
  };
  ForEachTime(table_, runInto(&Sample::duration));
  EXPECT_EQ(std::exchange(next, 0), seen.size());
  ForEachOffset(table_, runInto(&Sample::offset));
  EXPECT_EQ(std::exchange(next, 0), seen.size());
  ForEachEncodedSize(table_, [&](ByteSpan rows) {
    Rows<SampleSize>(rows).ForEach([&](const auto& row) { seen.at(next++).size = row.size; });
  });
  EXPECT_EQ(std::exchange(next, 0), seen.size());
  ForEachValue(table_, &SampleRows::dependencies,
               [&](std::uint8_t byte) { seen.at(next++).dependency = byte; });
  EXPECT_EQ(next, seen.size());
  ForEachSync(table_, [&](std::uint64_t sample) { seen.at(sample).isSync = true; });
  ForEachPartialSync(table_, [&](std::uint64_t sample) { seen.at(sample).isPartial = true; });
  EXPECT_EQ(LocatedCount(table_), seen.size());
  for (std::uint64_t from = 0, to = 0; from < seen.size(); from = to) {
    to = from + 1 + random_.Below(seen.size() - from);
    std::vector<bool> used(5), expectedUse(5);
    ForEachPiece(table_, {from, to}, [&](const SamplePiece& piece) {
      EXPECT_EQ(SizeOf(table_, piece.sample, piece.count, piece.description), piece.size);
      std::uint64_t at = piece.offset;
      for (std::uint64_t i = piece.sample; i < piece.sample + piece.count; ++i) {
        seen.at(i).description = piece.description;
        seen[i].at = std::exchange(at, at + seen[i].size);
      }
      EXPECT_EQ(piece.offset + piece.size, at);
      expectedUse.at(piece.description) = true;
    });
    MarkDescriptions(table_, {from, to}, used);
    EXPECT_EQ(used, expectedUse);
  }
  for (std::uint64_t i = 0; i < seen.size(); ++i) {
    seen[i].time = table_.TimeOf(i).units;
    seen[i].stretchStart = table_.SliceOf(i).first;
    std::uint64_t sync = i;
    while (sync > samples_[i].stretchStart && !samples_[sync].isSync && !samples_[sync].isPartial) {
      --sync;
    }
    EXPECT_EQ(table_.SyncAtOrBefore(i), sync);
  }
  EXPECT_TRUE(seen == samples_);
}

// The samples that a player has to decode for [from, to), found by trying all: the one that is
// shown at `from`, those that are shown before `to`, and the samples between them.
TEST_P(Joined, FindsWhatIsShownInReorderedVideo) {
  const auto shown = [&](std::uint64_t i) { return samples_[i].time + samples_[i].offset; };
  const std::int64_t end = std::min(table_.Duration().units, shownUntil_);
  for (int round = 0; round < 200; ++round) {
    const auto from = std::int64_t{random_.Below(static_cast<std::uint64_t>(end))};
    const std::int64_t to = from + 1 + random_.Below(12);
    std::optional<std::uint64_t> onShow;
    std::uint64_t first = samples_.size(), last = 0;
    const auto include = [&](std::uint64_t i) {
      first = std::min(first, i);
      last = std::max(last, i);
    };
    for (std::uint64_t i = 0; i < samples_.size(); ++i) {
      if (shown(i) <= from && (!onShow || shown(i) >= shown(*onShow))) onShow = i;
      if (shown(i) > from && shown(i) < to) include(i);
    }
    if (onShow) include(*onShow);
    if (first == samples_.size()) continue;  // before the first is shown
    ASSERT_EQ(SamplesShownIn(table_, {from}, {to}), (SampleRange{first, last + 1}));
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Joined, testing::Range(1U, 41U));

TEST(SampleTable, SplitsNoPacket) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = 1000;
  rows->constantSize = 1;
  rows->packings = {{64, 34}};
  rows->AddTimes(1000, 1);
  rows->AddChunks(0, 7, 160, 0);  // of 64 + 64 + 32 samples, 1000 bytes apart
  for (std::uint64_t chunk = 0; chunk < 7; ++chunk) rows->chunkOffsets.Add(1000 * chunk);
  const SampleTable table(rows);
  EXPECT_EQ(WholePackets(table, {64, 128}), (SampleRange{64, 128}));
  EXPECT_EQ(WholePackets(table, {65, 130}), (SampleRange{64, 160}));
  EXPECT_EQ(WholePackets(table, {170, 290}), (SampleRange{160, 320}));
  EXPECT_EQ(WholePackets(table, {999, 1000}), (SampleRange{960, 1000}));
  std::vector<std::pair<std::uint64_t, std::uint64_t>> places;
  ForEachPiece(table, {64, 320},
               [&](const SamplePiece& piece) { places.emplace_back(piece.offset, piece.size); });
  EXPECT_EQ(places, (decltype(places){{34, 68}, {1000, 102}}));
}

// --- The samples that a track shows, in movie time

using Shown = std::vector<ShownSample>;

// The times found by asking for the first sample and then for each next one.
Shown Walk(const TrackRecord& track) {
  Shown found;
  auto next = NextShownSample(track, {-7}, true);
  for (; next; next = NextShownSample(track, next->start, false)) found.push_back(*next);
  return found;
}

// The same samples, found by checking every unit of the movie.
Shown Watched(const TrackRecord& track) {
  Shown found;
  const SampleTable& samples = track.media->samples;
  for (const Edit& edit : track.edits.Edits()) {
    std::optional<std::uint64_t> before;
    for (MovieTime time = edit.start; time < edit.End(); time += MovieTime{1}) {
      const auto shown = MediaTimeAt(track, time);
      if (!shown) continue;
      const auto [first, last] = SamplesShownIn(samples, *shown, *shown + MediaTime{1});
      const auto now = first == last ? std::nullopt : std::optional(first);
      if (now && now == before) {
        found.back().duration += MovieTime{1};
      } else if (now) {
        found.push_back({time, MovieTime{1}});
      }
      before = now;
    }
  }
  return found;
}

TEST(SamplesByTime, AreTheSamplesShownAtEachUnit) {
  Random random(5);
  for (int round = 0; round < 150 && !testing::Test::HasFailure(); ++round) {
    auto rows = PlainRows(0, 0, 1);
    rows->count = 1 + random.Below(12);
    for (std::uint32_t i = 0; i < rows->count; ++i) {
      rows->AddTimes(1, random.Below(3) * random.Below(40));
      if (round % 2 == 1) rows->AddOffsets(1, static_cast<std::int32_t>(random.Below(80)) - 20);
    }
    MovieRecord movie;
    movie.header.scale = 1 + static_cast<std::int32_t>(random.Below(100));
    const auto scale = 1 + static_cast<std::int32_t>(random.Below(100));
    TrackRecord& track = AddPlainTrack(movie, FourCC{"text"}, scale, rows);
    track.edits = {};
    for (int edit = 0; edit < 4; ++edit) {
      const bool isEmpty = random.Below(4) == 0;
      const MediaTime media = isEmpty ? Edit::kNothing : MediaTime{random.Below(200)};
      const double rate = isEmpty ? 1.0 : std::array{1.0, 1.0, 0.5, 3.0, 0.0}[random.Below(5)];
      track.edits.Append({random.Below(60)}, media, rate, track.TimeClock());
    }
    EXPECT_EQ(Walk(track), Watched(track)) << "round " << round;
  }
}

// --- Groups of samples

// Four samples in groups of that type. `rest` is what the 'sgpd' has after it; empty: no groups.
SampleTable Grouped(FourCC type, std::uint32_t version, const std::string& rest,
                    const std::vector<GroupRun>& runs) {
  auto rows = PlainRows(4, 1, 1);
  const SampleGroupDescriptions descriptions{version << 24, type, Made(rest)};
  if (!rest.empty()) rows->groups = {{type, 0, 0, descriptions, runs}};
  return SampleTable(rows);
}

TEST(SampleGroups, AreNumberedTogetherForAllFiles) {
  constexpr FourCC kRap{"rap "}, kOpaque{"oinf"};
  using Runs = std::vector<GroupRun>;
  const Runs runs{{0, 1}, {1, 0}, {3, 2}};
  // Entries of a byte each; version 2 has a default number.
  const std::tuple<FourCC, std::uint32_t, const char*, Runs, std::uint32_t, const char*, Runs,
                   const char*, const char*>
      cases[] = {
          {kRap, 1, "1 2 x0708", runs, 1, "1 2 x0708", {{0, 2}, {2, 1}}, "10022211", "1 2 x0708"},
          {kRap, 1, "1 2 x0708", runs, 1, "1 2 x0809", {{0, 2}, {2, 1}}, "10023322", "1 3 x070809"},
          {kRap, 1, "1 2 x0708", runs, 0, "1 x09", {{0, 1}, {1, 0}}, "10023000", "1 3 x070809"},
          {kRap, 1, "1 2 x0708", runs, 2, "1 2 2 x0907", {}, "10021111", "1 3 x070809"},
          {kRap, 1, "1 2 x0708", runs, 1, "", {}, "10020000", "1 2 x0708"},
          {kRap, 2, "1 1 1 x07", runs, 1, "", {}, "10020000", "1 1 1 x07"},
          // The default number is stated as such only if all samples have it.
          {kRap, 2, "1 1 1 x07", {}, 1, "", {}, "11110000", "1 1 1 x07"},
          {kRap, 2, "1 1 1 x07", {}, 2, "1 1 1 x07", {}, "default", "1 1 1 x07"},
          {kOpaque, 0, "2 x010203", runs, 0, "2 x010203", {{0, 2}}, "10022222", "2 x010203"},
          {kOpaque, 0, "2 x010203", runs, 0, "2 x010204", {{0, 2}}, "no groups", ""},
      };
  for (const auto& [type, version, first, firstRuns, nextVersion, next, nextRuns, numbers, joined] :
       cases) {
    SampleTable table = Grouped(type, version, first, firstRuns);
    table.AppendSlice(Grouped(type, nextVersion, next, nextRuns), {0, 4});
    EXPECT_EQ(ToldGroups(table), numbers) << next;
    for (const JoinedGroup& group : GroupsOf(table)) {
      EXPECT_EQ(group.descriptions.value().rest, Made(joined)) << next;
    }
  }
}

TEST(SampleGroups, StateHowFarBackDecodingStarts) {
  const SampleTable table = Grouped(FourCC{"roll"}, 2, "2 2 2 -1/2 -3/2", {{1, 1}, {2, 0}, {3, 2}});
  const std::optional<std::uint32_t> expected[] = {3, 1, {}, 3};
  for (std::uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(RollDistance(*table.WholeRows(), i), expected[i]) << i;
  }
}

}  // namespace
}  // namespace toolbox
