#include "toolbox/plan/kept_places.h"
#include "toolbox/movie/sample_places.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"
#include "toolbox/plan/flatten.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kSound{"soun"};
constexpr std::uint64_t kStart = 100;  // of the media data in the source

// Ten seconds with a picture of 30 bytes and a sound sample of 10 bytes each second. Chunks of
// `together` samples alternate between the two.
class KeptPlaces : public InFolder {
 protected:
  void Interleave(std::uint32_t together, std::uint64_t gap = 0) {
    gap_ = gap;
    movie_.file = OtherFile{Store("media", {})};
    boost::filesystem::resize_file(folder_ / "media", 1 << 20);
    AddTrack(kVideo, 30, together, kStart, 40ULL * together);
    AddTrack(kSound, 10, together, kStart + 30ULL * together, 40ULL * together);
  }
  void AddTrack(FourCC type, std::uint32_t size, std::uint32_t together, std::uint64_t at,
                std::uint64_t step) {
    auto rows = PlainRows(10, 600, size);
    rows->chunkRuns = {};
    rows->chunkOffsets = {};
    rows->AddChunks(0, 10 / together, together, 0);
    for (std::uint32_t chunk = 0; chunk < 10 / together; ++chunk) {
      rows->chunkOffsets.Add(at + chunk * step + (chunk < 5 ? 0 : gap_));
    }
    AddPlainTrack(movie_, type, 600, rows);
  }
  FilePlan Flattened(std::uint64_t maxChunks = 1000) {
    return PlanFlattened(movie_, {.maxChunksKept = maxChunks});
  }
  // Checks that each byte of a sample in the output is a copy of the same byte in the source.
  void ExpectEverySampleCopied(const FilePlan& plan) {
    std::vector<std::uint64_t> sourceOf(plan.dataSize);
    plan.ForEachRange({}, [&](const CopyRange& range) {
      for (std::uint64_t i = 0; i < range.length; ++i)
        sourceOf[range.destination + i] = range.at + i;
    });
    for (const TrackPlan& track : plan.tracks) {
      ASSERT_TRUE(std::holds_alternative<KeptStretches>(track.places));
      for (const KeptStretch& kept : std::get<KeptStretches>(track.places)) {
        ForEachPiece(track.source->media->samples, {kept.sample, kept.sample + kept.count},
                     [&](const SamplePiece& piece) {
                       EXPECT_EQ(sourceOf[kept.destination + piece.offset - kept.source],
                                 piece.offset);
                     });
      }
    }
  }

  MovieRecord movie_;
  std::uint64_t gap_ = 0;  // unused bytes in the middle of the media data
};

TEST_F(KeptPlaces, AFileThatIsInterleavedIsCopiedAsItLies) {
  Interleave(1);
  const FilePlan plan = Flattened();
  ASSERT_EQ(plan.blocks.size(), 1U);
  EXPECT_EQ(plan.blocks[0].at, kStart);
  EXPECT_EQ(plan.blocks[0].length, 400U);
  ExpectEverySampleCopied(plan);
}

TEST_F(KeptPlaces, UnusedBytesSplitTheFileIntoBlocks) {
  Interleave(1, 7);
  const FilePlan plan = Flattened();
  ASSERT_EQ(plan.blocks.size(), 2U);
  EXPECT_EQ(plan.blocks[1].at, kStart + 207);
  EXPECT_EQ(plan.blocks[1].destination, 200U);
  EXPECT_EQ(plan.dataSize, 400U);
  ExpectEverySampleCopied(plan);
}

TEST_F(KeptPlaces, ChunksOfSeveralSecondsAreNotInterleaved) {
  Interleave(5);
  EXPECT_TRUE(Flattened().blocks.empty());
}

TEST_F(KeptPlaces, BytesThatNobodyShowsAreLeftOut) {
  Interleave(1);
  movie_.RemoveTrack(*movie_.tracks[1]);
  const FilePlan plan = Flattened();
  EXPECT_TRUE(plan.blocks.empty());
  EXPECT_EQ(plan.dataSize, 300U);
}

TEST_F(KeptPlaces, TooManyChunksArePacked) {
  Interleave(1);
  EXPECT_TRUE(Flattened(19).blocks.empty());
  EXPECT_FALSE(Flattened(20).blocks.empty());
}

TEST_F(KeptPlaces, ASourceThatEndsTooSoonIsRefused) {
  Interleave(1);
  boost::filesystem::resize_file(folder_ / "media", kStart + 399);
  EXPECT_THROW(Flattened(), Refused);
}

}  // namespace
}  // namespace toolbox
