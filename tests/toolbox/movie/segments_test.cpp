#include "toolbox/movie/segments.h"

#include "tests/toolbox/movies.h"
#include "toolbox/atoms/text_atoms.h"
#include "toolbox/movie/cuts.h"
#include "toolbox/movie/edit_list.h"
#include "toolbox/movie/matrix.h"
#include "toolbox/movie/user_text.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kSound{"soun"}, kText{"text"}, kChapters{"chap"};
constexpr MovieTime kAll{kLongest};

// A movie with 600 units a second, opened from a file of that name. It has a track of three seconds
// for each letter of `tracks`:
//
//   v  video        l  video with an edit that reaches past its media
//   s  sound        S  sound that is disabled       e  sound that ends after one second
//   t  text         0  text whose samples last no time
struct TestMovie : MovieRecord {
  explicit TestMovie(const std::string& name, const std::string& tracks = "") {
    file = OtherFile{"/" + name};
    for (const char letter : tracks) Add(letter);
  }
  TrackRecord& operator[](std::size_t track) { return *tracks.at(track); }
  std::uint64_t Count(std::size_t track) { return tracks.at(track)->media->samples.Count(); }

 private:
  void Add(char letter) {
    if (letter == '0') AddPlainTrack(*this, kText, 600, PlainRows(5, 0, 20, 4000));
    if (letter == 't') AddPlainTrack(*this, kText, 600, PlainRows(3, 600, 20, 3000));
    if (letter == 'v' || letter == 'l') AddPlainTrack(*this, kVideo, 600, PlainRows(6, 300, 100));
    if (letter == 's' || letter == 'S' || letter == 'e') {
      AddPlainTrack(*this, kSound, 44100, PlainRows(30, 4410, 50, 1000));
    }
    TrackRecord& track = *tracks.back();
    if (letter == 'S') track.header.flags = 0;
    if (letter == 'e') track.edits.Delete({600}, {1200}, track.TimeClock());
    if (letter == 'l') track.edits.Append({600}, {1500}, 1.0, track.TimeClock());
  }
};

void Append(const MovieRecord& source, MovieRecord& movie) {
  InsertMovieSegment(source, movie, {}, kAll, movie.Duration());
}

TEST(InsertMovieSegment, GoesIntoTheTracksThatFitAndKeepsAllInStep) {
  const std::tuple<const char*, const char*, std::int64_t, std::int64_t, std::int64_t, const char*>
      cases[] = {
          {"ss", "sss", 0, 600, 1800, "0+2400 | 0+2400 | gap+1800 0+600"},
          {"Ss", "s", 0, kLongest, 1800, "0+1800 | 0+3600"},
          {"S", "s", 0, kLongest, 1800, "0+3600"},  // a disabled track is preferred to a new one
          {"vst", "ve", 300, 600, 1200,
           "0+1200 2100+600 1200+600 | 0+1200 154350+300 gap+300 88200+600 | 0+1200 gap+600 "
           "1200+600"},
          {"l", "v", 0, kLongest, 2400,
           "0+1800 1500+300 gap+300 1800+1800"},  // shows no new samples
          {"v", "", 0, kLongest, 500, "0+1800"},
          {"v", "v", 100, 0, 500, "0+1800"},
          {"v", "v", 1800, kLongest, 500, "0+1800"},
      };
  for (const auto& [tracks, more, from, length, at, expected] : cases) {
    TestMovie movie("a", tracks), source("b", more);
    const std::string before = Told(source);
    InsertMovieSegment(source, movie, {from}, {length}, {at});
    EXPECT_EQ(Told(movie), expected);
    EXPECT_EQ(Told(source), before);
  }
}

TEST(InsertMovieSegment, AddsReferencesAndDescriptionsOnce) {
  TestMovie movie("a", "vs"), source("b", "vs");
  // Sound shows nothing, so its geometry does not matter.
  TrackHeader& sound = source[1].header;
  sound.width = sound.height = sound.matrix[6] = 1;
  for (int repeated = 0; repeated < 2; ++repeated) {
    Append(source, movie);
    ASSERT_EQ(movie.tracks.size(), 2U);
    for (const auto& track : movie.tracks) {
      EXPECT_EQ(track->media->dataReferences,
                (std::vector<DataReference>{ThisFile{}, OtherFile{"/b"}}));
      ASSERT_EQ(track->media->descriptions.size(), 2U);
      EXPECT_EQ(track->media->descriptions[1].dataReference, 1U);
    }
  }
}

