#include "toolbox/movie/segments.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kSound{"soun"}, kText{"text"}, kChapters{"chap"};
constexpr MovieTime kAll{kLongest};

using Edits = std::vector<Edit>;

// A movie with 600 units a second, opened from a file of that name.
struct TestMovie : MovieRecord {
  explicit TestMovie(const std::string& name) { file = OtherFile{"/" + name}; }

  // Three seconds, in samples of half a second.
  TrackRecord& Video(std::int32_t width = 320, std::int32_t height = 240,
                     std::int32_t mediaScale = 600) {
    TrackRecord& track = AddPlainTrack(
        *this, kVideo, mediaScale, PlainRows(6, static_cast<std::uint32_t>(mediaScale / 2), 100));
    track.header.width = width << 16;
    track.header.height = height << 16;
    return track;
  }
  TrackRecord& Sound() {
    return AddPlainTrack(*this, kSound, 44100, PlainRows(30, 4410, 50, 1000));
  }
  TrackRecord& Text() { return AddPlainTrack(*this, kText, 600, PlainRows(3, 600, 20, 3000)); }
};

TEST(InsertMovieSegment, GoesIntoTheTracksThatFit) {
  TestMovie movie("a"), source("b");
  movie.Video(), movie.Sound(), source.Video();
  // Sound shows nothing, so its geometry does not matter.
  TrackHeader& sound = source.Sound().header;
  sound.width = sound.height = sound.matrix[6] = 1;
  InsertMovieSegment(source, movie, {}, kAll, movie.Duration());
  ASSERT_EQ(movie.tracks.size(), 2U);
  for (const auto& track : movie.tracks) {
    EXPECT_EQ(track->edits.Duration().units, 3600);
    EXPECT_EQ(track->edits.Edits().size(), 1U) << "the media continue one another";
    EXPECT_EQ(track->media->dataReferences,
              (std::vector<DataReference>{ThisFile{}, OtherFile{"/b"}}));
    ASSERT_EQ(track->media->descriptions.size(), 2U);
    EXPECT_EQ(track->media->descriptions[1].dataReference, 1U);
  }
  EXPECT_EQ(source.tracks[0]->edits.Duration().units, 1800) << "the source stays as it is";
}

TEST(InsertMovieSegment, JoinsSamplesThatLastNoTime) {
  TestMovie movie("a"), source("b");
  for (TestMovie* each : {&movie, &source}) {
    each->Text();
    AddPlainTrack(*each, kText, 600, PlainRows(5, 0, 20, 4000));
  }
  const auto count = [&movie](std::size_t track) {
    return movie.tracks.at(track)->media->samples.Count();
  };
  InsertMovieSegment(source, movie, {}, kAll, movie.Duration());
  EXPECT_EQ(movie.tracks.size(), 2U);
  EXPECT_EQ(count(0), 6U);
  EXPECT_EQ(count(1), 10U);
  TestMovie other("c");
  const TrackRecord& timeless = AddPlainTrack(other, kText, 600, PlainRows(7, 0, 20, 4000));
  EXPECT_THROW(InsertTrackSegment(timeless, *movie.tracks[0], {}, {}, {}), Refused);
  InsertTrackSegment(timeless, *movie.tracks[1], {}, {}, {});
  EXPECT_EQ(count(1), 17U);
  AddMovieSelection(source, movie);
  EXPECT_EQ(movie.tracks.size(), 4U);
  EXPECT_EQ(count(3), 5U);
}

TEST(InsertMovieSegment, SharesReferencesAndDescriptionsThatAreEqual) {
  TestMovie movie("a"), source("b");
  AddPlainTrack(movie, kSound, 44100, PlainRows(1, 44100, 9), OtherFile{"/media"});
  AddPlainTrack(source, kSound, 44100, PlainRows(1, 44100, 9), OtherFile{"/media"});
  InsertMovieSegment(source, movie, {}, kAll, {600});
  EXPECT_EQ(movie.tracks[0]->media->dataReferences.size(), 1U);
  EXPECT_EQ(movie.tracks[0]->media->descriptions.size(), 1U);
}

