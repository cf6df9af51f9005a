#include "toolbox/movie/sample_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "tests/toolbox/movies.h"
#include "tests/toolbox/random.h"
#include "tests/toolbox/told.h"
#include "toolbox/movie/sample_columns.h"

namespace toolbox {
namespace {

// A sample in the simple model that the table is compared with.
struct Sample {
  std::int64_t duration = 0;
  std::int32_t offset = 0;
  std::uint32_t size = 0, description = 0;
  std::uint64_t at = 0;  // in its file
  bool isSync = false, isPartial = false;
  std::uint8_t dependency = 0;
  std::uint64_t stretchStart = 0;
  friend bool operator==(const Sample&, const Sample&) = default;
};

struct Source {
  Bytes file;  // rows of 'ctts' and 'stsc' that the table may be a view of
  SampleTable table;
  std::vector<Sample> samples;
};

// Makes the offsets and chunks of `rows` views of rows in a file, as they are after reading.
void ViewFile(Source& source, SampleRows& rows) {
  Bytes offsets, chunks;
  rows.offsets.ForEach(0, rows.offsets.Samples(), [&](std::uint32_t count, std::int32_t offset) {
    offsets = Join(offsets, U32(count), U32(static_cast<std::uint32_t>(offset)));
  });
  for (ChunkRuns::Walk run = rows.chunkRuns.From(0); !run.IsAtEnd(); run.Next()) {
    chunks =
        Join(chunks, U32(run->chunk + 1), U32(run->samplesPerChunk), U32(run->description + 1));
  }
  const auto chunkCount = static_cast<std::uint32_t>(rows.chunkOffsets.Count());
  source.file = Join(offsets, chunks);
  const ByteSpan file = source.file;
  if (!offsets.empty()) rows.offsets = *OffsetRuns::ViewOf(file.first(offsets.size()), rows.count);
  rows.chunkRuns = *ChunkRuns::ViewOf(file.subspan(offsets.size()), chunkCount, rows.count, 3);
}

Source SomeSource(Random& random, std::uint32_t count) {
  const bool hasOffsets = random.Flip(), hasSync = random.Flip(), hasPartial = random.Flip(),
             hasDependencies = random.Flip(), hasSizes = random.Flip();
  Source source;
  auto rows = std::make_shared<SampleRows>();
  rows->count = count;
  if (!hasSizes) rows->constantSize = 3;
  if (hasSync) rows->sync.emplace();
  std::uint64_t place = 1000;
  for (std::uint32_t i = 0, chunk = 0; i < count; ++chunk) {
    const std::uint32_t perChunk = std::min(1 + random.Below(3), count - i);
    Sample sample{.description = random.Below(3)};
    place += random.Below(20);
    rows->AddChunks(chunk, 1, perChunk, sample.description);
    rows->chunkOffsets.Add(place);
    for (const std::uint32_t end = i + perChunk; i < end; ++i) {
      sample.duration = 1 + random.Below(3);
      sample.offset = hasOffsets ? static_cast<std::int32_t>(random.Below(16)) - 5 : 0;
      sample.size = hasSizes ? random.Below(9) : 3;
      sample.at = std::exchange(place, place + sample.size);
      sample.isSync = !hasSync || random.Below(3) == 0;
      sample.isPartial = !sample.isSync && hasPartial && random.Flip();
      sample.dependency = static_cast<std::uint8_t>(hasDependencies ? random.Below(256) : 0);
      rows->AddTimes(1, static_cast<std::uint32_t>(sample.duration));
      if (hasOffsets) rows->AddOffsets(1, sample.offset);
      if (hasSizes) rows->sizes.Add(sample.size);
      if (hasSync && sample.isSync) rows->sync->push_back(i);
      if (sample.isPartial) rows->partialSync.push_back(i);
      if (hasDependencies) rows->dependencies.push_back(sample.dependency);
      source.samples.push_back(sample);
    }
  }
  if (random.Flip()) ViewFile(source, *rows);
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
  map.resize(1 + std::ranges::max(source.samples, {}, &Sample::description).description);
  const bool continues = index == lastIndex && from == lastEnd && map == lastMap;

  const std::int64_t base = table_.AppendSlice(source.table, {from, to}, map).units;
  const std::int64_t end = TimesOf(samples_).back();
  if (from == to) {
    EXPECT_EQ(base, end);
    return;
  }
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
  EXPECT_EQ(table_.Duration().units, times.back());
  EXPECT_EQ(table_.TimeOf(samples_.size()).units, times.back());
  EXPECT_EQ(table_.SampleAt({-1}), 0U);
  EXPECT_EQ(table_.SampleAt({times.back()}), samples_.size() - 1);
  for (std::int64_t time = 0; time < times.back(); ++time) {
    const auto after = std::ranges::upper_bound(times, time);
    ASSERT_EQ(table_.SampleAt({time}), static_cast<std::uint64_t>(after - times.begin() - 1));
  }
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
  ForEachPiece(table_, {0, seen.size()}, [&](const SamplePiece& piece) {
    std::uint64_t at = piece.offset;
    for (std::uint64_t i = piece.sample; i < piece.sample + piece.count; ++i) {
      seen.at(i).description = piece.description;
      seen[i].at = std::exchange(at, at + seen[i].size);
    }
    EXPECT_EQ(piece.offset + piece.size, at);
  });
  for (std::uint64_t i = 0; i < seen.size(); ++i) {
    seen[i].stretchStart = table_.SliceOf(i).first;
    std::uint64_t sync = i;
    while (sync > samples_[i].stretchStart && !samples_[sync].isSync && !samples_[sync].isPartial) {
      --sync;
    }
    EXPECT_EQ(table_.SyncAtOrBefore(i), sync);
  }
  EXPECT_TRUE(seen == samples_);
}

TEST_P(Joined, FindsTheBytesOfEveryStretch) {
  EXPECT_EQ(LocatedCount(table_), samples_.size());
  for (int round = 0; round < 30; ++round) {
    const std::uint64_t from = random_.Below(samples_.size());
    const std::uint64_t to = from + 1 + random_.Below(samples_.size() - from);
    std::uint64_t next = from;
    std::vector<bool> used(5), expectedUse(5);
    ForEachPiece(table_, {from, to}, [&](const SamplePiece& piece) {
      EXPECT_EQ(piece.sample, next);
      EXPECT_EQ(piece.offset, samples_[next].at);
      next += piece.count;
      EXPECT_EQ(piece.offset + piece.size, samples_[next - 1].at + samples_[next - 1].size);
      EXPECT_EQ(SizeOf(table_, piece.sample, piece.count, piece.description), piece.size);
      expectedUse.at(piece.description) = true;
    });
    EXPECT_EQ(next, to);
    MarkDescriptions(table_, {from, to}, used);
    EXPECT_EQ(used, expectedUse);
  }
}

// The samples that a player has to decode for [from, to), found by trying all: the one that is
// shown at `from`, those that are shown before `to`, and the samples between them.
TEST_P(Joined, FindsWhatIsShownInReorderedVideo) {
  const auto times = TimesOf(samples_);
  const auto shown = [&](std::uint64_t i) { return times[i] + samples_[i].offset; };
  const std::int64_t end = std::min(table_.Duration().units, shownUntil_);
  for (int round = 0; round < 200; ++round) {
    const auto from = std::int64_t{random_.Below(static_cast<std::uint64_t>(end))};
    const std::int64_t to = from + 1 + random_.Below(12);
    std::optional<std::uint64_t> onShow;
    std::uint64_t first = samples_.size(), last = 0;
    for (std::uint64_t i = 0; i < samples_.size(); ++i) {
      if (shown(i) <= from && (!onShow || shown(i) >= shown(*onShow))) onShow = i;
      if (shown(i) > from && shown(i) < to) first = std::min(first, i), last = i;
    }
    if (onShow) first = std::min(first, *onShow), last = std::max(last, *onShow);
    if (first == samples_.size()) continue;  // before the first is shown
    ASSERT_EQ(SamplesShownIn(table_, {from}, {to}), (SampleRange{first, last + 1}));
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Joined, testing::Range(1U, 41U));

TEST(SampleTable, MayBeAppendedToItself) {
  auto rows = PlainRows(3, 10, 1);
  for (const std::int32_t offset : {0, 30, 0}) rows->AddOffsets(1, offset);
  SampleTable table(rows);
  EXPECT_EQ(table.AppendSlice(table, {1, 3}), MediaTime{40});
  EXPECT_EQ(Told(table), "0+1:10 1+1:10^30 2+1:20 1+1:10^30 2+1:10");
  EXPECT_EQ(table.AppendSlice(table, {0, 2}), MediaTime{80}) << "without the longer sample";
  EXPECT_EQ(Told(table), "0+1:10 1+1:10^30 2+1:20 1+1:10^30 2+1:30 0+1:10 1+1:10^30");
  EXPECT_EQ(table.Duration(), MediaTime{100});
}

// Sound in packets, with `perChunk` samples in each chunk. The chunks are `apart` bytes apart.
std::shared_ptr<SampleRows> PackedSound(std::uint32_t count, std::uint32_t perChunk,
                                        Packing packing, std::uint64_t apart) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = count;
  rows->constantSize = 1;
  rows->packings = {packing};
  rows->AddTimes(count, 1);
  rows->AddChunks(0, UINT32_MAX, perChunk, 0);
  for (std::uint64_t chunk = 0; chunk <= count / perChunk; ++chunk) {
    rows->chunkOffsets.Add(apart * chunk);
  }
  return rows;
}

TEST(SampleTable, SplitsNoPacket) {
  const SampleTable table(PackedSound(1000, 160, {64, 34}, 1000));  // chunks of 64 + 64 + 32
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
  const auto start = std::chrono::steady_clock::now();
  const SampleTable sound(PackedSound(kCount, UINT32_MAX / 5, {1, 4}, 1ULL << 40));
  SampleTable table;
  for (std::uint64_t i = 0; i < 1000; ++i) table.AppendSlice(sound, {i, kCount});
  const std::uint64_t total = std::uint64_t{kCount} * 1000 - 999 * 500;
  EXPECT_EQ(table.Count(), total);
  EXPECT_EQ(table.SampleAt({table.Duration().units / 2}), total / 2);
  std::uint64_t samples = 0, bytes = 0;
  ForEachTime(table, [&](std::uint32_t count, std::int64_t) { samples += count; });
  ForEachPiece(table, {0, total}, [&](const SamplePiece& piece) { bytes += piece.size; });
  EXPECT_EQ(samples, total);
  EXPECT_EQ(bytes, 4 * total);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(SampleTable, KnowsHowManySamplesLieInAChunk) {
  auto rows = PlainRows(6, 10, 1);
  rows->count = 10;
  SampleTable table;
  table.AppendSlice(SampleTable(rows), {1, 10});
  EXPECT_EQ(LocatedCount(table), 5U);
  EXPECT_NO_THROW(CheckLocated(table, {0, 5}));
  EXPECT_THROW(CheckLocated(table, {4, 6}), Refused);
}

}  // namespace
}  // namespace toolbox