TEST(InsertMovieSegment, JoinsSamplesThatLastNoTime) {
  TestMovie movie("a", "t0"), source("b", "t0"), other("c", "0");
  Append(source, movie);
  ASSERT_EQ(movie.tracks.size(), 2U);
  EXPECT_EQ(movie.Count(0), 6U);
  EXPECT_EQ(movie.Count(1), 10U);
  EXPECT_THROW(InsertTrackSegment(other[0], movie[0], {}, {}, {}), Refused);
  InsertTrackSegment(other[0], movie[1], {}, {}, {});
  EXPECT_EQ(movie.Count(1), 15U);
}

TEST(InsertMovieSegment, MakesANewTrackForWhatDoesNotFit) {
  using Change = void (*)(TrackRecord&);
  const Change changes[] = {
      [](TrackRecord& track) { track.header.width = 640 << 16; },
      [](TrackRecord& track) { track.header.height = 480 << 16; },
      [](TrackRecord& track) { track.header.matrix[6] = 1; },
      [](TrackRecord& track) { track.header.alternateGroup = 1; },
      [](TrackRecord& track) { track.media->header.language = 1; },
      [](TrackRecord& track) { track.media->header.scale = 2998; },
      [](TrackRecord& track) {
        track.siblings.push_back({FourCC{"clip"}, Made("clip{ }")});
      },
      [](TrackRecord& track) {
        track.siblings.push_back({FourCC{"matt"}, Made("matt{ }")});
      },
      [](TrackRecord& track) { track.media->handler.subtype = kText; },
  };
  for (const Change& change : changes) {
    TestMovie movie("a", "v"), source("b", "v");
    change(source[0]);
    InsertMovieSegment(source, movie, {}, kAll, {1800});
    EXPECT_EQ(Told(movie), "0+1800 | gap+1800 0+1800") << &change - changes;
    const TrackRecord &added = movie[1], &like = source[0];
    EXPECT_EQ(added.media->header.scale, like.media->header.scale);
    EXPECT_EQ(added.header.width, like.header.width);
    EXPECT_EQ(added.header.id, 2U);
  }
}

TEST(InsertMovieSegment, FillsAnEmptyMovieButForWhatIsTheMoviesOwn) {
  TestMovie movie("a"), source("b", "vs");
  source.header.matrix[0] = 5;
  source.userData.items.push_back({FourCC{"name"}, {'x'}});
  source[0].userData.items.push_back({FourCC{"name"}, {'v'}});
  // Its packets name samples by number.
  AddPlainTrack(source, FourCC{"hint"}, 600, PlainRows(6, 300, 10))
      .Refer(FourCC{"hint"}, source[0]);
  InsertMovieSegment(source, movie, {}, kAll, {});
  ASSERT_EQ(movie.tracks.size(), 2U);
  EXPECT_EQ(movie.header.matrix, kIdentityMatrix);
  EXPECT_TRUE(movie.userData.items.empty());
  EXPECT_EQ(movie[0].userData, source[0].userData);
  EXPECT_EQ(movie[0].media->dataReferences, (std::vector<DataReference>{OtherFile{"/b"}}));
}

TEST(InsertMovieSegment, StoresAMediaOnceHoweverOftenItIsJoined) {
  TestMovie movie("a"), source("b", "v");
  for (int i = 0; i < 3; ++i) InsertMovieSegment(source, movie, {300}, {600}, movie.Duration());
  EXPECT_EQ(movie.Count(0), 6U);
  EXPECT_EQ(Told(movie), "300+600 300+600 300+600");
  InsertMovieSegment(source, source, {}, {600}, {1800});
  EXPECT_EQ(source.Count(0), 6U);
  EXPECT_EQ(Told(source), "0+1800 0+600");
}