TEST(InsertMovieSegment, MakesANewTrackForWhatDoesNotFit) {
  const auto expectNewTrack = [](auto&& change) {
    TestMovie movie("a"), source("b");
    movie.Video();
    change(source.Video());
    InsertMovieSegment(source, movie, {}, kAll, {1800});
    ASSERT_EQ(movie.tracks.size(), 2U);
    EXPECT_EQ(movie.tracks[1]->edits.Edits(), (Edits{{{0}, {1800}, {-1}}, {{1800}, {1800}, {0}}}));
    EXPECT_EQ(movie.tracks[1]->media->header.scale, source.tracks[0]->media->header.scale);
    EXPECT_EQ(movie.tracks[1]->header.width, source.tracks[0]->header.width);
    EXPECT_EQ(movie.tracks[1]->header.id, 2U);
    EXPECT_EQ(movie.tracks[0]->edits.Duration().units, 1800);
  };
  expectNewTrack([](TrackRecord& track) { track.header.width = 640 << 16; });
  expectNewTrack([](TrackRecord& track) { track.header.height = 480 << 16; });
  expectNewTrack([](TrackRecord& track) { track.header.matrix[6] = 1; });
  expectNewTrack([](TrackRecord& track) { track.header.alternateGroup = 1; });
  expectNewTrack([](TrackRecord& track) { track.media->header.language = 1; });
  expectNewTrack([](TrackRecord& track) {
    track.siblings.push_back({FourCC{"clip"}, Atom("clip", Text("region"))});
  });
  expectNewTrack([](TrackRecord& track) {
    track.siblings.push_back({FourCC{"matt"}, Atom("matt", Text("matte"))});
  });
  expectNewTrack([](TrackRecord& track) { track.media->handler.subtype = kText; });
}

TEST(InsertMovieSegment, MakesANewTrackForAnotherMediaScale) {
  TestMovie movie("a"), source("b");
  movie.Video();
  source.Video(320, 240, 2998);
  InsertMovieSegment(source, movie, {}, kAll, {1800});
  ASSERT_EQ(movie.tracks.size(), 2U);
  EXPECT_EQ(movie.tracks[1]->media->header.scale, 2998);
}

TEST(InsertMovieSegment, UsesEachTrackOnceInItsOrder) {
  TestMovie movie("a"), source("b");
  movie.Sound(), movie.Sound();
  source.Sound(), source.Sound(), source.Sound();
  InsertMovieSegment(source, movie, {}, {600}, {1800});
  ASSERT_EQ(movie.tracks.size(), 3U);
  EXPECT_EQ(movie.tracks[0]->edits.Duration().units, 2400);
  EXPECT_EQ(movie.tracks[1]->edits.Duration().units, 2400);
  EXPECT_EQ(movie.tracks[2]->edits.Offset().units, 1800);
}

TEST(InsertMovieSegment, PrefersATrackInTheSameEnabledState) {
  TestMovie movie("a"), source("b");
  movie.Sound().header.flags = 0;
  movie.Sound();
  source.Sound();
  InsertMovieSegment(source, movie, {}, kAll, {1800});
  EXPECT_EQ(movie.tracks[0]->edits.Duration().units, 1800);
  EXPECT_EQ(movie.tracks[1]->edits.Duration().units, 3600);
  TestMovie disabled("c");
  disabled.Sound().header.flags = 0;
  InsertMovieSegment(source, disabled, {}, kAll, {1800});
  EXPECT_EQ(disabled.tracks.size(), 1U) << "any state is better than a new track";
}

TEST(InsertMovieSegment, LeavesAChapterTrackWithoutCounterpartAlone) {
  TestMovie movie("a"), source("b");
  TrackRecord& chapters = movie.Text();
  movie.Video().Refer(kChapters, chapters);
  source.Video();
  InsertMovieSegment(source, movie, {}, kAll, {1800});
  EXPECT_EQ(chapters.edits.Edits(), (Edits{{{0}, {1800}, {0}}}));
  EXPECT_EQ(movie.tracks[1]->edits.Duration().units, 3600);
}

TEST(InsertMovieSegment, KeepsReferencesBetweenTracksThatCameAlong) {
  TestMovie movie("a"), source("b");
  TrackRecord& video = movie.Video();
  TrackRecord& chapters = source.Text();
  source.Video().Refer(kChapters, chapters);
  for (int i = 0; i < 2; ++i) {
    InsertMovieSegment(source, movie, {}, kAll, movie.Duration());
    ASSERT_EQ(movie.tracks.size(), 2U);
    ASSERT_EQ(video.references.size(), 1U);
    EXPECT_EQ(video.references[0].type, kChapters);
    EXPECT_EQ(video.references[0].targets, (std::vector<TrackRecord*>{movie.tracks[1].get()}));
  }
  EXPECT_EQ(movie.tracks[1]->edits.Edits(),
            (Edits{{{0}, {1800}, {-1}}, {{1800}, {1800}, {0}}, {{3600}, {1800}, {0}}}));
}

TEST(InsertMovieSegment, FillsAnEmptyMovieButForWhatIsTheMoviesOwn) {
  MovieRecord movie;
  TestMovie source("b");
  source.header.matrix[0] = 5;
  source.userData.items.push_back({FourCC{"name"}, {'x'}});
  source.Video().userData.items.push_back({FourCC{"name"}, {'v'}});
  source.Sound().header.volume = 0x100;
  InsertMovieSegment(source, movie, {}, kAll, {});
  ASSERT_EQ(movie.tracks.size(), 2U);
  EXPECT_EQ(movie.header.matrix, kIdentityMatrix);
  EXPECT_TRUE(movie.userData.items.empty());
  EXPECT_EQ(movie.tracks[0]->userData, source.tracks[0]->userData);
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
  EXPECT_EQ(movie.tracks[0]->edits.Edits(), (Edits{{{0}, {1800}, {0}}}));
  EXPECT_EQ(movie.tracks[0]->media->samples.Count(), 6U);
}

