#include "toolbox/movie/matrix.h"

#include <gtest/gtest.h>

namespace toolbox {
namespace {

constexpr std::int32_t kOne = 0x10000, kLast = 0x40000000;

// The matrix with these a, b, c, d, tx and ty, in whole units.
constexpr Matrix Of(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d,
                    std::int32_t x = 0, std::int32_t y = 0) {
  return {a * kOne, b * kOne, 0, c * kOne, d * kOne, 0, x * kOne, y * kOne, kLast};
}

TEST(Rotation, IsExactForMultiplesOf90Degrees) {
  const Matrix turns[] = {kIdentityMatrix, Of(0, 1, -1, 0), Of(-1, 0, 0, -1), Of(0, -1, 1, 0)};
  for (int turn = -5; turn <= 5; ++turn) {
    EXPECT_EQ(Rotation(90 * turn * kOne, 0, 0), turns[turn & 3]) << turn;
  }
}

TEST(Rotation, GoesClockwiseAboutItsPoint) {
  EXPECT_EQ(Rotation(90 * kOne, 10 * kOne, 20 * kOne), Of(0, 1, -1, 0, 30, 10));
  // cos 30 = 56755.8, sin 30 = 32768 of 65536.
  EXPECT_EQ(Rotation(30 * kOne, 0, 0), (Matrix{56756, 32768, 0, -32768, 56756, 0, 0, 0, kLast}));
  EXPECT_EQ(Rotation(kOne / 2, 0, 0)[1], 572) << "fractions of a degree count";
}

TEST(Scaling, LeavesItsPointWhereItIs) {
  EXPECT_EQ(Scaling(2 * kOne, 3 * kOne, 10 * kOne, 20 * kOne), Of(2, 0, 0, 3, -10, -40));
  EXPECT_EQ(Scaling(-kOne, kOne, 160 * kOne, 0), Of(-1, 0, 0, 1, 320)) << "mirrored";
}

TEST(Concatenation, DoesTheFirstThenTheSecond) {
  EXPECT_EQ(Concatenated(Of(1, 2, 3, 4, 5, 6), kIdentityMatrix), Of(1, 2, 3, 4, 5, 6));
  EXPECT_EQ(Concatenated(Of(1, 2, 3, 4, 5, 6), Of(0, 1, -1, 0, 7, 8)), Of(-2, 1, -4, 3, 1, 13));
  EXPECT_EQ(Concatenated(Translation(3 * kOne, 4 * kOne), Of(2, 0, 0, 2)), Of(2, 0, 0, 2, 6, 8));
}

TEST(Concatenation, KeepsPerspectiveAndStopsAtTheLimits) {
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
