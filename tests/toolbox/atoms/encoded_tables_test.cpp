#include "toolbox/atoms/encoded_tables.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/random.h"

namespace toolbox {
namespace {

TEST(EncodedNumbers, AreAViewUntilANumberIsAdded) {
  Bytes file = Join(U32(7), U32(0xFFFFFFFF));
  EncodedNumbers numbers(false, file);
  EncodedNumbers longer = numbers;
  longer.Add(2, 9);
  file[3] = 8;
  EXPECT_EQ(numbers[0], 8U);
  EXPECT_EQ(longer[0], 7U);
  longer.Add(std::uint64_t{1} << 32);
  std::vector<std::uint64_t> all;
  for (std::size_t i = 0; i < longer.Count(); ++i) all.push_back(longer[i]);
  EXPECT_EQ(all, (std::vector<std::uint64_t>{7, 0xFFFFFFFF, 9, 9, 0x100000000}));
  const Bytes wide = U64(0x123456789A);
  EXPECT_EQ(EncodedNumbers(true, wide)[0], 0x123456789AU);
}

TEST(OffsetRuns, AreFoundForEachSampleInAViewAndInAddedRows) {
  Random random(7);
  Bytes rows;
  OffsetRuns added;
  std::vector<OffsetRun> expected;
  for (std::uint32_t end = 0; expected.size() < 500; end = expected.back().end) {
    const std::uint32_t samples = 1 + random.Below(3);
    const std::int32_t offset = expected.size() % 2 == 0 ? 0 : -40000 + static_cast<int>(end);
    expected.push_back({end, end + samples, offset});
    rows = Join(rows, U32(samples), U32(static_cast<std::uint32_t>(offset)));
    // One sample at a time, as fragments add them.
    for (std::uint32_t i = 0; i < samples; ++i) added.Add(1, offset);
  }
  const std::uint32_t count = expected.back().end;
  const auto view = OffsetRuns::ViewOf(rows, count);
  ASSERT_TRUE(view);
  for (const OffsetRuns& runs : {added, *view}) {
    EXPECT_EQ(runs.Samples(), count);
    EXPECT_EQ(runs.Smallest(), expected[1].offset);
    EXPECT_EQ(runs.Largest(), 0);
    for (const OffsetRun& run : expected) {
      for (std::uint32_t sample = run.sample; sample < run.end; ++sample) {
        const OffsetRuns::Walk found = runs.From(sample);
        ASSERT_EQ(std::tuple(found->sample, found->end, found->offset),
                  std::tuple(run.sample, run.end, run.offset));
      }
    }
  }
}

TEST(OffsetRuns, AreNoViewOfRowsThatWouldNotBeWrittenSo) {
  const Bytes good = Join(U32(2), U32(5), U32(1), U32(6));
  EXPECT_TRUE(OffsetRuns::ViewOf(good, 3));
  EXPECT_FALSE(OffsetRuns::ViewOf(good, 2));
  EXPECT_FALSE(OffsetRuns::ViewOf(good, 4));
  EXPECT_FALSE(OffsetRuns::ViewOf(Join(U32(2), U32(5), U32(1), U32(5)), 3));
  EXPECT_FALSE(OffsetRuns::ViewOf(Join(good, U32(0), U32(7)), 3));
}

using Chunks =
    std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;
std::vector<Chunks> RunsFrom(const ChunkRuns& runs, std::uint32_t sample) {
  std::vector<Chunks> all;
  for (ChunkRuns::Walk run = runs.From(sample); !run.IsAtEnd(); run.Next()) {
    all.emplace_back(run->chunk, run->sample, run->end, run->samplesPerChunk, run->description);
  }
  return all;
}

TEST(ChunkRuns, IncludeChunksWithoutSamples) {
  ChunkRuns runs;
  runs.Add(1, 2, 3, 0);
  runs.Add(3, 1, 3, 0);  // continues the run
  runs.Add(7, 1, 4, 1);
  EXPECT_EQ(RunsFrom(runs, 0),
            (std::vector<Chunks>{{1, 0, 9, 3, 0}, {4, 9, 9, 0, 1}, {7, 9, 13, 4, 1}}));
  EXPECT_EQ(RunsFrom(runs, 9), (std::vector<Chunks>{{7, 9, 13, 4, 1}}));
  EXPECT_EQ(runs.Samples(), 13U);
  EXPECT_EQ(runs.Descriptions(), 2U);
}

TEST(ChunkRuns, AreAViewOfRowsInOrder) {
  const auto row = [](std::uint32_t chunk, std::uint32_t samples, std::uint32_t description) {
    return Join(U32(chunk), U32(samples), U32(description));
  };
  const Bytes good = Join(row(1, 2, 1), row(4, 5, 2));
  const auto runs = ChunkRuns::ViewOf(good, 5, 16, 2);
  ASSERT_TRUE(runs);
  EXPECT_EQ(RunsFrom(*runs, 0), (std::vector<Chunks>{{0, 0, 6, 2, 0}, {3, 6, 16, 5, 1}}));
  EXPECT_EQ(ChunkRuns::ViewOf(good, 5, 100, 2)->Samples(), 16U);
  EXPECT_FALSE(ChunkRuns::ViewOf(good, 5, 15, 2)) << "more than there are";
  EXPECT_FALSE(ChunkRuns::ViewOf(good, 3, 16, 2)) << "of chunks that are not there";
  EXPECT_FALSE(ChunkRuns::ViewOf(good, 5, 16, 1)) << "of a description that is not there";
  EXPECT_FALSE(ChunkRuns::ViewOf(Join(row(2, 2, 1), row(2, 5, 1)), 5, 16, 1));
  EXPECT_FALSE(ChunkRuns::ViewOf(Join(row(1, 0, 1), row(2, 5, 1)), 5, 16, 1));
  EXPECT_FALSE(ChunkRuns::ViewOf(row(0, 1, 1), 5, 16, 1));
}

TEST(ChunkRuns, StayInsideTheTablesWhenTheFileChanges) {
  const Bytes good = Join(U32(1), U32(2), U32(1), U32(4), U32(5), U32(1));
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (const int value : {0, 1, 9, 0xFF}) {
      Bytes file = good;
      const auto runs = ChunkRuns::ViewOf(file, 5, 16, 1);
      ASSERT_TRUE(runs);
      file[i] = static_cast<std::uint8_t>(value);
      try {
        for (const auto& [chunk, sample, end, perChunk, description] : RunsFrom(*runs, 0)) {
          ASSERT_LE(end, 16U);
          ASSERT_EQ(description, 0U);
          ASSERT_TRUE(end == sample || chunk + (end - sample + perChunk - 1) / perChunk <= 5);
        }
      } catch (const Refused& refused) {
        EXPECT_EQ(refused.code, invalidSampleTable);
      }
    }
  }
}

}  // namespace
}  // namespace toolbox