TEST(InsertMovieSegment, ThatIsRefusedChangesNothing) {
  TestMovie movie("a", "v"), source("b", "v"), unsaved("c", "sv");
  unsaved.file.reset();
  const auto codeOf = [&](const MovieRecord& from, MovieTime in, MovieTime length, MovieTime at) {
    return CodeOf([&] { InsertMovieSegment(from, movie, in, length, at); });
  };
  EXPECT_EQ(codeOf(source, {-1}, kAll, {}), invalidTime);
  EXPECT_EQ(codeOf(source, {}, kAll, {-1}), invalidTime);
  EXPECT_EQ(codeOf(source, {}, {-1}, {}), invalidDuration);
  EXPECT_EQ(codeOf(unsaved, {}, kAll, {}), couldNotResolveDataRef);
  auto cut = PlainRows(4, 300, 10);
  cut->chunkRuns = {};
  cut->chunkRuns.Add(0, 1, 2, 0);
  AddPlainTrack(source, kVideo, 600, cut);
  EXPECT_EQ(codeOf(source, {}, kAll, {}), invalidSampleTable);
  EXPECT_EQ(Told(movie), "0+1800");
  EXPECT_EQ(movie.Count(0), 6U);
}

// --- Other changes to a whole movie

TEST(Movie, CloneKeepsReferencesAndNoTwoTracksHaveOneId) {
  TestMovie movie("a", "tv");
  movie[1].Refer(kChapters, movie[0]);
  const auto clone = movie.Clone();
  ASSERT_EQ(clone->tracks.size(), 2U);
  EXPECT_EQ(clone->tracks[1]->movie, clone.get());
  EXPECT_EQ(clone->tracks[1]->references[0].targets[0], clone->tracks[0].get());
  clone->RemoveTrack(*clone->tracks[0]);
  EXPECT_TRUE(clone->tracks[0]->references.empty());
  EXPECT_EQ(movie[1].references[0].targets[0], &movie[0]);
  // ISO/IEC 14496-12 8.2.2.3: a next track id of all ones means that any free one may be taken.
  movie.header.nextTrackId = UINT32_MAX;
  movie.AddTrack();
  EXPECT_EQ(movie.AddTrack().header.id, 4U);
  EXPECT_EQ(movie.header.nextTrackId, UINT32_MAX);
}

class Cuts : public testing::Test {
 protected:
  TestMovie movie_{"a", "vs"};
  TrackRecord &video_ = movie_[0], &sound_ = movie_[1];
};

TEST_F(Cuts, RefuseInvalidRangesWithoutChanges) {
  EXPECT_EQ(CodeOf([&] { DeleteSegment(video_, {-1}, {5}); }), invalidTime);
  EXPECT_EQ(CodeOf([&] { DeleteSegment(video_, {0}, {-5}); }), invalidDuration);
  EXPECT_EQ(CodeOf([&] { DeleteSegment(movie_, {1801}, {5}); }), invalidTime);
  EXPECT_EQ(CodeOf([&] { ScaleSegment(video_, {-1}, {5}, {6}); }), invalidTime);
  EXPECT_EQ(CodeOf([&] { ScaleSegment(movie_, {0}, {6}, {0}); }), invalidDuration);
  EXPECT_EQ(CodeOf([&] { InsertMedia(video_, MovieTime{-2}, {0}, {5}, 1); }), invalidTime);
  EXPECT_EQ(CodeOf([&] { InsertMedia(video_, {}, {1801}, {5}, 1); }), invalidTime);
  EXPECT_EQ(CodeOf([&] { InsertMedia(video_, {}, {0}, {-5}, 1); }), invalidDuration);
  EXPECT_EQ(CodeOf([&] { InsertMedia(video_, {}, {0}, {5}, 0); }), invalidDuration);
  EXPECT_EQ(CodeOf([&] { InsertMedia(movie_.AddTrack(), {}, {0}, {5}, 1); }), noMediaHandler);
  EXPECT_EQ(CodeOf([&] { SetOffset(video_, {-1}); }), invalidTime);
  // It is no failure if there is nothing to do.
  DeleteSegment(video_, {1800}, {5});
  EXPECT_EQ(Told(video_.edits), "0+1800");
}

TEST_F(Cuts, OfTheEndShortenThePreviewToo) {
  movie_.header.previewTime = 1500;
  movie_.header.previewDuration = movie_.header.posterTime = 1750;
  ScaleSegment(movie_, {90}, {10}, {20});
  DeleteSegment(movie_, {95}, {10});
  EXPECT_EQ(Told(movie_), "0+90 90+5x0.5 98+5x0.5 100+1700 | 0+90 6615+5x0.5 7167+5x0.5 7350+1700");
  DeleteSegment(movie_, {1700}, {kLongest});
  EXPECT_EQ(movie_.header.previewDuration, 200);
  EXPECT_EQ(movie_.header.posterTime, 1700);
}

