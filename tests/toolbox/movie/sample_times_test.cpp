#include "toolbox/movie/sample_times.h"
#include "toolbox/movie/presentation.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/toolbox/movies.h"
#include "tests/toolbox/random.h"

namespace toolbox {
namespace {

constexpr FourCC kText{"text"};

using Shown = std::vector<ShownSample>;

// The times found by asking for the first sample and then for each next one.
Shown Walk(const TrackRecord& track) {
  Shown found;
  auto next = NextShownSample(track, track.edits.Offset(), true);
  for (; next; next = NextShownSample(track, next->start, false)) found.push_back(*next);
  return found;
}

// The same by looking at every movie unit.
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

TEST(SamplesByTime, ComeBackToTheirSampleInAScaleThatDoesNotFit) {
  MovieRecord movie;
  constexpr std::int64_t kDelta = 1001;
  TrackRecord& track = AddPlainTrack(movie, kText, 30000, PlainRows(100, kDelta, 10));
  const Shown found = Walk(track);
  ASSERT_EQ(found.size(), 100U);
  EXPECT_EQ(found[1], (ShownSample{{21}, {20}})) << "20.02 units, and 40.04 for the next";
  for (std::size_t i = 0; i < found.size(); ++i) {
    EXPECT_EQ(MediaTimeAt(track, found[i].start)->units / kDelta, static_cast<std::int64_t>(i));
  }
}

TEST(SamplesByTime, AreFoundInEveryEditThatShowsThem) {
  MovieRecord movie;
  TrackRecord& track = AddPlainTrack(movie, kText, 600, PlainRows(4, 100, 10));
  const Clock clock = track.TimeClock();
  track.edits = {};
  track.edits.Append({50}, Edit::kNothing, 1.0, clock);
  track.edits.Append({100}, {150}, 1.0, clock);
  track.edits.Append({50}, Edit::kNothing, 1.0, clock);
  track.edits.Append({100}, {0}, 2.0, clock);
  track.edits.Append({30}, {399}, 0.0, clock);
  EXPECT_EQ(Walk(track),
            (Shown{{{50}, {50}}, {{100}, {50}}, {{200}, {50}}, {{250}, {50}}, {{300}, {30}}}));
  EXPECT_EQ(NextShownSample(track, {100}, false)->start, MovieTime{200});
  EXPECT_EQ(NextShownSample(track, {-7}, true)->start, MovieTime{50});
  EXPECT_EQ(NextShownSample(track, {300}, false), std::nullopt);
  EXPECT_EQ(MediaTimeAt(track, {49}), std::nullopt);
  EXPECT_EQ(MediaTimeAt(track, {50}), MediaTime{150});
  EXPECT_EQ(MediaTimeAt(track, {249}), MediaTime{98});
  EXPECT_EQ(MediaTimeAt(track, {330}), std::nullopt);
  EXPECT_EQ(MediaTimeAt(track, {-1}), std::nullopt);
}

TEST(SamplesByTime, AreThoseThatOneWouldSee) {
  Random random(5);
  for (int round = 0; round < 150; ++round) {
    auto rows = std::make_shared<SampleRows>();
    rows->count = 1 + random.Below(12);
    for (std::uint32_t i = 0; i < rows->count; ++i) {
      rows->AddTimes(1, random.Below(3) * random.Below(40));
    }
    if (round % 2 == 1) {
      for (std::uint32_t i = 0; i < rows->count; ++i) {
        rows->AddOffsets(1, static_cast<std::int32_t>(random.Below(80)) - 20);
      }
    }
    rows->sizes.Add(rows->count, 1);
    MovieRecord movie;
    movie.header.scale = 1 + static_cast<std::int32_t>(random.Below(100));
    const auto scale = 1 + static_cast<std::int32_t>(random.Below(100));
    TrackRecord& track = AddPlainTrack(movie, kText, scale, rows);
    const Clock clock = track.TimeClock();
    track.edits = {};
    for (int edit = 0; edit < 4; ++edit) {
      constexpr double kRates[] = {1, 1, 0.5, 3, 0};
      const bool isEmpty = random.Below(4) == 0;
      track.edits.Append({random.Below(60)},
                         isEmpty ? Edit::kNothing : MediaTime{random.Below(200)},
                         isEmpty ? 1.0 : kRates[random.Below(5)], clock);
    }
    EXPECT_EQ(Walk(track), Watched(track)) << "round " << round;
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace toolbox
