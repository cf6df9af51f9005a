#include "chapter/playback.h"

#include <gtest/gtest.h>

#include <tuple>

#include "toolbox/movie/movie.h"

namespace chapter {
namespace {

using clipjoin::OutputOptions;
using toolbox::Bytes;
using toolbox::FourCC;
using Items = std::vector<toolbox::UserDataItem>;

constexpr FourCC kPlay{"play"}, kLoop{"LOOP"}, kName{"name"};

// What is left of user data.
Items Applied(const OutputOptions& options, const Items& items) {
  toolbox::MovieRecord movie;
  movie.userData.items = items;
  ApplyPlaybackFlags(&movie, options);
  return movie.userData.items;
}

TEST(PlaybackFlags, ReplaceEveryItemOfTheirKind) {
  const Items before{{kPlay, {0}}, {kName, {'x'}}, {kLoop, {1}}, {kPlay, {7, 7}}};
  EXPECT_EQ(Applied({.setAutoPlay = true, .setLooping = true}, before),
            (Items{{kName, {'x'}}, {kPlay, {1}}, {kLoop, {0, 0, 0, 0}}}));
  EXPECT_EQ(Applied({.unsetAutoPlay = true, .unsetLooping = true}, before),
            (Items{{kName, {'x'}}}));
  EXPECT_EQ(Applied({}, before), before);
}

TEST(PlaybackFlags, AreSetWhenBothIsAskedFor) {
  EXPECT_EQ(Applied({.setAutoPlay = true, .unsetAutoPlay = true}, {}), (Items{{kPlay, {1}}}));
  EXPECT_EQ(Applied({.setLooping = true, .unsetLooping = true}, {}),
            (Items{{kLoop, {0, 0, 0, 0}}}));
}

TEST(PlaybackFlags, MayBeTakenFromAMovieThatHasNone) {
  EXPECT_EQ(Applied({.unsetAutoPlay = true, .unsetLooping = true}, {{kName, {}}}),
            (Items{{kName, {}}}));
  EXPECT_EQ(RemoveMovieUserData(nullptr, kLoop), toolbox::paramErr);
}

TEST(PlaybackFlags, AreReadWithADefault) {
  toolbox::MovieRecord movie;
  EXPECT_TRUE(GetMovieUserDataByte(&movie, kPlay, true));
  EXPECT_EQ(GetMovieUserDataLong(&movie, kLoop, -1), -1);
  EXPECT_EQ(GetMovieUserDataLong(nullptr, kLoop, 5), 5);
  EXPECT_EQ(SetMovieUserDataByte(&movie, kPlay, 0), toolbox::noErr);
  EXPECT_EQ(SetMovieUserDataLong(&movie, kLoop, -2), toolbox::noErr);
  EXPECT_FALSE(GetMovieUserDataByte(&movie, kPlay, true));
  EXPECT_EQ(GetMovieUserDataLong(&movie, kLoop, 0), -2);
  EXPECT_EQ(movie.userData.Item(kLoop, 1), (Bytes{0xFF, 0xFF, 0xFF, 0xFE}));
}

}  // namespace
}  // namespace chapter
