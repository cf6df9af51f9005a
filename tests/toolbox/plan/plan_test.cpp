#include "toolbox/plan/plan.h"

#include <regex>

#include "tests/toolbox/movies.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/plan/flatten.h"
#include "toolbox/plan/in_step.h"
#include "toolbox/plan/reference.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kSound{"soun"}, kText{"text"}, kHint{"hint"};

// A plan in one line: the samples that are copied, with a bar after each track, and the bytes of
// the sources. A stretch that is kept has its places in the source and in the output.
//   "0-2 2-4 | 0-3@100>0 | 1100+40 1200+60"
std::string Printed(const FilePlan& plan) {
  std::ostringstream text;
  for (const TrackPlan& track : plan.tracks) {
    const auto* kept = std::get_if<KeptStretches>(&track.places);
    std::size_t stretch = 0;
    track.ForEachCopied([&](std::uint64_t first, std::uint32_t count) {
      text << first << "-" << first + count;
      if (kept) text << "@" << kept->at(stretch).source << ">" << kept->at(stretch).destination;
      text << " ";
      ++stretch;
    });
    text << "| ";
  }
  std::uint64_t destination = 0;
  plan.ForEachRange({}, [&](const CopyRange& range) {
    EXPECT_EQ(range.destination, destination);
    destination += range.length;
    text << range.at << "+" << range.length << " ";
  });
  EXPECT_EQ(destination, plan.dataSize);
  return text.str().substr(0, text.str().size() - 1);
}

void Show(TrackRecord& track, std::vector<std::pair<std::int64_t, std::int64_t>> parts) {
  track.edits = {};
  for (const auto& [duration, media] : parts) {
    track.edits.Append({duration}, {media}, 1.0, track.TimeClock());
  }
}

// Rows of `count` samples of one size, which the table states once.
std::shared_ptr<SampleRows> EqualRows(std::uint32_t count, std::uint32_t delta,
                                      std::uint32_t size) {
  auto rows = PlainRows(count, delta, 0);
  rows->sizes = {};
  rows->constantSize = size;
  return rows;
}

// A movie with media in a sparse file of that many bytes.
class Plan : public InFolder {
 protected:
  Plan() { HasFile(1 << 20); }
  void HasFile(std::uint64_t size) {
    movie_.file = OtherFile{Store("media", {})};
    fs::resize_file(folder_ / "media", size);
  }
  FilePlan Flattened(FlattenOptions options = {}) { return PlanFlattened(movie_, options); }

  MovieRecord movie_;
};

TEST_F(Plan, CopiesWhatIsShownAndWhatThatNeeds) {
  auto rows = PlainRows(30, 100, 10, 1000);
  rows->sync = {0, 10, 20};
  TrackRecord& track = AddPlainTrack(movie_, kVideo, 600, rows);
  Show(track, {{150, 1250}, {100, 2500}, {50, -1}, {100, 1300}});
  FilePlan plan = Flattened();
  EXPECT_EQ(Printed(plan), "10-13 13-14 20-23 23-26 | 1100+40 1200+60");
  const TrackRecord& output = *plan.movie->tracks[0];
  EXPECT_EQ(output.media->dataReferences, std::vector<DataReference>{ThisFile{}});
  EXPECT_EQ(Told(output.edits), "250+150 900+100 gap+50 300+100");
  EXPECT_EQ(output.media->samples.SyncAtOrBefore(9), 4U);
  Show(track, {{100, 10000}});
  plan = Flattened();
  EXPECT_EQ(Printed(plan), "|") << "a track that shows nothing is kept";
  EXPECT_EQ(plan.movie->tracks.at(0)->edits, EditList());
}

TEST_F(Plan, LetsADecoderOfSoundHearWhatComesBefore) {
  const auto firstCopied = [&](std::int64_t firstHeard, std::vector<SampleGroup> groups) {
    movie_.tracks.clear();
    auto rows = PlainRows(200, 1024, 10);
    rows->groups = std::move(groups);
    Show(AddPlainTrack(movie_, kSound, 44100, rows), {{1, 1024 * firstHeard}});
    return Printed(Flattened());
  };
  const SampleGroupDescriptions sixtyBefore{1 << 24, FourCC{"roll"},
                                            Join(U32(2), U32(1), U16(0xFFC4))};
  EXPECT_EQ(firstCopied(20, {}).substr(0, 2), "0-");
  EXPECT_EQ(firstCopied(120, {}).substr(0, 3), "76-");
  EXPECT_EQ(firstCopied(120, {{FourCC{"roll"}, 0, 0, sixtyBefore, {{0, 1}}}}).substr(0, 3), "60-");
}