TEST_F(Cuts, KeepTheLengthOfInsertedMedia) {
  DeleteSegment(sound_, {0}, {1800});
  InsertMedia(sound_, MovieTime{300}, {0}, {100000}, 1);  // after a gap: 1360.54 units
  InsertMedia(sound_, {}, {7}, {1}, 1);  // shorter than a movie unit, but kept
  EXPECT_EQ(Told(sound_.edits), "gap+300 0+1361 7+1");
  InsertMedia(sound_, MovieTime{0}, {0}, {44100}, 2);
  EXPECT_EQ(Told(sound_.edits), "0+300x2 gap+300 0+1361 7+1");
  SetOffset(video_, {50});
  SetOffset(video_, {30});
  EXPECT_EQ(Told(video_.edits), "gap+30 0+1800");
  DeleteSegment(video_, video_.edits.Offset(), video_.edits.Duration());
  SetOffset(video_, {30});
  EXPECT_EQ(Told(video_.edits), "");
}

// --- Texts of user data

constexpr FourCC kName{"\251nam"};

TEST(UserText, IsEntriesOfSizeLanguageAndText) {
  UserDataRecord data;
  SetText(data, kName, 1, 0, Text("Hi"));
  SetText(data, kName, 1, 14, Bytes{0xB6});
  SetText(data, kName, 1, 0, Text("Hello"));
  EXPECT_EQ(data.Item(kName, 1), Made("5/2 0/2 'Hello' 1/2 14/2 xB6"));
  EXPECT_EQ(TextOf(data, kName, 1, 14), Bytes{0xB6});
  SetText(data, kName, 1, 0, Bytes(70000, 'x'));
  EXPECT_EQ(TextOf(data, kName, 1, 0).size(), 65535U)
      << "cut at the largest length that its size field can state";
}

TEST(UserText, IsAddedOnlyToItemsOfTexts) {
  const UserDataRecord before{{{kName, Text("raw text")}}};
  UserDataRecord data = before;
  EXPECT_EQ(CodeOf([&] { SetText(data, kName, 1, 0, {}); }), paramErr);
  EXPECT_EQ(CodeOf([&] { SetText(data, FourCC{"name"}, 1, 0, {}); }), paramErr);
  EXPECT_EQ(CodeOf([&] { SetText(data, kName, 3, 0, {}); }), userDataItemNotFound);
  EXPECT_EQ(data, before);
  for (const char* cut : {"2/2 0/2 'H'", "0/2 0/1", "0 1/1"}) {
    EXPECT_EQ(ReadTextEntries(Made(cut)), std::nullopt) << cut;
  }
}

TEST(UserText, OfAnotherLanguageIsUsedIfLanguageZeroIsMissing) {
  const std::string own = "3/2 0/2 'own' ", unspecified = "2/2 0x7FFF/2 x618E ",
                    iso = "9/2 0x55C4/2 'Caf\u00e9 \u65e5' ", greek = "1/2 14/2 xB6 ",
                    wide = "6/2 0x15C7/2 xFFFEE9006100 ";
  for (const auto& [payload, expected] : {std::pair(greek + iso + unspecified + own, "own"),
                                          {greek + iso + unspecified, "a\x8E"},
                                          {greek + iso + wide, "Caf\x8E ?"},
                                          {wide, "\x8E\x61"},
                                          {"2/2 0x55C4/2 x61FF", "a?"}}) {
    EXPECT_EQ(TextOf({{{kName, Made(payload)}}}, kName, 1, 0), Text(expected)) << payload;
  }
  const UserDataRecord data{{{kName, Made(greek)}}};
  EXPECT_EQ(CodeOf([&] { TextOf(data, kName, 1, 0); }), userDataItemNotFound);
  EXPECT_EQ(CodeOf([&] { TextOf(data, kName, 1, 15); }), userDataItemNotFound);
}

// --- Lists of edits

constexpr Clock kEqual{600, 600};

// Edits in order: {duration, media time}.
EditList ListOf(const std::vector<std::pair<std::int64_t, std::int64_t>>& parts) {
  EditList list;
  for (const auto& [duration, media] : parts) list.Append({duration}, {media}, 1.0, kEqual);
  return list;
}

