#include "toolbox/movie/segments.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"
#include "tests/toolbox/told.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kSound{"soun"}, kText{"text"}, kChapters{"chap"};
constexpr MovieTime kAll{kLongest};

// A movie with 600 units a second, opened from a file of that name. Its tracks last three seconds.
struct TestMovie : MovieRecord {
  explicit TestMovie(const std::string& name) { file = OtherFile{"/" + name}; }

  TrackRecord& Video() { return AddPlainTrack(*this, kVideo, 600, PlainRows(6, 300, 100)); }
  TrackRecord& Sound() {
    return AddPlainTrack(*this, kSound, 44100, PlainRows(30, 4410, 50, 1000));
  }
  TrackRecord& Text() { return AddPlainTrack(*this, kText, 600, PlainRows(3, 600, 20, 3000)); }
};

std::uint64_t Count(const MovieRecord& movie, std::size_t track) {
  return movie.tracks.at(track)->media->samples.Count();
}

TEST(InsertMovieSegment, GoesIntoTheTracksThatFit) {
  TestMovie movie("a"), source("b");
  movie.Video(), movie.Sound(), source.Video();
  // Sound shows nothing, so its geometry does not matter.
  TrackHeader& sound = source.Sound().header;
  sound.width = sound.height = sound.matrix[6] = 1;
  InsertMovieSegment(source, movie, {}, kAll, movie.Duration());
  EXPECT_EQ(Told(movie), "0+3600 | 0+3600");
  EXPECT_EQ(Told(source), "0+1800 | 0+1800");
  for (int repeated = 0; repeated < 2; ++repeated) {
    for (const auto& track : movie.tracks) {
      EXPECT_EQ(track->media->dataReferences,
                (std::vector<DataReference>{ThisFile{}, OtherFile{"/b"}}));
      ASSERT_EQ(track->media->descriptions.size(), 2U);
      EXPECT_EQ(track->media->descriptions[1].dataReference, 1U);
    }
    InsertMovieSegment(source, movie, {}, kAll, movie.Duration());  // adds neither again
  }
}

TEST(InsertMovieSegment, JoinsSamplesThatLastNoTime) {
  TestMovie movie("a"), source("b"), other("c");
  for (TestMovie* each : {&movie, &source}) {
    each->Text();
    AddPlainTrack(*each, kText, 600, PlainRows(5, 0, 20, 4000));
  }
  InsertMovieSegment(source, movie, {}, kAll, movie.Duration());
  EXPECT_EQ(movie.tracks.size(), 2U);
  EXPECT_EQ(Count(movie, 0), 6U);
  EXPECT_EQ(Count(movie, 1), 10U);
  const TrackRecord& timeless = AddPlainTrack(other, kText, 600, PlainRows(7, 0, 20, 4000));
  EXPECT_THROW(InsertTrackSegment(timeless, *movie.tracks[0], {}, {}, {}), Refused);
  InsertTrackSegment(timeless, *movie.tracks[1], {}, {}, {});
  EXPECT_EQ(Count(movie, 1), 17U);
  AddMovieSelection(source, movie);
  EXPECT_EQ(movie.tracks.size(), 4U);
  EXPECT_EQ(Count(movie, 3), 5U);
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
        track.siblings.push_back({FourCC{"clip"}, Made("clip{ 1 }")});
      },
      [](TrackRecord& track) {
        track.siblings.push_back({FourCC{"matt"}, Made("matt{ 1 }")});
      },
      [](TrackRecord& track) { track.media->handler.subtype = kText; },
  };
  for (const Change& change : changes) {
    TestMovie movie("a"), source("b");
    movie.Video();
    change(source.Video());
    InsertMovieSegment(source, movie, {}, kAll, {1800});
    EXPECT_EQ(Told(movie), "0+1800 | gap+1800 0+1800") << &change - changes;
    const TrackRecord &added = *movie.tracks.back(), &like = *source.tracks[0];
    EXPECT_EQ(added.media->header.scale, like.media->header.scale);
    EXPECT_EQ(added.header.width, like.header.width);
    EXPECT_EQ(added.header.id, 2U);
  }
}

TEST(InsertMovieSegment, UsesEachTrackOnceInItsOrder) {
  TestMovie movie("a"), source("b");
  movie.Sound(), movie.Sound();
  source.Sound(), source.Sound(), source.Sound();
  InsertMovieSegment(source, movie, {}, {600}, {1800});
  EXPECT_EQ(Told(movie), "0+2400 | 0+2400 | gap+1800 0+600");
}

TEST(InsertMovieSegment, PrefersATrackInTheSameEnabledState) {
  TestMovie movie("a"), source("b"), disabled("c");
  movie.Sound().header.flags = 0;
  movie.Sound(), source.Sound();
  InsertMovieSegment(source, movie, {}, kAll, {1800});
  EXPECT_EQ(Told(movie), "0+1800 | 0+3600");
  disabled.Sound().header.flags = 0;
  InsertMovieSegment(source, disabled, {}, kAll, {1800});
  EXPECT_EQ(Told(disabled), "0+3600") << "any state is better than a new track";
}

