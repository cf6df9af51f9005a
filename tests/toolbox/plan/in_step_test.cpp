#include "toolbox/plan/in_step.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "tests/toolbox/movies.h"
#include "tests/toolbox/random.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_places.h"

namespace toolbox {
namespace {

constexpr std::int32_t kMovieScale = 1000, kMediaScale = 48'000;
constexpr std::int64_t kTick = kMediaScale / kMovieScale;

enum class Kind { kPictures, kText, kPackets, kFrames };

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

// A clip: each sample has its own place, by which it is recognized. Pictures are reordered in
// groups of 8, or not at all.
std::shared_ptr<SampleRows> Clip(Random& random, Kind kind, std::uint64_t place) {
  auto rows = std::make_shared<SampleRows>();
  const bool isReordered = random.Flip();
  const std::uint32_t delta = kind == Kind::kFrames    ? 1
                              : kind == Kind::kPackets ? 1024
                                                       : 40 * kTick + random.Below(50);
  std::uint32_t count = kind == Kind::kFrames ? 3000 + random.Below(9000) : 9 + random.Below(30);
  if (kind == Kind::kPictures) rows->sync.emplace();
  if (kind == Kind::kFrames) {
    rows->count = count;
    rows->AddTimes(count, 1);
    rows->constantSize = 1;
    rows->AddChunks(0, 1, count, 0);
    rows->chunkOffsets.Add(place);
    return rows;
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    if (kind == Kind::kPictures && i % 8 == 0) rows->sync->push_back(i);
    rows->AddSample(delta, 1, place + i, 0);
  }
  if (kind == Kind::kPictures && isReordered) {
    for (std::uint32_t i = 0; i < count; ++i) {
      // Decoded I P b b P b b P, shown I b b P b b P P.
      const std::uint32_t in = i % 8;
      const bool isEnd = in == 7 || i == count - 1 || (i + 1 == count - 1 && in % 3 == 1);
      const std::uint32_t late = in == 0 || isEnd ? 1 : in % 3 == 1 ? 3 : 0;
      rows->AddOffsets(1, static_cast<std::int32_t>(late * delta));
    }
  }
  return rows;
}

// What is shown at a movie time: the place of the sample, if any.
class Shown {
 public:
  explicit Shown(const TrackRecord& track) : track_(track), samples_(track.media->samples) {
    for (std::uint64_t i = 0; i < samples_.Count(); ++i) {
      times_.push_back({ShownAt(samples_, i).units, i});
    }
    std::ranges::stable_sort(times_, {}, &Start::shown);
  }

  struct Found {
    std::uint64_t place = 0;
    bool isMade = false;
    friend bool operator==(const Found&, const Found&) = default;
  };
  // Nothing in a gap.
  std::optional<Found> At(MovieTime time) const {
    const auto& edits = track_.edits.Edits();
    const auto edit = std::ranges::upper_bound(edits, time, {}, &Edit::End);
    if (edit == edits.end() || edit->IsEmpty()) return std::nullopt;
    const std::int64_t media = edit->ShownAt(time - edit->start, track_.TimeClock()).units;
    const auto after = std::ranges::upper_bound(times_, media, {}, &Start::shown);
    if (after == times_.begin()) return std::nullopt;
    Found found;
    const std::uint64_t sample = std::prev(after)->sample;
    ForEachPiece(samples_, {sample, sample + 1}, [&](const SamplePiece& piece) {
      found = {piece.offset,
               std::holds_alternative<InMemory>(track_.media->ReferenceOf(piece.description))};
    });
    return found;
  }