TEST_F(Plan, KeepsSamplesThatLastNoTimeWhereAnEditStartsOrEnds) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = 8;
  for (const std::uint32_t each : {0U, 0U, 100U, 0U, 0U, 100U, 100U, 0U}) rows->AddTimes(1, each);
  rows->sizes.Add(8, 10);
  rows->AddChunks(0, 1, 8, 0);
  rows->chunkOffsets.Add(0);
  TrackRecord& track = AddPlainTrack(movie_, kText, 600, rows);
  EXPECT_EQ(Printed(Flattened()), "0-8 | 0+80");
  Show(track, {{100, 100}});
  EXPECT_EQ(Printed(Flattened()), "3-6 | 30+30");
  Show(track, {{150, 50}});
  EXPECT_EQ(Printed(Flattened()), "2-6 | 20+40");
}

TEST_F(Plan, CutsChunksOfHalfASecondAndAMebibyteBetweenPackets) {
  HasFile(std::uint64_t{1} << 32);
  auto packets = EqualRows(64 * 700, 1, 1);
  packets->packings = {{64, 34}};
  for (const auto& [type, scale, rows, printed] :
       {std::tuple{kSound, 44100, EqualRows(100000, 1, 4),
                   "0-22050 22050-44100 44100-66150 66150-88200 88200-100000 | 0+400000"},
        {kVideo, 600, PlainRows(10, 20, 400 << 10), "0-2 2-4 4-6 6-8 8-10 | 0+4096000"},
        {kVideo, 600, PlainRows(2, 700, 3 << 20), "0-1 1-2 | 0+6291456"},
        {kVideo, 600, PlainRows(40, 25, 1), "0-12 12-24 24-36 36-40 | 0+40"},
        {kSound, 44100, packets, "0-22016 22016-44032 44032-44800 | 0+23800"}}) {
    movie_.tracks.clear();
    AddPlainTrack(movie_, type, scale, rows);
    EXPECT_EQ(Printed(Flattened()), printed);
  }
}

TEST_F(Plan, PutsChunksInTheOrderInWhichTheyAreShown) {
  AddPlainTrack(movie_, kText, 600, PlainRows(4, 300, 1, 0));
  AddPlainTrack(movie_, kVideo, 600, PlainRows(4, 300, 10, 100));
  AddPlainTrack(movie_, kSound, 600, PlainRows(4, 300, 100, 1000));
  Show(*movie_.tracks[1], {{600, 600}, {600, 0}});
  const std::string samples = "0-1 1-2 2-3 3-4 | 0-1 1-2 2-3 3-4 | 0-1 1-2 2-3 3-4 | ";
  EXPECT_EQ(Printed(Flattened()), samples +
                                      "1000+100 120+10 0+1 1100+100 130+10 1+1 "
                                      "1200+100 100+10 2+1 1300+100 110+10 3+1");
  EXPECT_EQ(Printed(Flattened({.interleave = false})), samples + "0+4 100+40 1000+400");
}

