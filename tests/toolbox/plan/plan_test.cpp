#include "toolbox/plan/plan.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"
#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/framing.h"
#include "toolbox/plan/flatten.h"
#include "toolbox/plan/reference.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kSound{"soun"}, kText{"text"};
using Range = std::pair<std::uint64_t, std::uint64_t>;

std::vector<Range> SamplesOf(const TrackPlan& track) {
  std::vector<Range> samples;
  track.ForEachCopied([&](std::uint64_t first, std::uint32_t count) {
    samples.emplace_back(first, first + count);
  });
  return samples;
}

std::vector<Range> CopiesOf(const FilePlan& plan) {
  std::vector<Range> copies;
  std::uint64_t destination = 0;
  plan.ForEachRange({}, [&](const CopyRange& range) {
    EXPECT_EQ(range.destination, destination);
    destination += range.length;
    copies.emplace_back(range.at, range.length);
  });
  EXPECT_EQ(destination, plan.dataSize);
  return copies;
}

void Show(TrackRecord& track, std::vector<std::pair<std::int64_t, std::int64_t>> parts) {
  track.edits = {};
  for (const auto& [duration, media] : parts) {
    track.edits.Append({duration}, {media}, 1.0, track.TimeClock());
  }
}

// A movie with media in a sparse file of that many bytes.
class Plan : public InFolder {
 protected:
  Plan() { HasFile(1 << 20); }
  void HasFile(std::uint64_t size) {
    movie_.file = OtherFile{Store("media", {})};
    boost::filesystem::resize_file(folder_ / "media", size);
  }
  FilePlan Flattened(FlattenOptions options = {}) { return PlanFlattened(movie_, options); }

  MovieRecord movie_;
};

TEST_F(Plan, CopiesWhatIsShownAndWhatThatNeeds) {
  auto rows = PlainRows(30, 100, 10, 1000);
  rows->sync = {0, 10, 20};
  TrackRecord& track = AddPlainTrack(movie_, kVideo, 600, rows);
  Show(track, {{150, 1250}, {100, 2500}, {50, -1}, {100, 1300}});
  const FilePlan plan = Flattened();
  EXPECT_EQ(CopiesOf(plan), (std::vector<Range>{{1100, 40}, {1200, 60}}));
  const TrackRecord& output = *plan.movie->tracks[0];
  EXPECT_EQ(output.media->samples.Count(), 10U);
  EXPECT_EQ(output.media->dataReferences, std::vector<DataReference>{ThisFile{}});
  EXPECT_EQ(
      output.edits.Edits(),
      (std::vector<Edit>{
          {{0}, {150}, {250}}, {{150}, {100}, {900}}, {{250}, {50}, {-1}}, {{300}, {100}, {300}}}));
  EXPECT_EQ(output.media->samples.SyncAtOrBefore(9), 4U);
}

TEST_F(Plan, LetsADecoderOfSoundHearWhatComesBefore) {
  const auto firstCopied = [&](std::int64_t firstHeard, std::vector<SampleGroup> groups) {
    MovieRecord movie;
    movie.file = movie_.file;
    auto rows = PlainRows(200, 1024, 10);
    rows->groups = std::move(groups);
    Show(AddPlainTrack(movie, kSound, 44100, rows), {{100, 1024 * firstHeard}});
    return SamplesOf(PlanFlattened(movie, {}).tracks[0]).at(0).first;
  };
  const FourCC roll{"roll"};
  const SampleGroupDescriptions sixtyBefore{1 << 24, roll, Join(U32(2), U32(1), U16(0xFFC4))};
  EXPECT_EQ(firstCopied(120, {}), 76U);
  EXPECT_EQ(firstCopied(20, {}), 0U);
  EXPECT_EQ(firstCopied(120, {{roll, 0, 0, sixtyBefore, {{0, 1}}}}), 60U);
}

TEST_F(Plan, DropsWhatIsShownNowhereButKeepsTheTrack) {
  TrackRecord& track = AddPlainTrack(movie_, kVideo, 600, PlainRows(6, 100, 10));
  Show(track, {{100, 10000}});
  const FilePlan plan = Flattened();
  EXPECT_EQ(plan.dataSize, 0U);
  ASSERT_EQ(plan.movie->tracks.size(), 1U);
  EXPECT_EQ(plan.movie->tracks[0]->edits, EditList());
}