// In the normal form (edit_list.h), no two edits are joined when the edits are appended again.
void ExpectNormal(const EditList& list) {
  EditList again;
  for (const Edit& edit : list.Edits()) {
    again.Append(edit.duration, edit.mediaTime, edit.rate, kEqual);
  }
  EXPECT_EQ(again, list);
  EXPECT_FALSE(!list.Edits().empty() && list.Edits().back().IsEmpty());
}

TEST(EditList, DeletingWhatWasInsertedRestoresTheEdit) {
  const Clock clock{600, 44100};
  EditList list;
  list.Append({1000}, {7}, 1.5, clock);
  for (std::int64_t at = 1; at < 1000; at += 13) {
    list.Insert(ListOf({{50, 99999}}), {at}, {50}, clock);
    ASSERT_EQ(list.Edits().size(), 3U);
    list.Delete({at}, {50}, clock);
    ASSERT_EQ(Told(list), "7+1000x1.5") << "cut at " << at;
  }
}

TEST(EditList, PartsThatFollowOneAnotherInTheMediaDoNotDrift) {
  const Clock clock{600, 44100};
  EditList list;
  for (std::int64_t i = 0; i < 1000; ++i) list.AppendMedia({i * 100'004}, {100'004}, 1.0, clock);
  list.AppendMedia({5}, {44100}, 1.0, clock);
  list.AppendMedia({44105}, {44100}, 0.5, clock);
  EXPECT_EQ(Told(list), "0+1360599 5+600 44105+1200x0.5") << "the first lasts 1360598.6 units";
}

TEST(Rescale, RoundsAsAskedFarBeyond64Bits) {
  EXPECT_EQ(Rescale(1, 2, 1), 1);
  EXPECT_EQ(Rescale(-1, 2, 1), 0);
  EXPECT_EQ(Rescale(-3, 2, 1), -1);
  EXPECT_EQ(Rescale(-1, 2, 1, Rounding::kDown), -1);
  EXPECT_EQ(Rescale(1, 3, 1, Rounding::kUp), 1);
  EXPECT_EQ(Rescale(-1, 3, 1, Rounding::kUp), 0);
  EXPECT_EQ(Rescale(INT64_MAX / 8, 1000, 1001), INT64_MAX / 8 / 1000 * 1001 + 976);
  EXPECT_EQ(Rescale(INT64_MAX, 1, INT32_MAX), kLongest);
  EXPECT_EQ(Rescale(-INT64_MAX, 1, INT32_MAX), -kLongest);
  constexpr std::int64_t kEnd = std::int64_t{1} << 32,
                         kFar = 1 << 29;  // scales so large that the arithmetic needs 128 bits
  for (const std::int64_t units : {-kEnd - 1, -kEnd, std::int64_t{-7}, kEnd, kEnd + 1}) {
    for (const Rounding rounding : {Rounding::kNearest, Rounding::kDown, Rounding::kUp}) {
      EXPECT_EQ(Rescale(units, 600, 44101, rounding),
                Rescale(units, 600 * kFar, 44101 * kFar, rounding));
    }
  }
}

TEST(TimeScale, RoundsBoundariesAndNotLengths) {
  for (const auto& [scale, expected] :
       {std::pair(44100, "0+7350 9000+7424 18000+7423"), {2, "9000+1"}}) {
    MovieRecord movie;
    movie.AddTrack().media.emplace().header.scale = 600;
    movie.tracks[0]->edits = ListOf({{100, 0}, {101, 9000}, {101, 18000}});
    movie.header.selectionTime = 302;
    movie.SetScale(scale);
    EXPECT_EQ(Told(movie), expected);
    EXPECT_EQ(movie.header.selectionTime, movie.Duration().units);
  }
}

// --- Compared with a simple model: the media unit that each movie unit shows, or nothing.

using Cells = std::vector<std::int64_t>;
constexpr std::int64_t kNone = -1;

Cells CellsOf(const EditList& list) {
  Cells cells;
  for (const Edit& edit : list.Edits()) {
    for (std::int64_t i = 0; i < edit.duration.units; ++i) {
      cells.push_back(edit.IsEmpty() ? kNone : edit.mediaTime.units + i);
    }
  }
  return cells;
}