// Ten seconds with a picture of 30 bytes and a sound sample of 10 bytes each second. Chunks of
// `together` samples alternate between the two; `gap` bytes in the middle are unused.
TEST_F(Plan, CopiesAnInterleavedFileAsItIs) {
  const std::string whole = "0-10@100>0 | 0-10@130>30 | 100+400";
  for (const auto& [together, gap, mostChunks, printed] :
       {std::tuple(1U, 0U, 20U, whole),
        {1, 0, 19, "packed"},
        {5, 0, 20, "packed"},
        {1, 7, 20, "0-5@100>0 5-10@307>200 | 0-5@130>30 5-10@337>230 | 100+200 307+200"}}) {
    movie_.tracks.clear();
    for (const bool isSound : {false, true}) {
      auto rows = PlainRows(10, 600, isSound ? 10 : 30);
      rows->chunkRuns = {};
      rows->chunkOffsets = {};
      rows->AddChunks(0, 10 / together, together, 0);
      for (std::uint32_t chunk = 0; chunk < 10 / together; ++chunk) {
        rows->chunkOffsets.Add(100 + (isSound ? 30U : 0U) * together + chunk * 40U * together +
                               (chunk < 5 ? 0 : gap));
      }
      AddPlainTrack(movie_, isSound ? kSound : kVideo, 600, rows);
    }
    const FilePlan plan = Flattened({.maxChunksKept = mostChunks});
    EXPECT_EQ(plan.blocks.empty() ? "packed" : Printed(plan), printed);
  }
  HasFile(506);
  EXPECT_EQ(CodeOf([&] { Flattened({.maxChunksKept = 20}); }), eofErr);
  movie_.RemoveTrack(*movie_.tracks[1]);
  EXPECT_EQ(Flattened({.maxChunksKept = 20}).dataSize, 300U) << "without bytes that no track shows";
}

TEST_F(Plan, MergesDescriptionsThatAreEqualAndDropsTheUnused) {
  auto rows = PlainRows(6, 50, 10);
  rows->chunkRuns = {};
  for (std::uint32_t chunk = 0; chunk < 3; ++chunk) rows->AddChunks(chunk, 1, 2, chunk);
  rows->chunkOffsets.Add(100);
  rows->chunkOffsets.Add(200);
  MediaRecord& media = *AddPlainTrack(movie_, kVideo, 600, rows).media;
  media.dataReferences.push_back(OtherFile{Store("other", Zeros(1000))});
  media.descriptions = {Described(FourCC{"same"}), Described(FourCC{"same"}),
                        Described(FourCC{"diff"})};
  media.descriptions[1].dataReference = 1;
  EXPECT_EQ(Flattened().movie->tracks[0]->media->descriptions.size(), 2U);
  EXPECT_EQ(Printed(Flattened()), "0-4 4-6 | 0+20 100+20 200+20");
  Show(*movie_.tracks[0], {{200, 0}});
  const FilePlan plan = Flattened();
  ASSERT_EQ(plan.movie->tracks[0]->media->descriptions.size(), 1U);
  EXPECT_EQ(plan.movie->tracks[0]->media->descriptions[0].Format(), FourCC{"same"});
}

TEST_F(Plan, DropsHintTracksWhoseNumbersNoLongerHold) {
  TrackRecord& video = AddPlainTrack(movie_, kVideo, 600, PlainRows(6, 100, 10));
  AddPlainTrack(movie_, kHint, 600, PlainRows(6, 100, 10)).Refer(kHint, video);
  AddPlainTrack(movie_, kSound, 600, PlainRows(6, 100, 10));
  const std::string all = "0-3 3-6 | 0-3 3-6 | 0-3 3-6 | ";
  EXPECT_EQ(Printed(Flattened({.onlyEnabled = true})).substr(0, all.size()), all);
  video.header.flags = 0;
  EXPECT_EQ(Printed(Flattened({.onlyEnabled = true})), "0-3 3-6 | 0+60");
  EXPECT_EQ(Flattened().tracks.size(), 3U);
  Show(video, {{100, 300}});
  EXPECT_EQ(Flattened().movie->tracks.size(), 2U);
}

TEST_F(Plan, RefusesMediaThatAreNotThere) {
  MediaRecord& media = *AddPlainTrack(movie_, kVideo, 600, PlainRows(6, 100, 10)).media;
  const auto codeWith = [&](DataReference reference) {
    media.dataReferences = {std::move(reference)};
    return CodeOf([&] { Flattened(); });
  };
  EXPECT_EQ(codeWith(OtherFile{Store("short", Zeros(59))}), eofErr);
  EXPECT_EQ(codeWith(OtherFile{Store("enough", Zeros(60))}), noErr);
  movie_.file.reset();
  EXPECT_EQ(codeWith(ThisFile{}), couldNotResolveDataRef);
  EXPECT_EQ(CodeOf([&] { PlanReference(movie_); }), couldNotResolveDataRef);
}