TEST_F(Plan, KeepsSamplesThatLastNoTimeWhereAnEditStartsOrEnds) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = 8;
  for (const std::uint32_t duration : {0U, 0U, 100U, 0U, 0U, 100U, 100U, 0U})
    rows->AddTimes(1, duration);
  rows->sizes.Add(8, 10);
  rows->AddChunks(0, 1, 8, 0);
  rows->chunkOffsets.Add(0);
  TrackRecord& track = AddPlainTrack(movie_, kText, 600, rows);
  EXPECT_EQ(SamplesOf(Flattened().tracks[0]), (std::vector<Range>{{0, 8}}));
  Show(track, {{100, 100}});
  EXPECT_EQ(SamplesOf(Flattened().tracks[0]), (std::vector<Range>{{3, 6}}));
  Show(track, {{150, 50}});
  EXPECT_EQ(SamplesOf(Flattened().tracks[0]), (std::vector<Range>{{2, 6}}));
}

TEST_F(Plan, CutsChunksOfHalfASecondAndAMebibyte) {
  HasFile(std::uint64_t{1} << 32);
  auto pcm = PlainRows(100000, 1, 0);
  pcm->sizes = {};
  pcm->constantSize = 4;
  AddPlainTrack(movie_, kSound, 44100, pcm);
  AddPlainTrack(movie_, kVideo, 600, PlainRows(10, 20, 400 << 10));
  AddPlainTrack(movie_, kVideo, 600, PlainRows(2, 700, 3 << 20));
  AddPlainTrack(movie_, kVideo, 600, PlainRows(40, 25, 1));
  const FilePlan plan = Flattened();
  EXPECT_EQ(SamplesOf(plan.tracks[0]),
            (std::vector<Range>{
                {0, 22050}, {22050, 44100}, {44100, 66150}, {66150, 88200}, {88200, 100000}}));
  EXPECT_EQ(SamplesOf(plan.tracks[1]),
            (std::vector<Range>{{0, 2}, {2, 4}, {4, 6}, {6, 8}, {8, 10}}));
  EXPECT_EQ(SamplesOf(plan.tracks[2]), (std::vector<Range>{{0, 1}, {1, 2}}));
  EXPECT_EQ(SamplesOf(plan.tracks[3]), (std::vector<Range>{{0, 12}, {12, 24}, {24, 36}, {36, 40}}));
}

TEST_F(Plan, SplitsNoPacketBetweenChunks) {
  auto rows = PlainRows(64 * 700, 1, 0);
  rows->sizes = {};
  rows->constantSize = 1;
  rows->packings = {{64, 34}};
  AddPlainTrack(movie_, kSound, 44100, rows);
  const FilePlan plan = Flattened();
  EXPECT_EQ(SamplesOf(plan.tracks[0]),
            (std::vector<Range>{{0, 344 * 64}, {344 * 64, 688 * 64}, {688 * 64, 700 * 64}}));
  EXPECT_EQ(plan.dataSize, 700U * 34);
}

TEST_F(Plan, LaysChunksInTheOrderInWhichTheyAreShown) {
  AddPlainTrack(movie_, kText, 600, PlainRows(4, 300, 1, 0));
  AddPlainTrack(movie_, kVideo, 600, PlainRows(4, 300, 10, 100));
  AddPlainTrack(movie_, kSound, 600, PlainRows(4, 300, 100, 1000));
  Show(*movie_.tracks[1], {{600, 600}, {600, 0}});
  const std::vector<Range> interleaved{{1000, 100}, {120, 10},   {0, 1},      {1100, 100},
                                       {130, 10},   {1, 1},      {1200, 100}, {100, 10},
                                       {2, 1},      {1300, 100}, {110, 10},   {3, 1}};
  EXPECT_EQ(CopiesOf(Flattened()), interleaved);
  EXPECT_EQ(CopiesOf(Flattened({.interleave = false})),
            (std::vector<Range>{{0, 4}, {100, 40}, {1000, 400}}));
}