Cells Trimmed(Cells cells) {
  while (!cells.empty() && cells.back() == kNone) cells.pop_back();
  return cells;
}

TEST(EditList, AgreesWithTheModelAfterAnySequenceOfEdits) {
  Random random(1);
  const auto below = [&](std::int64_t limit) -> std::int64_t {
    return random.Below(static_cast<std::uint64_t>(limit));
  };
  EditList list;
  Cells cells;
  for (int step = 0; step < 3200 && !testing::Test::HasFailure(); ++step) {
    const auto size = static_cast<std::int64_t>(cells.size());
    const std::int64_t kind = below(6), from = below(size + 5), length = 1 + below(20);
    if (kind < 2) {  // a list with gaps before, between and after its edits
      EditList other;
      for (std::int64_t i = below(4); i > 0; --i) {
        other.Append({below(3) * below(4)}, Edit::kNothing, 1.0, kEqual);
        other.Append({1 + below(9)}, {below(60)}, 1.0, kEqual);
      }
      const MovieTime room = other.Duration() + MovieTime{below(4)};
      list.Insert(other, {from}, room, kEqual);
      Cells inserted = CellsOf(other);
      inserted.resize(static_cast<std::size_t>(room.units), kNone);
      cells.resize(static_cast<std::size_t>(std::max(size, from)), kNone);
      cells.insert(cells.begin() + from, inserted.begin(), inserted.end());
    } else if (kind == 2) {  // scaling to a greater length and back changes nothing
      const EditList before = list;
      const std::int64_t newLength = length + below(1000);
      list.Scale({from}, {length}, {newLength}, kEqual);
      ExpectNormal(list);
      if (from + length <= size) EXPECT_EQ(list.Duration().units, size - length + newLength);
      list.Scale({from}, {newLength}, {length}, kEqual);
      EXPECT_EQ(list, before);
    } else {
      const auto first = cells.begin() + std::min(from, size);
      const auto last = cells.begin() + std::min(from + length, size);
      const EditList segment = list.Segment({from}, {length}, kEqual);
      ExpectNormal(segment);
      EXPECT_EQ(CellsOf(segment), Trimmed({first, last}));
      list.Delete({from}, {length}, kEqual);
      cells.erase(first, last);
    }
    cells = Trimmed(cells);
    ExpectNormal(list);
    EXPECT_EQ(CellsOf(list), cells) << "after step " << step;
  }
}

// --- Matrices

constexpr std::int32_t kOne = 0x10000, kLast = 0x40000000;

// The matrix with these a, b, c, d, tx and ty, in whole units.
constexpr Matrix Of(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d,
                    std::int32_t x = 0, std::int32_t y = 0) {
  return {a * kOne, b * kOne, 0, c * kOne, d * kOne, 0, x * kOne, y * kOne, kLast};
}

TEST(Matrix, RotatesByAnyAngle) {
  EXPECT_EQ(Rotation(-450 * kOne, 0, 0), Of(0, -1, 1, 0));
  // cos 30 = 56755.8, sin 30 = 32768 of 65536.
  EXPECT_EQ(Rotation(30 * kOne, 0, 0), (Matrix{56756, 32768, 0, -32768, 56756, 0, 0, 0, kLast}));
  EXPECT_EQ(Rotation(kOne / 2, 0, 0)[1], 572) << "fractions of a degree count";
}

TEST(Matrix, AppliesInOrderAndStopsAtTheLimits) {
  EXPECT_EQ(Concatenated(Of(1, 2, 3, 4, 5, 6), Of(0, 1, -1, 0, 7, 8)), Of(-2, 1, -4, 3, 1, 13));
  Matrix perspective = kIdentityMatrix;
  perspective[2] = 0x08000000;  // u = 1/8
  EXPECT_EQ(Concatenated(perspective, Translation(16 * kOne, 0)),
            (Matrix{3 * kOne, 0, 0x08000000, 0, kOne, 0, 16 * kOne, 0, kLast}));
  const Matrix huge = Scaling(30000 * kOne, -30000 * kOne, 0, 0);
  EXPECT_EQ(Concatenated(huge, Of(30000, 0, 0, 30000)),
            (Matrix{INT32_MAX, 0, 0, 0, INT32_MIN, 0, 0, 0, kLast}));
}

}  // namespace
}  // namespace toolbox
