#include "toolbox/atoms/encoded_tables.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

TEST(EncodedNumbers, AreAViewUntilANumberIsAdded) {
  Bytes file = Made("7 0xFFFFFFFF");
  EncodedNumbers numbers(false, file);
  EncodedNumbers longer = numbers;
  longer.Add(2, 9);
  file[3] = 8;
  EXPECT_EQ(numbers[0], 8U);
  longer.Add(std::uint64_t{1} << 32);
  std::vector<std::uint64_t> all;
  for (std::size_t i = 0; i < longer.Count(); ++i) all.push_back(longer[i]);
  EXPECT_EQ(all, (std::vector<std::uint64_t>{7, 0xFFFFFFFF, 9, 9, 0x100000000}));
  const Bytes wide = U64(0x123456789A);
  EXPECT_EQ(EncodedNumbers(true, wide)[0], 0x123456789AU);
}

TEST(OffsetRuns, AreFoundForEachSampleAmongMany) {
  OffsetRuns runs;
  const auto offset = [](std::uint32_t sample) {
    return sample % 5 < 2 ? 0 : static_cast<std::int32_t>(sample / 5) - 40000;
  };
  for (std::uint32_t i = 0; i < 2000; ++i) runs.Add(1, offset(i));
  EXPECT_EQ(runs.Smallest(), -40000);
  EXPECT_EQ(runs.Largest(), 0);
  for (std::uint32_t i = 0; i < 2000; ++i) {
    EXPECT_EQ(runs.From(i)->offset, offset(i));
    EXPECT_EQ(runs.From(i)->sample, i - i % 5 + (i % 5 < 2 ? 0 : 2));
  }
}

TEST(OffsetRuns, AreNoViewOfRowsThatWouldNotBeWrittenSo) {
  const auto isView = [](const char* rows, std::uint32_t count) {
    const Bytes bytes = Made(rows);
    return OffsetRuns::ViewOf(bytes, count).has_value();
  };
  EXPECT_TRUE(isView("2 5  1 6", 3));
  EXPECT_FALSE(isView("2 5  1 6", 2));
  EXPECT_FALSE(isView("2 5  1 6", 4));
  EXPECT_FALSE(isView("2 5  1 5", 3));
  EXPECT_FALSE(isView("2 5  1 6  0 7", 3));
}

// Such as "1: 0-9/3 #0; ": the chunk, the samples, how many of them a chunk has, the description.
std::string RunsFrom(const ChunkRuns& runs, std::uint32_t sample) {
  std::ostringstream text;
  for (ChunkRuns::Walk run = runs.From(sample); !run.IsAtEnd(); run.Next()) {
    text << run->chunk << ": " << run->sample << '-' << run->end << '/' << run->samplesPerChunk
         << " #" << run->description << "; ";
  }
  return text.str();
}

TEST(ChunkRuns, IncludeChunksWithoutSamples) {
  ChunkRuns runs;
  runs.Add(1, 2, 3, 0);
  runs.Add(3, 1, 3, 0);  // continues the run
  runs.Add(7, 1, 4, 1);
  EXPECT_EQ(RunsFrom(runs, 0), "1: 0-9/3 #0; 4: 9-9/0 #1; 7: 9-13/4 #1; ");
  EXPECT_EQ(RunsFrom(runs, 9), "7: 9-13/4 #1; ");
  EXPECT_EQ(runs.Samples(), 13U);
  EXPECT_EQ(runs.Descriptions(), 2U);
}

TEST(ChunkRuns, AreAViewOfRowsInOrder) {
  const Bytes good = Made("1 2 1  4 5 2");
  EXPECT_EQ(RunsFrom(ChunkRuns::ViewOf(good, 5, 16, 2).value(), 0), "0: 0-6/2 #0; 3: 6-16/5 #1; ");
  EXPECT_EQ(ChunkRuns::ViewOf(good, 5, 100, 2)->Samples(), 16U);
  EXPECT_FALSE(ChunkRuns::ViewOf(good, 5, 15, 2)) << "more than there are";
  EXPECT_FALSE(ChunkRuns::ViewOf(good, 3, 16, 2)) << "of chunks that are not there";
  EXPECT_FALSE(ChunkRuns::ViewOf(good, 5, 16, 1)) << "of a description that is not there";
  for (const char* rows : {"2 2 1  2 5 1", "1 0 1  2 5 1", "0 1 1"}) {
    const Bytes bad = Made(rows);
    EXPECT_FALSE(ChunkRuns::ViewOf(bad, 5, 16, 1)) << rows;
  }
}

TEST(ChunkRuns, StayInsideTheTablesWhenTheFileChanges) {
  const Bytes good = Made("1 2 1  4 5 1");
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (const std::uint8_t value : Bytes{0, 1, 9, 0xFF}) {
      Bytes file = good;
      const auto runs = ChunkRuns::ViewOf(file, 5, 16, 1);
      ASSERT_TRUE(runs);
      file[i] = value;
      try {
        for (ChunkRuns::Walk run = runs->From(0); !run.IsAtEnd(); run.Next()) {
          const std::uint32_t samples = run->end - run->sample;
          ASSERT_LE(run->end, 16U);
          ASSERT_EQ(run->description, 0U);
          ASSERT_TRUE(samples == 0 || run->chunk + (samples - 1) / run->samplesPerChunk < 5);
        }
      } catch (const Refused& refused) {
        EXPECT_EQ(refused.code, invalidSampleTable);
      }
    }
  }
}

}  // namespace
}  // namespace toolbox