TEST_F(Plan, MergesDescriptionsThatAreEqualAndDropsTheUnused) {
  auto rows = PlainRows(6, 50, 10);
  rows->chunkRuns = {};
  for (std::uint32_t chunk = 0; chunk < 3; ++chunk) rows->AddChunks(chunk, 1, 2, chunk);
  rows->chunkOffsets.Add(100), rows->chunkOffsets.Add(200);
  MediaRecord& media = *AddPlainTrack(movie_, kVideo, 600, rows).media;
  media.dataReferences.push_back(OtherFile{Store("other", Zeros(1000))});
  media.descriptions = {Described(FourCC{"same"}), Described(FourCC{"same"}),
                        Described(FourCC{"diff"})};
  media.descriptions[1].dataReference = 1;
  FilePlan plan = Flattened();
  EXPECT_EQ(plan.movie->tracks[0]->media->descriptions.size(), 2U);
  EXPECT_EQ(SamplesOf(plan.tracks[0]), (std::vector<Range>{{0, 4}, {4, 6}}));
  EXPECT_EQ(CopiesOf(plan), (std::vector<Range>{{0, 20}, {100, 20}, {200, 20}}));
  Show(*movie_.tracks[0], {{200, 0}});
  plan = Flattened();
  ASSERT_EQ(plan.movie->tracks[0]->media->descriptions.size(), 1U);
  EXPECT_EQ(plan.movie->tracks[0]->media->descriptions[0].Format(), FourCC{"same"});
}

TEST_F(Plan, DropsHintTracksWhoseNumbersNoLongerHold) {
  TrackRecord& video = AddPlainTrack(movie_, kVideo, 600, PlainRows(6, 100, 10));
  AddPlainTrack(movie_, FourCC{"hint"}, 600, PlainRows(6, 100, 10)).Refer(FourCC{"hint"}, video);
  EXPECT_EQ(Flattened().movie->tracks.size(), 2U);
  Show(video, {{100, 300}});
  const FilePlan plan = Flattened();
  EXPECT_EQ(plan.movie->tracks.size(), 1U);
  EXPECT_EQ(plan.tracks.size(), 1U);
}

TEST_F(Plan, LeavesDisabledTracksAndTheirHintsOutWhenAsked) {
  TrackRecord& video = AddPlainTrack(movie_, kVideo, 600, PlainRows(6, 100, 10));
  video.header.flags = 0;
  AddPlainTrack(movie_, kSound, 600, PlainRows(6, 100, 10));
  EXPECT_EQ(Flattened({.onlyEnabled = true}).movie->tracks.size(), 1U);
  AddPlainTrack(movie_, FourCC{"hint"}, 600, PlainRows(6, 100, 10)).Refer(FourCC{"hint"}, video);
  EXPECT_EQ(Flattened({.onlyEnabled = true}).movie->tracks.size(), 1U)
      << "a hint track without the samples it speaks of";
}

TEST_F(Plan, RefusesMediaThatAreNotThere) {
  MediaRecord& media = *AddPlainTrack(movie_, kVideo, 600, PlainRows(6, 100, 10)).media;
  const auto codeWith = [&](DataReference reference) {
    media.dataReferences = {std::move(reference)};
    return CodeOf([&] { Flattened(); });
  };
  EXPECT_EQ(codeWith(OtherFile{folder_ / "none"}), couldNotResolveDataRef);
  EXPECT_EQ(codeWith(Unresolved{FourCC{"alis"}, 0, {}}), couldNotResolveDataRef);
  EXPECT_EQ(codeWith(OtherFile{Store("short", Zeros(59))}), eofErr);
  EXPECT_EQ(codeWith(OtherFile{Store("enough", Zeros(60))}), noErr);
  movie_.file.reset();
  EXPECT_EQ(codeWith(ThisFile{}), couldNotResolveDataRef);
  EXPECT_EQ(CodeOf([&] { PlanReference(movie_); }), couldNotResolveDataRef);
}

// --- References

TEST_F(Plan, OfAReferenceMovieCopiesOnlyWhatIsInMemory) {
  AddPlainTrack(movie_, kVideo, 600, PlainRows(6, 100, 10, 500));
  AddPlainTrack(movie_, kSound, 600, PlainRows(6, 100, 10), OtherFile{"/elsewhere"});
  AddPlainTrack(movie_, kText, 600, PlainRows(3, 200, 5, 10),
                InMemory{std::make_shared<Bytes>(25)});
  const FilePlan plan = PlanReference(movie_);
  EXPECT_EQ(CopiesOf(plan), (std::vector<Range>{{10, 15}}));
  const auto references = [&](std::size_t i) {
    return plan.movie->tracks[i]->media->dataReferences;
  };
  EXPECT_EQ(references(0), (std::vector<DataReference>{*movie_.file}));
  EXPECT_EQ(references(1), (std::vector<DataReference>{OtherFile{"/elsewhere"}}));
  EXPECT_EQ(references(2), (std::vector<DataReference>{ThisFile{}}));
  EXPECT_TRUE(std::holds_alternative<StaysInPlace>(plan.tracks[0].places));
}