 private:
  struct Start {
    std::int64_t shown = 0;
    std::uint64_t sample = 0;
  };
  const TrackRecord& track_;
  const SampleTable& samples_;
  std::vector<Start> times_;
};

// Random clips of one kind, joined, and cut at random places.
class InStep : public testing::TestWithParam<std::tuple<Kind, unsigned>> {
 protected:
  InStep() {
    movie_.header.scale = kMovieScale;
    const FourCC type = kind_ == Kind::kPictures ? FourCC{"vide"}
                        : kind_ == Kind::kText   ? FourCC{"text"}
                                                 : FourCC{"soun"};
    for (std::uint32_t clip = 0; clip < 5; ++clip) {
      const auto rows = Clip(random_, kind_, 1'000'000 * clip);
      if (clip == 0) {
        AddPlainTrack(movie_, type, kMediaScale, rows).edits = {};
        track().media->descriptions = {DescriptionOf(kind_)};
      }
      AddClip(rows, clip == 0);
    }
  }
  TrackRecord& track() { return *movie_.tracks[0]; }

  void AddClip(const std::shared_ptr<SampleRows>& rows, bool isFirst) {
    TrackRecord& track = this->track();
    const Clock clock = track.TimeClock();
    SampleTable& samples = track.media->samples;
    const std::uint64_t before = isFirst ? 0 : samples.Count();
    if (!isFirst) samples.AppendSlice(SampleTable(rows), {0, rows->count});
    const SampleSlice& slice = samples.SliceOf(before);
    // Pictures start at a sync sample, or a little after it.
    const auto first = static_cast<std::uint32_t>(random_.Flip() ? 0 : 8);
    MediaTime from = slice.ShownAt(std::min(first, rows->count - 1));
    if (random_.Flip()) from += MediaTime{random_.Below(kMediaScale / 50)};
    const MediaTime end = slice.time + slice.ShownUntil();
    MovieTime length = clock.Lasting(end - from, 1.0, Rounding::kDown);
    if (random_.Flip()) length.units -= random_.Below(static_cast<std::uint64_t>(length.units) / 3);
    if (random_.Below(3) == 0 && (!isFirst || random_.Flip())) {
      track.edits.Append({1 + random_.Below(300)}, Edit::kNothing, 1.0, clock);
    }
    track.edits.Append(length, from, 1.0, clock);
  }

