#include "toolbox/plan/in_step.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "tests/toolbox/movies.h"
#include "tests/toolbox/random.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_places.h"

namespace toolbox {
namespace {

constexpr std::int32_t kMovieScale = 1000, kMediaScale = 48'000;
constexpr std::int64_t kTick = kMediaScale / kMovieScale;
constexpr std::uint64_t kNothing = 0, kMade = UINT64_MAX;

enum class Kind { kPictures, kText, kPackets, kFrames };

FourCC TypeOf(Kind kind) {
  return kind == Kind::kPictures ? FourCC{"vide"} : FourCC{kind == Kind::kText ? "text" : "soun"};
}

SampleDescription DescriptionOf(Kind kind) {
  if (kind == Kind::kPictures) return Described(FourCC{"avc1"});
  if (kind == Kind::kText) return Described(FourCC{"tx3g"});
  SoundEntry entry;
  entry.format = kind == Kind::kFrames ? FourCC{"ulaw"} : FourCC{"mp4a"};
  if (kind == Kind::kPackets) {
    const AudioConfig config{AudioConfig::kLowComplexity, kMediaScale, 2};
    entry.rest = EncodeElementaryStream(AacStream(config, 0, 0), LengthBytes::kOne);
  }
  return {Encode(entry), 0};
}

// A clip of samples of one byte, each recognized by its place. Pictures are reordered in groups of
// 8, or not at all.
std::shared_ptr<SampleRows> Clip(Random& random, Kind kind, std::uint64_t place) {
  const bool isReordered = random.Flip();
  if (kind == Kind::kFrames) return PlainRows(3000 + random.Below(9000), 1, 1, place);
  const std::uint32_t delta = kind == Kind::kPackets ? 1024 : 40 * kTick + random.Below(50);
  const std::uint32_t count = 1 + random.Below(38);
  auto rows = PlainRows(count, delta, 1, place);
  if (kind != Kind::kPictures) return rows;
  rows->sync.emplace();
  for (std::uint32_t i = 0; i < count; i += 8) rows->sync->push_back(i);
  for (std::uint32_t i = 0; isReordered && i < count; ++i) {
    // Decoded I P b b P b b P, shown I b b P b b P P.
    const std::uint32_t in = i % 8;
    const bool isEnd = in == 7 || i == count - 1 || (i + 1 == count - 1 && in % 3 == 1);
    const std::uint32_t late = in == 0 || isEnd ? 1 : in % 3 == 1 ? 3 : 0;
    rows->AddOffsets(1, static_cast<std::int32_t>(late * delta));
  }
  return rows;
}

// What a track shows at the end of each unit of the movie: the place of the sample, kMade for one
// that is in no file, or kNothing.
std::vector<std::uint64_t> Shown(const TrackRecord& track) {
  const MediaRecord& media = *track.media;
  std::map<std::int64_t, std::uint64_t> places;  // by the time from which they are shown
  ForEachPiece(media.samples, {0, media.samples.Count()}, [&](const SamplePiece& piece) {
    const bool isMade = std::holds_alternative<InMemory>(media.ReferenceOf(piece.description));
    for (std::uint64_t i = 0; i < piece.count; ++i) {
      places[ShownAt(media.samples, piece.sample + i).units] =
          isMade ? kMade : piece.offset + i * (piece.size / piece.count);
    }
  });
  std::vector<std::uint64_t> shown;
  for (const Edit& edit : track.edits.Edits()) {
    for (MovieTime time{1}; time <= edit.duration; time += MovieTime{1}) {
      const auto next = edit.IsEmpty()
                            ? places.begin()
                            : places.lower_bound(edit.ShownAt(time, track.TimeClock()).units);
      shown.push_back(next == places.begin() ? kNothing : std::prev(next)->second);
    }
  }
  return shown;
}

// Random clips of one kind, joined, and cut at random places.
class InStep : public testing::TestWithParam<std::tuple<Kind, unsigned>> {
 protected:
  InStep() {
    movie_.header.scale = kMovieScale;
    for (std::uint32_t clip = 0; clip < 5; ++clip) {
      const auto rows = Clip(random_, kind_, 1'000'000 * (clip + 1));
      if (clip != 0) {
        track_->media->samples.AppendSlice(SampleTable(rows), {0, rows->count});
      } else {
        track_ = &AddPlainTrack(movie_, TypeOf(kind_), kMediaScale, rows);
        track_->edits = {};
        track_->media->descriptions = {DescriptionOf(kind_)};
      }
      Show(*rows, clip == 0);
    }
  }

  // Adds an edit for the last clip. Pictures start at a sync sample, or a little after it.
  void Show(const SampleRows& rows, bool isFirst) {
    const Clock clock = track_->TimeClock();
    const SampleTable& samples = track_->media->samples;
    const SampleSlice& slice = samples.SliceOf(samples.Count() - rows.count);
    const std::uint32_t first = random_.Flip() ? 0 : 8;
    MediaTime from = slice.ShownAt(std::min(first, rows.count - 1));
    if (random_.Flip()) from += MediaTime{random_.Below(kMediaScale / 50)};
    const MediaTime end = slice.time + slice.ShownUntil();
    MovieTime length = clock.Lasting(end - from, 1.0, Rounding::kDown);
    if (random_.Flip()) length.units -= random_.Below(static_cast<std::uint64_t>(length.units) / 3);
    if (random_.Below(3) == 0 && (!isFirst || random_.Flip())) {
      track_->edits.Append({1 + random_.Below(300)}, Edit::kNothing, 1.0, clock);
    }
    track_->edits.Append(length, from, 1.0, clock);
  }

