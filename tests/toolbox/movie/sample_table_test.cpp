#include "toolbox/movie/sample_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "tests/toolbox/random.h"
#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/movie/sample_places.h"

namespace toolbox {
namespace {

// A sample in the simple model that the table is compared with.
struct Sample {
  std::int64_t duration = 0;
  std::int32_t offset = 0;
  std::uint32_t size = 0, description = 0;
  std::uint64_t at = 0;  // in its file
  bool isSync = true, isPartial = false;
  std::uint8_t dependency = 0;
  std::uint64_t stretchStart = 0;
};

struct Source {
  SampleTable table;
  std::vector<Sample> samples;
};

// What a source of a random table has in addition to times, sizes and chunks.
struct Features {
  bool offsets, sync, partial, dependencies, constantSize;
};

void FillTimes(Random& random, const Features& has, SampleRows& rows,
               std::vector<Sample>& samples) {
  for (std::size_t i = 0; i < samples.size();) {
    const auto run = std::min<std::size_t>(1 + random.Below(4), samples.size() - i);
    const std::uint32_t delta = 1 + random.Below(5);
    const auto offset = static_cast<std::int32_t>(random.Below(16)) - 5;
    rows.AddTimes(static_cast<std::uint32_t>(run), delta);
    if (has.offsets) rows.AddOffsets(static_cast<std::uint32_t>(run), offset);
    for (const std::size_t end = i + run; i < end; ++i) {
      samples[i].duration = delta;
      samples[i].offset = has.offsets ? offset : 0;
    }
  }
}

void FillSizes(Random& random, const Features& has, SampleRows& rows,
               std::vector<Sample>& samples) {
  if (has.constantSize) rows.constantSize = 3;
  for (Sample& sample : samples) {
    sample.size = has.constantSize ? 3 : random.Below(9);
    if (!has.constantSize) rows.sizes.Add(sample.size);
  }
  std::uint64_t place = 1000 + random.Below(100);
  for (std::uint32_t i = 0, chunk = 0; i < samples.size();) {
    const auto perChunk = std::min(static_cast<std::uint32_t>(1 + random.Below(3)),
                                   static_cast<std::uint32_t>(samples.size()) - i);
    const auto chunks = std::min(static_cast<std::uint32_t>(1 + random.Below(3)),
                                 (static_cast<std::uint32_t>(samples.size()) - i) / perChunk);
    const std::uint32_t description = random.Below(3);
    rows.AddChunks(chunk, chunks, perChunk, description);
    for (std::uint32_t k = 0; k < chunks; ++k, ++chunk) {
      place += random.Below(20);
      rows.chunkOffsets.Add(place);
      for (std::uint32_t end = i + perChunk; i < end; ++i) {
        samples[i].description = description;
        samples[i].at = place;
        place += samples[i].size;
      }
    }
  }
}

Source SomeSource(Random& random, std::size_t count) {
  const Features has{random.Flip(), random.Flip(), random.Below(4) == 0, random.Flip(),
                     random.Flip()};
  Source source;
  source.samples.resize(count);
  auto rows = std::make_shared<SampleRows>();
  rows->count = static_cast<std::uint32_t>(count);
  FillTimes(random, has, *rows, source.samples);
  FillSizes(random, has, *rows, source.samples);
  if (has.sync) rows->sync.emplace();
  for (std::uint32_t i = 0; i < count; ++i) {
    Sample& sample = source.samples[i];
    if (has.sync && !(sample.isSync = random.Below(3) == 0) && has.partial) {
      if ((sample.isPartial = random.Flip())) rows->partialSync.push_back(i);
    }
    if (has.sync && sample.isSync) rows->sync->push_back(i);
    if (has.dependencies) {
      sample.dependency = static_cast<std::uint8_t>(random.Below(256));
      rows->dependencies.push_back(sample.dependency);
    }
  }
  source.table = SampleTable(std::move(rows));
  return source;
}

std::vector<std::int64_t> TimesOf(const std::vector<Sample>& samples) {
  std::vector<std::int64_t> times{0};
  for (const Sample& sample : samples) times.push_back(times.back() + sample.duration);
  return times;
}

// A table of random slices, and the model of it.
class Joined : public testing::TestWithParam<unsigned> {
 protected:
  Joined() {
    for (int i = 0; i < 3; ++i) sources_.push_back(SomeSource(random_, 1 + random_.Below(25)));
    for (int i = 0; i < 8; ++i) Append();
  }
  void Append();

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
  const bool continues = index == lastIndex && from == lastEnd && map == lastMap;