  Kind kind_ = std::get<0>(GetParam());
  Random random_{std::get<1>(GetParam())};
  MovieRecord movie_;
};

TEST_P(InStep, OneEditShowsWhatSeveralDid) {
  const auto result = LaidOutInStep(movie_);
  if (!result) {
    // Samples between two segments must be decoded.
    EXPECT_EQ(kind_, Kind::kPictures);
    return;
  }
  const TrackRecord& made = *result->tracks[0];
  const Shown before(track()), after(made);
  const std::size_t offset = made.edits.Offset() == MovieTime{} ? 0 : 1;
  ASSERT_EQ(made.edits.Edits().size(), offset + 1);
  EXPECT_EQ(made.edits.Duration(), track().edits.Duration());
  // A packet can start an eighth of itself early; nothing else moves by more than three ticks.
  const std::int64_t margin = kind_ == Kind::kPackets ? 1024 / 8 / kTick + 3 : 3;
  std::optional<Shown::Found> last;
  for (MovieTime time; time < track().edits.Duration(); time += MovieTime{1}) {
    const auto expected = before.At(time);
    if (expected) last = expected;
    if (expected != before.At({std::max<std::int64_t>(time.units - margin, 0)})) continue;
    if (expected != before.At(time + MovieTime{margin})) continue;
    const auto found = after.At(time);
    ASSERT_TRUE(found || !last) << time.units;
    if (expected) {
      ASSERT_EQ(found->place, expected->place) << time.units;
      ASSERT_FALSE(found->isMade);
    } else if (last && kind_ == Kind::kPictures) {
      ASSERT_EQ(found->place, last->place) << time.units;
    } else if (last && kind_ != Kind::kPackets) {
      ASSERT_TRUE(found->isMade) << time.units;
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

// A movie with one track that shows clips whole, one after the other.
class InStepOf : public testing::Test {
 protected:
  TrackRecord& Show(Kind kind, const std::vector<std::shared_ptr<SampleRows>>& clips) {
    movie_.header.scale = kMovieScale;
    const FourCC type = kind == Kind::kPictures ? FourCC{"vide"} : FourCC{"soun"};
    TrackRecord& track = AddPlainTrack(movie_, type, kMediaScale, clips[0]);
    track.media->descriptions = {DescriptionOf(kind)};
    track.edits = {};
    for (std::size_t i = 0; i < clips.size(); ++i) {
      SampleTable& samples = track.media->samples;
      const MediaTime base =
          i == 0 ? MediaTime{} : samples.AppendSlice(SampleTable(clips[i]), {0, clips[i]->count});
      const MediaTime from = clips[i]->ShownFrom({0, clips[i]->count});
      track.edits.AppendMedia(base + from, clips[i]->duration, 1.0, track.TimeClock());
    }
    return track;
  }
  // (decoded, shown), in whole ms, of all samples of the first track of the result. Sets start_.
  std::vector<std::pair<std::int64_t, std::int64_t>> Laid() {
    const auto result = LaidOutInStep(movie_);
    if (!result) return {};
    const SampleTable& samples = result->tracks[0]->media->samples;
    std::vector<std::pair<std::int64_t, std::int64_t>> times;
    for (std::uint64_t i = 0; i < samples.Count(); ++i) {
      times.emplace_back(samples.TimeOf(i).units / kTick, ShownAt(samples, i).units / kTick);
    }
    start_ = result->tracks[0]->edits.Edits().at(0).mediaTime.units / kTick;
    return times;
  }
  // `count` pictures of 40 ms that are shown `delay` ms after they are decoded.
  static std::shared_ptr<SampleRows> Pictures(std::uint32_t count, std::int32_t delay) {
    auto rows = PlainRows(count, 40 * kTick, 1);
    if (delay != 0) rows->AddOffsets(count, delay * kTick);
    return rows;
  }

  MovieRecord movie_;
  std::int64_t start_ = 0;
};
using Times = std::vector<std::pair<std::int64_t, std::int64_t>>;

TEST_F(InStepOf, PicturesWithoutDelayAreDecodedEarlierToMakeRoom) {
  Show(Kind::kPictures, {Pictures(4, 0), Pictures(2, 80)});
  // The last two are decoded two units and one unit before the next clip.
  EXPECT_EQ(Laid(), (Times{{0, 0}, {40, 40}, {79, 80}, {79, 120}, {80, 160}, {120, 200}}));
  EXPECT_EQ(start_, 0);
}

TEST_F(InStepOf, EverythingMovesIfThereIsNoRoom) {
  Show(Kind::kPictures, {Pictures(1, 0), Pictures(2, 80)});
  EXPECT_EQ(Laid(), (Times{{0, 40}, {0, 80}, {40, 120}}));
  EXPECT_EQ(start_, 40);
}

TEST_F(InStepOf, PicturesAreNotHeldBeforeThoseOfAnotherTrack) {
  TrackRecord& track = Show(Kind::kPictures, {Pictures(2, 0), Pictures(2, 0)});
  const Clock clock = track.TimeClock();
  track.edits.Insert({}, {80}, {100}, clock);
  EXPECT_EQ(Laid(), (Times{{0, 0}, {40, 40}, {180, 180}, {220, 220}}));
  TrackRecord& other = AddPlainTrack(movie_, FourCC{"vide"}, kMediaScale, Pictures(4, 0));
  other.edits.Insert({}, {}, {179}, clock);
  EXPECT_EQ(Laid(), Times{});
  other.header.flags &= ~TrackHeader::kEnabled;
  EXPECT_EQ(Laid().size(), 4U);
}

TEST_F(InStepOf, SomeEditsStay) {
  TrackRecord& track = Show(Kind::kPictures, {Pictures(9, 0), Pictures(9, 0)});
  const Clock clock = track.TimeClock();
  const EditList whole = track.edits;
  track.edits.Scale({0}, {80}, {40}, clock);
  EXPECT_EQ(Laid(), Times{}) << "two rates";
  track.edits = whole;
  track.edits.Insert(whole.Segment({0}, {360}, clock), {720}, {360}, clock);
  EXPECT_EQ(Laid(), Times{}) << "shown twice";
  track.edits = whole.Segment({360}, {360}, clock);
  track.edits.Insert(whole.Segment({0}, {360}, clock), {360}, {360}, clock);
  EXPECT_EQ(Laid(), Times{}) << "another order";
}

TEST_F(InStepOf, TracksWithGapsAtTheSameTimeBothGetOneEdit) {
  for (int i = 0; i < 2; ++i) {
    TrackRecord& track = Show(Kind::kPictures, {Pictures(2, 0), Pictures(2, 0)});
    track.edits.Insert({}, {80}, {100}, track.TimeClock());
  }
  const auto result = LaidOutInStep(movie_);
  ASSERT_TRUE(result);
  for (const auto& track : result->tracks) EXPECT_EQ(track->edits.Edits().size(), 1U);
}

TEST_F(InStepOf, APacketThatWasCutIsHeardOnce) {
  auto rows = PlainRows(20, 1024, 4);
  TrackRecord& track = Show(Kind::kPackets, {rows, rows});
  const Clock clock = track.TimeClock();
  const std::int64_t clip2 = 20 * 1024;
  track.edits = {};
  track.edits.Append({100}, {0}, 1.0, clock);  // 4800: ends in packet 4
  track.edits.Append({100}, {clip2 + 4800}, 1.0, clock);
  const auto starts = [this] {
    const auto result = LaidOutInStep(movie_);
    std::vector<std::int64_t> times;
    const SampleTable& samples = result->tracks[0]->media->samples;
    for (std::uint64_t i = 0; i < samples.Count(); ++i) times.push_back(samples.TimeOf(i).units);
    return times;
  };
  std::vector<std::int64_t> expected;
  for (std::int64_t i = 0; i < 10; ++i) expected.push_back(1024 * i);
  EXPECT_EQ(starts(), expected);
  // After a gap, its part before the cut is not heard.
  track.edits.Insert({}, {100}, {10}, clock);
  EXPECT_EQ(starts()[5], 4800 + 480);
}

TEST_F(InStepOf, PacketsForTheDecoderGoIntoAGapOnlyIfTheyFit) {
  auto delayed = std::make_shared<SampleRows>();
  delayed->count = 6;
  delayed->AddTimes(1, 5000);
  delayed->AddTimes(5, 1024);
  delayed->sizes.Add(6, 4);
  delayed->AddChunks(0, 1, 6, 0);
  delayed->chunkOffsets.Add(9000);
  for (const std::int64_t gap : {30, 200}) {
    movie_.tracks.clear();
    TrackRecord& track = Show(Kind::kPackets, {PlainRows(20, 1024, 4), delayed});
    const Clock clock = track.TimeClock();
    track.edits = {};
    track.edits.Append({400}, {0}, 1.0, clock);
    track.edits.Append({gap}, Edit::kNothing, 1.0, clock);
    track.edits.Append({100}, {20 * 1024 + 5000}, 1.0, clock);
    const auto result = LaidOutInStep(movie_);
    ASSERT_TRUE(result);
    const SampleTable& samples = result->tracks[0]->media->samples;
    bool hasDelay = false;
    ForEachPiece(samples, {0, samples.Count()}, [&](const SamplePiece& piece) {
      const bool isMade = std::holds_alternative<InMemory>(
          result->tracks[0]->media->ReferenceOf(piece.description));
      hasDelay |= !isMade && piece.offset == 9000;
      if (piece.offset != 9004) return;
      EXPECT_EQ(samples.TimeOf(piece.sample).units, (400 + gap) * kTick);
    });
    EXPECT_EQ(hasDelay, gap == 200);
  }
}

}  // namespace
}  // namespace toolbox