TEST(InsertMovieSegment, RoundsBoundariesIntoTheScaleOfTheMovie) {
  MovieRecord movie;
  movie.header.scale = 48;
  TestMovie source("b");
  TrackRecord& track = source.Video();
  track.edits = {};
  for (const auto& [duration, media] : {std::pair{100, 900}, {101, 0}, {101, 300}}) {
    track.edits.Append({duration}, {media}, 1.0, track.TimeClock());
  }
  InsertMovieSegment(source, movie, {}, kAll, {24});
  EXPECT_EQ(movie.tracks[0]->edits.Edits(),
            (Edits{{{0}, {24}, {-1}}, {{24}, {8}, {900}}, {{32}, {8}, {0}}, {{40}, {8}, {300}}}));
}

TEST(InsertMovieSegment, InTheMiddleKeepsAllTracksInStep) {
  TestMovie movie("a"), source("b");
  movie.Video(), movie.Sound(), movie.Text();
  source.Video(), source.Sound();
  InsertMovieSegment(source, movie, {300}, {600}, {1200});
  ASSERT_EQ(movie.tracks.size(), 3U);
  EXPECT_EQ(movie.tracks[0]->edits.Edits(),
            (Edits{{{0}, {1200}, {0}}, {{1200}, {600}, {2100}}, {{1800}, {600}, {1200}}}));
  EXPECT_EQ(movie.tracks[1]->edits.Edits(),
            (Edits{{{0}, {1200}, {0}}, {{1200}, {600}, {154350}}, {{1800}, {600}, {88200}}}));
  EXPECT_EQ(movie.tracks[2]->edits.Edits(),
            (Edits{{{0}, {1200}, {0}}, {{1200}, {600}, {-1}}, {{1800}, {600}, {1200}}}));
}

TEST(InsertMovieSegment, KeepsStepWhereATrackOfTheSourceEndsEarly) {
  TestMovie movie("a"), source("b");
  movie.Video(), movie.Sound(), source.Video();
  source.Sound().edits.Delete({600}, {1200}, source.tracks[1]->TimeClock());
  InsertMovieSegment(source, movie, {}, kAll, {600});
  for (const auto& track : movie.tracks) {
    EXPECT_EQ(track->edits.Duration().units, 3600);
    EXPECT_EQ(track->edits.Edits().back().start.units, 2400);
    EXPECT_EQ(track->edits.Edits().back().mediaTime.units, track->media->header.scale);
  }
}

TEST(InsertMovieSegment, StoresAMediaOnceHoweverOftenItIsJoined) {
  TestMovie movie("a"), source("b");
  source.Video();
  for (int i = 0; i < 3; ++i) InsertMovieSegment(source, movie, {300}, {600}, movie.Duration());
  EXPECT_EQ(movie.tracks[0]->media->samples.Count(), 6U);
  EXPECT_EQ(movie.tracks[0]->edits.Edits(),
            (Edits{{{0}, {600}, {300}}, {{600}, {600}, {300}}, {{1200}, {600}, {300}}}));
}

TEST(InsertMovieSegment, LaysAMovieIntoItself) {
  TestMovie movie("a");
  movie.Video();
  InsertMovieSegment(movie, movie, {}, {600}, {1800});
  EXPECT_EQ(movie.tracks.size(), 1U);
  EXPECT_EQ(movie.tracks[0]->media->samples.Count(), 6U);
  EXPECT_EQ(movie.tracks[0]->edits.Edits(), (Edits{{{0}, {1800}, {0}}, {{1800}, {600}, {0}}}));
}

TEST(InsertMovieSegment, LeavesHintTracksBehind) {
  MovieRecord movie;
  TestMovie source("b");
  TrackRecord& video = source.Video();
  AddPlainTrack(source, FourCC{"hint"}, 600, PlainRows(6, 300, 10)).Refer(FourCC{"hint"}, video);
  InsertMovieSegment(source, movie, {}, kAll, {});
  ASSERT_EQ(movie.tracks.size(), 1U);
  EXPECT_EQ(movie.tracks[0]->media->Type(), kVideo);
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
  ASSERT_EQ(movie.tracks.size(), 1U);
  EXPECT_EQ(movie.tracks[0]->edits.Edits(), (Edits{{{0}, {1800}, {0}}}));
  EXPECT_EQ(movie.tracks[0]->media->samples.Count(), 6U);
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
  for (int i = 0; i < 3; ++i) movie.Video();
  std::vector<std::uint32_t> ids;
  for (const auto& track : movie.tracks) ids.push_back(track->header.id);
  EXPECT_EQ(ids, (std::vector<std::uint32_t>{1, 2, 3, 4}));
  EXPECT_EQ(movie.header.nextTrackId, UINT32_MAX);
}

}  // namespace
}  // namespace toolbox