  const std::int64_t base = table_.AppendSlice(source.table, {from, to}, map).units;
  if (from == to) {
    EXPECT_EQ(base, TimesOf(samples_).back());
    return;
  }

  const std::int64_t end = TimesOf(samples_).back();
  std::int64_t time = 0, shownFrom = INT64_MAX, shownUntil = INT64_MIN;
  for (std::uint64_t i = from; i < to; ++i) {
    const Sample& sample = source.samples[i];
    shownFrom = std::min(shownFrom, time + sample.offset);
    time += sample.duration;
    shownUntil = std::max(shownUntil, time + sample.offset);
  }
  const std::int64_t overlap = samples_.empty() || continues ? 0 : shownUntil_ - end - shownFrom;
  if (overlap > 0) samples_.back().duration += overlap;
  EXPECT_EQ(base, end + std::max<std::int64_t>(overlap, 0));
  EXPECT_TRUE(samples_.empty() || continues || base + shownFrom >= shownUntil_);
  shownUntil_ = std::max(shownUntil_, base + shownUntil);

  const std::uint64_t stretch = continues ? samples_.back().stretchStart : samples_.size();
  for (std::uint64_t i = from; i < to; ++i) {
    Sample sample = source.samples[i];
    sample.description = map[sample.description];
    sample.stretchStart = stretch;
    samples_.push_back(sample);
  }
  last_ = {index, to, map};
}

TEST_P(Joined, TellsTheTimeOfEverySample) {
  const auto times = TimesOf(samples_);
  ASSERT_EQ(table_.Count(), samples_.size());
  EXPECT_EQ(table_.Duration().units, times.back());
  EXPECT_EQ(table_.TimeOf(samples_.size()).units, times.back());
  TimeCursor forward(table_), anyhow(table_);
  for (std::uint64_t i = 0; i < samples_.size(); ++i) {
    EXPECT_EQ(table_.TimeOf(i).units, times[i]);
    EXPECT_EQ(table_.DurationOf(i).units, samples_[i].duration);
    EXPECT_EQ(ShownAt(table_, i).units, times[i] + samples_[i].offset);
    EXPECT_EQ(forward.TimeOf(i).units, times[i]);
    EXPECT_EQ(forward.DurationOf(i).units, samples_[i].duration);
    const std::uint64_t other = random_.Below(samples_.size() + 1);
    EXPECT_EQ(anyhow.TimeOf(other).units, times[other]);
  }
  EXPECT_EQ(table_.SampleAt({-1}), 0U);
  EXPECT_EQ(table_.SampleAt({times.back()}), samples_.size() - 1);
  for (std::int64_t time = 0; time < times.back(); ++time) {
    const auto after = std::ranges::upper_bound(times, time);
    ASSERT_EQ(table_.SampleAt({time}), static_cast<std::uint64_t>(after - times.begin() - 1));
  }
}

TEST_P(Joined, WalksEverySample) {
  std::vector<std::int64_t> durations, offsets;
  std::vector<std::uint32_t> sizes;
  std::vector<std::uint64_t> sync, partial;
  Bytes dependencies;
  ForEachTime(table_, [&](std::uint32_t count, std::int64_t delta) {
    EXPECT_TRUE(durations.empty() || durations.back() != delta) << "runs are not joined";
    durations.insert(durations.end(), count, delta);
  });
  ForEachOffset(table_, [&](std::uint32_t count, std::int32_t offset) {
    EXPECT_TRUE(offsets.empty() || offsets.back() != offset) << "runs are not joined";
    offsets.insert(offsets.end(), count, offset);
  });
  ForEachEncodedSize(table_, [&](ByteSpan rows) {
    Rows<SampleSize>(rows).ForEach([&](const SampleSize& row) { sizes.push_back(row.size); });
  });
  ForEachSync(table_, [&](std::uint64_t sample) { sync.push_back(sample); });
  ForEachPartialSync(table_, [&](std::uint64_t sample) { partial.push_back(sample); });
  ForEachValue(table_, &SampleRows::dependencies,
               [&](std::uint8_t byte) { dependencies.push_back(byte); });

  std::vector<std::uint64_t> expectedSync, expectedPartial;
  ASSERT_EQ(durations.size(), samples_.size());
  ASSERT_EQ(offsets.size(), samples_.size());
  ASSERT_EQ(sizes.size(), samples_.size());
  ASSERT_EQ(dependencies.size(), samples_.size());
  for (std::uint64_t i = 0; i < samples_.size(); ++i) {
    const Sample& sample = samples_[i];
    EXPECT_EQ(durations[i], sample.duration);
    EXPECT_EQ(offsets[i], sample.offset);
    EXPECT_EQ(sizes[i], sample.size);
    EXPECT_EQ(dependencies[i], sample.dependency);
    if (sample.isSync) expectedSync.push_back(i);
    if (sample.isPartial) expectedPartial.push_back(i);
    std::uint64_t before = i;
    while (before > sample.stretchStart && !samples_[before].isSync &&
           !samples_[before].isPartial) {
      --before;
    }
    EXPECT_EQ(table_.SyncAtOrBefore(i), before);
    EXPECT_EQ(table_.SliceOf(i).first, sample.stretchStart);
  }
  EXPECT_EQ(sync, expectedSync);
  EXPECT_EQ(partial, expectedPartial);
}

TEST_P(Joined, FindsTheBytesOfEveryStretch) {
  EXPECT_EQ(LocatedCount(table_), samples_.size());
  EXPECT_NO_THROW(CheckLocated(table_, {0, samples_.size()}));
  for (int round = 0; round < 30; ++round) {
    const std::uint64_t from = random_.Below(samples_.size());
    const std::uint64_t to = from + 1 + random_.Below(samples_.size() - from);
    std::uint64_t next = from;
    std::vector<bool> used(5), expectedUse(5);
    ForEachPiece(table_, {from, to}, [&](const SamplePiece& piece) {
      EXPECT_EQ(piece.sample, next);
      EXPECT_GT(piece.count, 0U);
      std::uint64_t at = piece.offset;
      for (const std::uint64_t end = std::min<std::uint64_t>(next + piece.count, to); next < end;) {
        EXPECT_EQ(samples_[next].description, piece.description);
        EXPECT_EQ(samples_[next].at, at);
        expectedUse[piece.description] = true;
        at += samples_[next++].size;
      }
      EXPECT_EQ(piece.offset + piece.size, at);
      EXPECT_EQ(SizeOf(table_, piece.sample, piece.count, piece.description), piece.size);
    });
    EXPECT_EQ(next, to);
    MarkDescriptions(table_, {from, to}, used);
    EXPECT_EQ(used, expectedUse);
  }
}

// The samples that a player has to decode for [from, to), found by trying all: the one that is
// shown at `from`, those that are shown before `to`, and the samples between them.
SampleRange ShownByBruteForce(const std::vector<Sample>& samples, std::int64_t from,
                              std::int64_t to) {
  const auto times = TimesOf(samples);
  std::uint64_t first = samples.size(), last = 0;
  std::optional<std::uint64_t> onShow;
  const auto shown = [&](std::uint64_t i) { return times[i] + samples[i].offset; };
  for (std::uint64_t i = 0; i < samples.size(); ++i) {
    if (shown(i) <= from) {
      if (!onShow || shown(i) >= shown(*onShow)) onShow = i;
    } else if (shown(i) < to) {
      first = std::min(first, i);
      last = i;
    }
  }
  if (onShow) first = std::min(first, *onShow), last = std::max(last, *onShow);
  return {first, last + 1};
}

TEST_P(Joined, FindsWhatIsShownInReorderedVideo) {
  const std::int64_t end = std::min(table_.Duration().units, shownUntil_);
  for (int round = 0; round < 200; ++round) {
    const auto from = std::int64_t{random_.Below(static_cast<std::uint64_t>(end))};
    const std::int64_t to = from + 1 + random_.Below(12);
    const auto expected = ShownByBruteForce(samples_, from, to);
    if (expected.from == samples_.size()) continue;  // before the first is shown
    ASSERT_EQ(SamplesShownIn(table_, {from}, {to}), expected) << from << " to " << to;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Joined, testing::Range(1U, 41U));

// A clip whose pictures are decoded two units before they are shown.
SampleTable Clip(std::vector<std::int32_t> offsets, std::uint32_t delta = 10) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = static_cast<std::uint32_t>(offsets.size());
  rows->AddTimes(rows->count, delta);
  for (const std::int32_t offset : offsets) rows->AddOffsets(1, offset);
  rows->AddChunks(0, 1, rows->count, 0);
  rows->constantSize = 1;
  rows->chunkOffsets.Add(0);
  return SampleTable(rows);
}

TEST(SampleTable, StretchesNothingBetweenEqualClips) {
  const SampleTable clip = Clip({20, 40, 10, 10});
  SampleTable joined;
  joined.AppendSlice(clip, {0, 4});
  EXPECT_EQ(joined.AppendSlice(clip, {0, 4}), MediaTime{40});
  EXPECT_EQ(joined.Duration(), MediaTime{80});
}

TEST(SampleTable, StretchesTheLastSampleWherePicturesWouldOverlap) {
  const SampleTable reordered = Clip({20, 40, 10, 10}), plain = Clip({0, 0});
  SampleTable joined;
  joined.AppendSlice(reordered, {0, 4});
  EXPECT_EQ(joined.AppendSlice(plain, {0, 2}), MediaTime{60});
  EXPECT_EQ(joined.DurationOf(3), MediaTime{30});
  EXPECT_EQ(joined.SampleAt({59}), 3U);
  SampleTable again;
  again.AppendSlice(joined, {0, 6});
  EXPECT_EQ(again.Duration(), MediaTime{80});
}

TEST(SampleTable, MayBeAppendedToItself) {
  SampleTable table = Clip({0, 0, 0});
  EXPECT_EQ(table.AppendSlice(table, {1, 3}), MediaTime{30});
  EXPECT_EQ(table.Count(), 5U);
  EXPECT_EQ(table.Duration(), MediaTime{50});
}

// An hour of packed sound with one description and `perChunk` samples in each chunk.
std::shared_ptr<SampleRows> PackedSound(std::uint32_t count, std::uint32_t perChunk,
                                        Packing packing) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = count;
  rows->constantSize = 1;
  rows->packings = {packing};
  rows->AddTimes(count, 1);
  rows->AddChunks(0, UINT32_MAX, perChunk, 0);
  return rows;
}

TEST(SampleTable, SplitsNoPacket) {
  auto rows = PackedSound(1000, 160, {64, 34});  // chunks of 64 + 64 + 32
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

TEST(SampleTable, KnowsFourBillionSamplesInNoTime) {
  constexpr std::uint32_t kCount = UINT32_MAX;
  auto rows = PackedSound(kCount, UINT32_MAX / 5, {1, 4});
  for (std::uint64_t chunk = 0; chunk < 5; ++chunk) rows->chunkOffsets.Add(chunk << 40);
  const auto start = std::chrono::steady_clock::now();
  const SampleTable sound(rows);
  SampleTable table;
  for (int i = 0; i < 1000; ++i) {
    table.AppendSlice(sound, {static_cast<std::uint64_t>(i), kCount});
  }
  const std::uint64_t total = std::uint64_t{kCount} * 1000 - 999 * 500;
  EXPECT_EQ(table.Count(), total);
  EXPECT_EQ(table.Duration().units, static_cast<std::int64_t>(total));
  EXPECT_EQ(table.SampleAt({table.Duration().units / 2}), total / 2);
  std::uint64_t samples = 0, bytes = 0;
  ForEachTime(table, [&](std::uint32_t count, std::int64_t) { samples += count; });
  ForEachPiece(table, {0, total}, [&](const SamplePiece& piece) { bytes += piece.size; });
  EXPECT_EQ(samples, total);
  EXPECT_EQ(bytes, 4 * total);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(SampleTable, ReadsTheRollDistanceOfASample) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = 10;
  rows->AddTimes(10, 1024);
  const FourCC roll{"roll"};
  const SampleGroupDescriptions descriptions{
      1 << 24, roll, {0, 0, 0, 2, 0, 0, 0, 2, 0xFF, 0xFF, 0xFF, 0xFD}};
  rows->groups.push_back({roll, 0, 0, descriptions, {{0, 0}, {2, 1}, {5, 2}}});
  EXPECT_EQ(RollDistance(*rows, 1), std::nullopt);
  EXPECT_EQ(RollDistance(*rows, 4), 1U);
  EXPECT_EQ(RollDistance(*rows, 9), 3U);
}

TEST(SampleTable, AppendedInStepShowsEachClipFromWhereTheLastWasDecoded) {
  const SampleTable reordered = Clip({20, 40, 10, 10}), plain = Clip({0, 0});
  SampleTable joined;
  EXPECT_EQ(joined.AppendWithoutDelay(reordered, {0, 4}, std::vector{0U}), MediaTime{0});
  EXPECT_EQ(joined.AppendWithoutDelay(plain, {0, 2}, std::vector{0U}), MediaTime{40});
  // Moving it in parts gives the same result as moving it at once.
  EXPECT_EQ(joined.AppendWithoutDelay(reordered, {0, 2}, std::vector{0U}), MediaTime{60});
  EXPECT_EQ(joined.AppendWithoutDelay(reordered, {2, 4}, std::vector{0U}), MediaTime{80});
  EXPECT_EQ(joined.Duration(), MediaTime{100});
  std::vector<std::int64_t> shown;
  for (std::uint64_t i = 0; i < joined.Count(); ++i) shown.push_back(ShownAt(joined, i).units);
  EXPECT_EQ(shown, (std::vector<std::int64_t>{0, 30, 10, 20, 40, 50, 60, 90, 70, 80}));
  EXPECT_EQ(joined.ShownUntil(), MediaTime{100});
  std::vector<std::int32_t> offsets;
  ForEachOffset(joined, [&](std::uint32_t count, std::int32_t offset) {
    offsets.insert(offsets.end(), count, offset);
  });
  EXPECT_EQ(offsets, (std::vector<std::int32_t>{0, 20, -10, -10, 0, 0, 0, 20, -10, -10}));
  EXPECT_EQ(OffsetsVersion(joined), 1U);
  EXPECT_EQ(SamplesShownIn(joined, {20}, {30}), (SampleRange{3, 4}));
  EXPECT_EQ(ShownAt(joined.Rescaled(600, 1200), 1), MediaTime{60});
}

TEST(SampleTable, KnowsHowManySamplesLieInAChunk) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = 10;
  rows->AddTimes(10, 1);
  rows->AddChunks(0, 2, 3, 0);
  rows->chunkOffsets.Add(0), rows->chunkOffsets.Add(100);
  rows->constantSize = 1;
  SampleTable table;
  table.AppendSlice(SampleTable(rows), {1, 10});
  EXPECT_EQ(LocatedCount(table), 5U);
  EXPECT_NO_THROW(CheckLocated(table, {0, 5}));
  EXPECT_THROW(CheckLocated(table, {4, 6}), Refused);
}

}  // namespace
}  // namespace toolbox
