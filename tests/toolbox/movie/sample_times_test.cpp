#include "toolbox/movie/sample_times.h"
#include "toolbox/movie/presentation.h"

#include <gtest/gtest.h>

#include <array>
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

TEST(SamplesByTime, AreFoundInEveryEditThatShowsThem) {
  MovieRecord movie;
  TrackRecord& track = AddPlainTrack(movie, kText, 600, PlainRows(4, 100, 10));
  track.edits = {};
  track.edits.Append({50}, Edit::kNothing, 1.0, track.TimeClock());
  track.edits.Append({100}, {150}, 1.0, track.TimeClock());
  track.edits.Append({50}, Edit::kNothing, 1.0, track.TimeClock());
  track.edits.Append({100}, {0}, 2.0, track.TimeClock());
  track.edits.Append({30}, {399}, 0.0, track.TimeClock());
  EXPECT_EQ(Walk(track),
            (Shown{{{50}, {50}}, {{100}, {50}}, {{200}, {50}}, {{250}, {50}}, {{300}, {30}}}));
  EXPECT_EQ(NextShownSample(track, {-7}, true)->start, MovieTime{50});
  EXPECT_EQ(NextShownSample(track, {300}, false), std::nullopt);
  for (const auto& [time, media] : {std::pair(-1, -1), {49, -1}, {50, 150}, {249, 98}, {330, -1}}) {
    EXPECT_EQ(MediaTimeAt(track, {time}).value_or(Edit::kNothing), MediaTime{media});
  }
}

TEST(SamplesByTime, AreThoseThatOneWouldSee) {
  Random random(5);
  for (int round = 0; round < 150; ++round) {
    auto rows = std::make_shared<SampleRows>();
    rows->count = 1 + random.Below(12);
    for (std::uint32_t i = 0; i < rows->count; ++i) {
      rows->AddTimes(1, random.Below(3) * random.Below(40));
      if (round % 2 == 1) rows->AddOffsets(1, static_cast<std::int32_t>(random.Below(80)) - 20);
    }
    rows->sizes.Add(rows->count, 1);
    MovieRecord movie;
    movie.header.scale = 1 + static_cast<std::int32_t>(random.Below(100));
    const auto scale = 1 + static_cast<std::int32_t>(random.Below(100));
    TrackRecord& track = AddPlainTrack(movie, kText, scale, rows);
    track.edits = {};
    for (int edit = 0; edit < 4; ++edit) {
      const MovieTime length{random.Below(60)};
      const double rate = std::array{1.0, 1.0, 0.5, 3.0, 0.0}[random.Below(5)];
      if (random.Below(4) == 0) {
        track.edits.Append(length, Edit::kNothing, 1.0, track.TimeClock());
      } else {
        track.edits.Append(length, {random.Below(200)}, rate, track.TimeClock());
      }
    }
    EXPECT_EQ(Walk(track), Watched(track)) << "round " << round;
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace toolbox