// The second time, each track knows whether it needs wide chunk offsets.
TEST_F(Plan, HasTheSameHeaderWhenItIsMeasuredAgain) {
  const std::uint32_t count = 50'000;
  HasFile(count * 11 + 6 * 100);
  auto rows = PlainRows(count, 10, 11);  // its sizes fill more than a block
  rows->sizes = {};
  rows->sizes.Add(7, 11);
  rows->sizes.Add(10);
  rows->sizes.Add(count - 8, 11);
  AddPlainTrack(movie_, kVideo, 600, rows, OtherFile{folder_ / "media"});
  AddPlainTrack(movie_, kSound, 600, PlainRows(6, 100, 100, count * 11));
  const FilePlan plan = Flattened({.interleave = false});
  const MovieWriter unused(plan, folder_ / "out.mov");  // its copies give the same date
  MovieWriter writer = unused;
  constexpr std::uint64_t kFar = 0xFFFFFFF0;
  const std::regex wideTable("co64");
  for (const auto& [start, wideTables] :
       {std::pair{std::uint64_t{36}, 0}, {kFar, 2}, {500, 0}, {kFar - 549'785, 1}}) {
    const Bytes movie = MovieWriter(unused).Encode(start);
    EXPECT_EQ(writer.SizeAt(start), movie.size());
    Bytes blocks;
    writer.Write(start, [&](ByteSpan b) { blocks.insert(blocks.end(), b.begin(), b.end()); });
    EXPECT_EQ(blocks, movie);
    const std::string text(movie.begin(), movie.end());
    const std::sregex_iterator found(text.begin(), text.end(), wideTable);
    EXPECT_EQ(std::distance(found, {}), wideTables) << start;
  }
}

// --- Tracks in step

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

  // Adds an edit for the last clip. It starts with the first sample or a few samples later.
  void Show(const SampleRows& rows, bool isFirst) {
    const Clock clock = track_->TimeClock();
    const SampleTable& samples = track_->media->samples;
    const SampleSlice& slice = samples.SliceOf(samples.Count() - rows.count);
    const std::uint32_t first = std::array{0U, 2U, 8U}[random_.Below(3)];
    MediaTime from = slice.ShownAt(std::min(first, rows.count - 1));
    if (random_.Flip()) from += MediaTime{random_.Below(kMediaScale / 50)};
    const MediaTime end = slice.time + slice.ShownUntil();
    MovieTime length = clock.Lasting(end - from, 1.0, Rounding::kDown);
    if (random_.Flip()) length.units -= random_.Below(static_cast<std::uint64_t>(length.units) / 3);
    if (random_.Flip() && (!isFirst || random_.Flip())) {
      track_->edits.Append({1 + random_.Below(random_.Flip() ? 30 : 300)}, Edit::kNothing, 1.0,
                           clock);
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
    // There is none if samples that no edit shows must be decoded between two segments.
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

class InStepEdits : public testing::Test {
 protected:
  // Adds a track of two clips with `count` pictures of 40 ms each, and an edit for each.
  TrackRecord& Show(std::uint32_t count) {
    movie_.header.scale = kMovieScale;
    const auto rows = PlainRows(count, 40 * kTick, 1);
    TrackRecord& track = AddPlainTrack(movie_, FourCC{"vide"}, kMediaScale, rows);
    track.media->descriptions = {DescriptionOf(Kind::kPictures)};
    const MediaTime base = track.media->samples.AppendSlice(SampleTable(rows), {0, count});
    track.edits.AppendMedia(base, rows->duration, 1.0, track.TimeClock());
    return track;
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

TEST_F(InStepEdits, PicturesAreNotHeldBeforeThoseOfAnotherTrack) {
  TrackRecord& track = Show(2);
  TrackRecord& other = Show(2);
  const Clock clock = track.TimeClock();
  for (TrackRecord* each : {&track, &other}) each->edits.Insert({}, {80}, {100}, clock);
  EXPECT_EQ(Times(), (std::vector<std::int64_t>{0, 40, 180, 220})) << "both have a gap there";
  other.edits = track.edits.Segment({180}, {80}, clock);
  other.edits.Insert({}, {}, {179}, clock);
  EXPECT_TRUE(Times().empty());
  other.header.flags &= ~TrackHeader::kEnabled;
  EXPECT_EQ(Times().size(), 4U);
}

TEST_F(InStepEdits, TwoRatesRepeatsAndReorderingAreKept) {
  TrackRecord& track = Show(9);
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
