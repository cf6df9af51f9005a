#include "toolbox/movie/cuts.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"
#include "tests/toolbox/told.h"

namespace toolbox {
namespace {

class Cuts : public testing::Test {
 protected:
  // 100 samples of 20 units: 2000 movie units; sound of 44100 units a second, 1800 movie units.
  MovieRecord movie_;
  TrackRecord& video_ = AddPlainTrack(movie_, FourCC{"vide"}, 600, PlainRows(100, 20, 10));
  TrackRecord& sound_ = AddPlainTrack(movie_, FourCC{"soun"}, 44100, PlainRows(1323, 100, 4));
};

TEST_F(Cuts, RefusesWhatIsNoStretchAndChangesNothing) {
  EXPECT_EQ(CodeOf([&] { DeleteSegment(video_, {-1}, {5}); }), invalidTime);
  EXPECT_EQ(CodeOf([&] { DeleteSegment(video_, {0}, {-5}); }), invalidDuration);
  EXPECT_EQ(CodeOf([&] { DeleteSegment(movie_, {2001}, {5}); }), invalidTime);
  EXPECT_EQ(CodeOf([&] { ScaleSegment(video_, {-1}, {5}, {6}); }), invalidTime);
  EXPECT_EQ(CodeOf([&] { ScaleSegment(movie_, {0}, {0}, {6}); }), invalidDuration);
  EXPECT_EQ(CodeOf([&] { ScaleSegment(movie_, {0}, {6}, {0}); }), invalidDuration);
  EXPECT_EQ(CodeOf([&] { InsertMedia(video_, MovieTime{-2}, {0}, {5}, 1); }), invalidTime);
  EXPECT_EQ(CodeOf([&] { InsertMedia(video_, {}, {2001}, {5}, 1); }), invalidTime);
  EXPECT_EQ(CodeOf([&] { InsertMedia(video_, {}, {0}, {-5}, 1); }), invalidDuration);
  EXPECT_EQ(CodeOf([&] { InsertMedia(video_, {}, {0}, {5}, 0); }), invalidDuration);
  EXPECT_EQ(CodeOf([&] { InsertMedia(movie_.AddTrack(), {}, {0}, {5}, 1); }), noMediaHandler);
  EXPECT_EQ(CodeOf([&] { SetOffset(video_, {-1}); }), invalidTime);
  // It is no failure if there is nothing to do.
  DeleteSegment(video_, {0}, {0});
  DeleteSegment(video_, {2000}, {5});
  InsertMedia(video_, {}, {2000}, {0}, 1);
  EXPECT_EQ(Told(video_.edits), "0+2000");
}

TEST_F(Cuts, TracksAndThePreviewEndTogether) {
  movie_.header.previewTime = 1500;
  movie_.header.previewDuration = movie_.header.posterTime = 1900;
  ScaleSegment(movie_, {90}, {10}, {20});
  DeleteSegment(movie_, {95}, {10});
  EXPECT_EQ(Told(movie_), "0+90 90+5x0.5 98+5x0.5 100+1900 | 0+90 6615+5x0.5 7167+5x0.5 7350+1700");
  DeleteSegment(movie_, {1700}, {kLongest});
  EXPECT_EQ(video_.edits.Duration(), sound_.edits.Duration());
  EXPECT_EQ(movie_.header.previewDuration, 200);
  EXPECT_EQ(movie_.header.posterTime, 1700);
}

TEST_F(Cuts, MediaIsShownForAsLongAsItLasts) {
  DeleteSegment(sound_, {0}, {1800});
  InsertMedia(sound_, MovieTime{300}, {0}, {100000}, 1);  // after a gap: 1360.54 units
  InsertMedia(sound_, {}, {7}, {1}, 1);  // not a unit long, and yet there
  EXPECT_EQ(Told(sound_.edits), "gap+300 0+1361 7+1");
  InsertMedia(sound_, MovieTime{0}, {0}, {44100}, 2);
  EXPECT_EQ(Told(sound_.edits), "0+300x2 gap+300 0+1361 7+1");
}

TEST_F(Cuts, AnOffsetMovesTheRest) {
  SetOffset(video_, {50});
  SetOffset(video_, {30});
  EXPECT_EQ(Told(video_.edits), "gap+30 0+2000");
  DeleteSegment(video_, video_.edits.Offset(), video_.edits.Duration());
  SetOffset(video_, {30});
  EXPECT_EQ(Told(video_.edits), "");
}

}  // namespace
}  // namespace toolbox