// --- 64-bit offsets

// The types of the chunk-offset tables in a movie header, one for each track.
std::vector<std::string> OffsetTables(const Bytes& movie) {
  std::vector<std::string> found;
  const std::string text(movie.begin(), movie.end());
  for (std::size_t at = 0; at + 4 <= text.size(); ++at) {
    const std::string type = text.substr(at, 4);
    if (type == "stco" || type == "co64") found.push_back(type);
  }
  return found;
}

TEST_F(Plan, StatesWideOffsetsOnlyWhereTheyAreNeeded) {
  constexpr std::uint64_t kFar = 0xFFFFFFF0;
  HasFile(2 * kFar);
  AddPlainTrack(movie_, kVideo, 600, PlainRows(6, 100, 10, kFar + 100));
  AddPlainTrack(movie_, kSound, 600, PlainRows(6, 100, 10, kFar));
  const boost::filesystem::path file = folder_ / "out.mov";
  const auto header = [&](const FilePlan& plan, std::uint64_t start) {
    return MovieWriter(plan, file).Encode(start);
  };
  const FilePlan reference = PlanReference(movie_), flat = Flattened({.interleave = false});
  EXPECT_EQ(OffsetTables(header(reference, 0)), (std::vector<std::string>{"co64", "stco"}));
  EXPECT_EQ(OffsetTables(header(flat, 36)), (std::vector<std::string>{"stco", "stco"}));
  EXPECT_EQ(OffsetTables(header(flat, kFar - 50)), (std::vector<std::string>{"stco", "co64"}));
  EXPECT_EQ(header(flat, kFar - 50).size() - header(flat, 36).size(), 8U) << "two chunks";
}

TEST_F(Plan, GivesTheSameHeaderHoweverOftenItWasMeasured) {
  constexpr std::uint64_t kFar = 0xFFFFFFF0;
  const std::uint32_t count = 50'000;
  HasFile(count * 11 + 6 * 100);
  auto rows = PlainRows(count, 10, 11);  // its sizes fill more than a block
  rows->sizes = {};
  rows->sizes.Add(7, 11), rows->sizes.Add(10), rows->sizes.Add(count - 8, 11);
  AddPlainTrack(movie_, kVideo, 600, rows, OtherFile{folder_ / "media"});
  AddPlainTrack(movie_, kSound, 600, PlainRows(6, 100, 100, count * 11));
  const FilePlan plan = Flattened({.interleave = false});
  const boost::filesystem::path file = folder_ / "out.mov";
  const MovieWriter unused(plan, file);  // its copies give the same date
  MovieWriter writer = unused;
  for (const std::uint64_t start : {std::uint64_t{36}, kFar, std::uint64_t{500}, kFar - 600'000}) {
    const Bytes movie = MovieWriter(unused).Encode(start);
    EXPECT_EQ(writer.SizeAt(start), movie.size());
    EXPECT_EQ(writer.Encode(start), movie);
    Bytes blocks;
    writer.Write(start, [&](ByteSpan b) { blocks.insert(blocks.end(), b.begin(), b.end()); });
    EXPECT_EQ(blocks, movie);
  }
}

TEST_F(Plan, HoldsMoreThan4GiB) {
  HasFile(std::uint64_t{5} << 30);
  auto rows = PlainRows(5 << 10, 60, 0);
  rows->sizes = {};
  rows->constantSize = 1 << 20;
  AddPlainTrack(movie_, kVideo, 600, rows);
  const FilePlan plan = Flattened();
  EXPECT_EQ(plan.dataSize, std::uint64_t{5} << 30);
  EXPECT_EQ(CopiesOf(plan), (std::vector<Range>{{0, std::uint64_t{5} << 30}}));
  EXPECT_EQ(OffsetTables(MovieWriter(plan, folder_ / "out.mov").Encode(36)),
            std::vector<std::string>{"co64"});
}

}  // namespace
}  // namespace toolbox