  Kind kind_ = std::get<0>(GetParam());
  Random random_{std::get<1>(GetParam())};
  MovieRecord movie_;
  TrackRecord* track_ = nullptr;
};

TEST_P(InStep, OneEditShowsWhatSeveralDid) {
  const auto result = LaidOutInStep(movie_);
  if (!result) {
    // Samples between two segments must be decoded.
    EXPECT_EQ(kind_, Kind::kPictures);
    return;
  }
  const TrackRecord& made = *result->tracks[0];
  ASSERT_EQ(made.edits.Edits().size(), made.edits.Offset() == MovieTime{} ? 1 : 2);
  const std::vector<std::uint64_t> before = Shown(*track_), after = Shown(made);
  ASSERT_EQ(after.size(), before.size());
  // A packet can start an eighth of itself early; nothing else moves by more than three ticks.
  const std::size_t margin = kind_ == Kind::kPackets ? 1024 / 8 / kTick + 3 : 3;
  std::uint64_t last = kNothing;
  for (std::size_t i = 0; i < before.size(); ++i) {
    if (before[i] != kNothing) last = before[i];
    const auto isOther = [&](std::uint64_t place) { return place != before[i]; };
    const auto near = before.begin() + static_cast<std::ptrdiff_t>(i < margin ? 0 : i - margin);
    const auto end = before.begin() + static_cast<std::ptrdiff_t>(i + margin + 1);
    if (i + margin >= before.size() || std::any_of(near, end, isOther) || last == kNothing)
      continue;
    // In a gap a picture is held, and anything else is made. A packet may end in the gap.
    const bool isHeld = before[i] != kNothing || kind_ == Kind::kPictures;
    if (before[i] == kNothing && kind_ == Kind::kPackets) {
      ASSERT_NE(after[i], kNothing) << i;
    } else {
      ASSERT_EQ(after[i], isHeld ? last : kMade) << i;
    }
  }
  const SampleTable& samples = made.media->samples;
  for (std::uint64_t i = 0; i < samples.Count(); ++i) {
    ASSERT_GE(samples.DurationOf(i), MediaTime{1});
    ASSERT_LE(samples.DurationOf(i), MediaTime{UINT32_MAX});
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, InStep,
                         testing::Combine(testing::Values(Kind::kPictures, Kind::kText,
                                                          Kind::kPackets, Kind::kFrames),
                                          testing::Range(1U, 26U)));

// A movie with a track that shows two clips, with an edit for each.
class InStepOf : public testing::Test {
 protected:
  TrackRecord& Show(Kind kind, std::shared_ptr<SampleRows> one, std::shared_ptr<SampleRows> two) {
    movie_.header.scale = kMovieScale;
    TrackRecord& track = AddPlainTrack(movie_, TypeOf(kind), kMediaScale, one);
    track.media->descriptions = {DescriptionOf(kind)};
    const MediaTime base = track.media->samples.AppendSlice(SampleTable(two), {0, two->count});
    track.edits.AppendMedia(base, two->duration, 1.0, track.TimeClock());
    return track;
  }
  // `count` pictures of 40 ms.
  static std::shared_ptr<SampleRows> Pictures(std::uint32_t count) {
    return PlainRows(count, 40 * kTick, 1);
  }
  // The decode times of the samples of the first track of the result, in whole ms; nothing if no
  // track changes.
  std::vector<std::int64_t> Times() const {
    std::vector<std::int64_t> times;
    if (const auto result = LaidOutInStep(movie_)) {
      const SampleTable& samples = result->tracks[0]->media->samples;
      for (std::uint64_t i = 0; i < samples.Count(); ++i)
        times.push_back(samples.TimeOf(i).units / kTick);
    }
    return times;
  }

  MovieRecord movie_;
};

TEST_F(InStepOf, PicturesAreNotHeldBeforeThoseOfAnotherTrack) {
  TrackRecord& track = Show(Kind::kPictures, Pictures(2), Pictures(2));
  TrackRecord& other = Show(Kind::kPictures, Pictures(2), Pictures(2));
  const Clock clock = track.TimeClock();
  for (TrackRecord* each : {&track, &other}) each->edits.Insert({}, {80}, {100}, clock);
  EXPECT_EQ(Times(), (std::vector<std::int64_t>{0, 40, 180, 220})) << "both have a gap there";
  other.edits = track.edits.Segment({180}, {80}, clock);
  other.edits.Insert({}, {}, {179}, clock);
  EXPECT_TRUE(Times().empty());
  other.header.flags &= ~TrackHeader::kEnabled;
  EXPECT_EQ(Times().size(), 4U);
}

TEST_F(InStepOf, SomeEditsStay) {
  TrackRecord& track = Show(Kind::kPictures, Pictures(9), Pictures(9));
  const Clock clock = track.TimeClock();
  const EditList whole = track.edits;
  track.edits.Scale({0}, {80}, {40}, clock);
  EXPECT_TRUE(Times().empty()) << "two rates";
  track.edits = whole;
  track.edits.Insert(whole.Segment({0}, {360}, clock), {720}, {360}, clock);
  EXPECT_TRUE(Times().empty()) << "shown twice";
  track.edits = whole.Segment({360}, {360}, clock);
  track.edits.Insert(whole.Segment({0}, {360}, clock), {360}, {360}, clock);
  EXPECT_TRUE(Times().empty()) << "another order";
}

}  // namespace
}  // namespace toolbox