TEST(InsertMovieSegment, KeepsReferencesBetweenTracksThatCameAlong) {
  TestMovie movie("a"), source("b");
  TrackRecord& video = movie.Video();
  TrackRecord& chapters = source.Text();
  source.Video().Refer(kChapters, chapters);
  for (int i = 0; i < 2; ++i) {
    InsertMovieSegment(source, movie, {}, kAll, movie.Duration());
    ASSERT_EQ(video.references.size(), 1U);
    EXPECT_EQ(video.references[0].type, kChapters);
    EXPECT_EQ(video.references[0].targets, (std::vector<TrackRecord*>{movie.tracks[1].get()}));
  }
  EXPECT_EQ(Told(movie), "0+3600 1800+1800 | gap+1800 0+1800 0+1800");
}

TEST(InsertMovieSegment, FillsAnEmptyMovieButForWhatIsTheMoviesOwn) {
  MovieRecord movie;
  TestMovie source("b");
  source.header.matrix[0] = 5;
  source.userData.items.push_back({FourCC{"name"}, {'x'}});
  TrackRecord& video = source.Video();
  video.userData.items.push_back({FourCC{"name"}, {'v'}});
  source.Sound().header.volume = 0x100;
  // Its packets name samples by number.
  AddPlainTrack(source, FourCC{"hint"}, 600, PlainRows(6, 300, 10)).Refer(FourCC{"hint"}, video);
  InsertMovieSegment(source, movie, {}, kAll, {});
  ASSERT_EQ(movie.tracks.size(), 2U);
  EXPECT_EQ(movie.header.matrix, kIdentityMatrix);
  EXPECT_TRUE(movie.userData.items.empty());
  EXPECT_EQ(movie.tracks[0]->userData, video.userData);
  EXPECT_EQ(movie.tracks[1]->header.volume, 0x100);
  EXPECT_EQ(movie.tracks[0]->media->dataReferences, (std::vector<DataReference>{OtherFile{"/b"}}));
}

TEST(InsertMovieSegment, OfAnEmptySourceChangesNothing) {
  TestMovie movie("a"), source("b");
  movie.Video();
  InsertMovieSegment(source, movie, {}, kAll, {500});
  source.Video();
  InsertMovieSegment(source, movie, {100}, {0}, {500});
  InsertMovieSegment(source, movie, {1800}, kAll, {500});
  EXPECT_EQ(Told(movie), "0+1800");
  EXPECT_EQ(Count(movie, 0), 6U);
}

TEST(InsertMovieSegment, KeepsAllTracksInStep) {
  TestMovie movie("a"), source("b");
  movie.Video(), movie.Sound(), movie.Text();
  source.Video();
  source.Sound().edits.Delete({600}, {1200}, source.tracks[1]->TimeClock());  // it ends early
  InsertMovieSegment(source, movie, {300}, {600}, {1200});
  EXPECT_EQ(Told(movie),
            "0+1200 2100+600 1200+600 | 0+1200 154350+300 gap+300 88200+600"
            " | 0+1200 gap+600 1200+600");
}

TEST(InsertMovieSegment, ShowsNoNewSamplesInAnEditThatReachesPastItsMedia) {
  TestMovie movie("a"), source("b");
  TrackRecord& video = movie.Video();
  video.edits.Append({600}, {1500}, 1.0, video.TimeClock());
  source.Video();
  InsertMovieSegment(source, movie, {}, kAll, movie.Duration());
  EXPECT_EQ(Told(movie), "0+1800 1500+300 gap+300 1800+1800");
}

TEST(InsertMovieSegment, StoresAMediaOnceHoweverOftenItIsJoined) {
  TestMovie movie("a"), source("b");
  source.Video();
  for (int i = 0; i < 3; ++i) InsertMovieSegment(source, movie, {300}, {600}, movie.Duration());
  EXPECT_EQ(Count(movie, 0), 6U);
  EXPECT_EQ(Told(movie), "300+600 300+600 300+600");
  InsertMovieSegment(source, source, {}, {600}, {1800});
  EXPECT_EQ(Count(source, 0), 6U);
  EXPECT_EQ(Told(source), "0+1800 0+600");
}

TEST(InsertMovieSegment, ThatIsRefusedChangesNothing) {
  TestMovie movie("a"), source("b"), unsaved("c");
  movie.Video(), source.Video();
  unsaved.Sound(), unsaved.Video();
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
  EXPECT_EQ(Count(movie, 0), 6U);
}

// --- Other changes to a whole movie

TEST(Movie, CloneKeepsReferencesAmongItsOwnTracks) {
  TestMovie movie("a");
  TrackRecord& chapters = movie.Text();
  movie.Video().Refer(kChapters, chapters);
  const auto clone = movie.Clone();
  ASSERT_EQ(clone->tracks.size(), 2U);
  EXPECT_EQ(clone->tracks[1]->movie, clone.get());
  EXPECT_EQ(clone->tracks[1]->references[0].targets[0], clone->tracks[0].get());
  clone->RemoveTrack(*clone->tracks[0]);
  EXPECT_TRUE(clone->tracks[0]->references.empty());
  EXPECT_EQ(movie.tracks[1]->references[0].targets[0], &chapters);
}

// ISO/IEC 14496-12 8.2.2.3: a next track id of all ones means that any free one may be taken.
TEST(Movie, NeverGivesTwoTracksOneId) {
  TestMovie movie("a");
  movie.Video();
  movie.header.nextTrackId = UINT32_MAX;
  movie.Video();
  EXPECT_EQ(movie.Video().header.id, 3U);
  EXPECT_EQ(movie.header.nextTrackId, UINT32_MAX);
}

}  // namespace
}  // namespace toolbox
