#include "toolbox/movie/edit_list.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/toolbox/random.h"
#include "tests/toolbox/told.h"
#include "toolbox/movie/matrix.h"

namespace toolbox {
namespace {

constexpr Clock kEqual{600, 600};

// Edits in order: {duration, media time}.
EditList ListOf(const std::vector<std::pair<std::int64_t, std::int64_t>>& parts) {
  EditList list;
  for (const auto& [duration, media] : parts) list.Append({duration}, {media}, 1.0, kEqual);
  return list;
}

// As edit_list.h defines the normal form: appending the edits one by one joins none of them.
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

TEST(EditList, ScalingKeepsWhatIsShownAndMovesTheRest) {
  EditList list = ListOf({{100, 0}, {50, -1}, {100, 5000}});
  list.Scale({80}, {90}, {180}, kEqual);  // beyond the gap on both sides
  EXPECT_EQ(Told(list), "0+80 80+40x0.5 gap+100 5000+40x0.5 5020+80");
  list.Scale({220}, {1000}, {1}, kEqual);  // reaches past the end; what becomes too short is gone
  EXPECT_EQ(Told(list), "0+80 80+40x0.5");
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
  constexpr std::int64_t kEnd = std::int64_t{1} << 32, kFar = 1 << 29;  // scales for 128 bits
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

TEST(Matrix, RotatesAndScalesAboutAPoint) {
  const Matrix turns[] = {kIdentityMatrix, Of(0, 1, -1, 0), Of(-1, 0, 0, -1), Of(0, -1, 1, 0)};
  for (int turn = -5; turn <= 5; ++turn) {
    EXPECT_EQ(Rotation(90 * turn * kOne, 0, 0), turns[turn & 3]) << turn;
  }
  EXPECT_EQ(Rotation(90 * kOne, 10 * kOne, 20 * kOne), Of(0, 1, -1, 0, 30, 10));
  // cos 30 = 56755.8, sin 30 = 32768 of 65536.
  EXPECT_EQ(Rotation(30 * kOne, 0, 0), (Matrix{56756, 32768, 0, -32768, 56756, 0, 0, 0, kLast}));
  EXPECT_EQ(Rotation(kOne / 2, 0, 0)[1], 572) << "fractions of a degree count";
  EXPECT_EQ(Scaling(2 * kOne, 3 * kOne, 10 * kOne, 20 * kOne), Of(2, 0, 0, 3, -10, -40));
}

TEST(Matrix, IsOneAfterTheOtherAndStopsAtTheLimits) {
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
