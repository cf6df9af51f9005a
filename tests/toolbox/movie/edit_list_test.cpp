#include "toolbox/movie/edit_list.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/toolbox/random.h"
#include "tests/toolbox/told.h"

namespace toolbox {
namespace {

constexpr Clock kEqual{600, 600};

// Edits in order: {duration, media time}.
EditList ListOf(const std::vector<std::pair<std::int64_t, std::int64_t>>& parts,
                Clock clock = kEqual) {
  EditList list;
  for (const auto& [duration, media] : parts) list.Append({duration}, {media}, 1.0, clock);
  return list;
}

// As edit_list.h defines the normal form.
void ExpectNormal(const EditList& list, Clock clock = kEqual) {
  MovieTime end;
  const Edit* before = nullptr;
  for (const Edit& edit : list.Edits()) {
    EXPECT_EQ(edit.start, end);
    EXPECT_GT(edit.duration.units, 0);
    EXPECT_TRUE(!edit.IsEmpty() || edit.rate == 1.0);
    const bool continues =
        before != nullptr && before->IsEmpty() == edit.IsEmpty() &&
        (edit.IsEmpty() ||
         (before->rate == edit.rate && before->ShownAt(before->duration, clock) == edit.mediaTime));
    EXPECT_FALSE(continues) << Told(list);
    end = edit.End();
    before = &edit;
  }
  EXPECT_EQ(list.Duration(), end);
  EXPECT_FALSE(before != nullptr && before->IsEmpty()) << "empty space at the end";
}

TEST(EditList, DeletingWhatWasInsertedRestoresTheEdit) {
  const Clock clock{600, 44100};
  EditList list;
  list.Append({1000}, {7}, 1.5, clock);
  const EditList before = list;
  for (std::int64_t at = 1; at < 1000; at += 13) {
    list.Insert(ListOf({{50, 99999}}), {at}, {50}, clock);
    ASSERT_EQ(list.Edits().size(), 3U);
    list.Delete({at}, {50}, clock);
    ASSERT_EQ(list, before) << "cut at " << at;
  }
}

TEST(EditList, PartsThatFollowOneAnotherInTheMediaDoNotDrift) {
  const Clock clock{600, 44100};
  EditList list;
  for (std::int64_t i = 0; i < 1000; ++i) list.AppendMedia({i * 100'004}, {100'004}, 1.0, clock);
  EXPECT_EQ(Told(list), "0+1360599") << "1360598.6";
  list.AppendMedia({5}, {44100}, 1.0, clock);
  list.AppendMedia({44105}, {44100}, 0.5, clock);
  EXPECT_EQ(Told(list), "0+1360599 5+600 44105+1200x0.5");
}

TEST(EditList, ScalingKeepsWhatIsShownAndMovesTheRest) {
  EditList list = ListOf({{600, 0}});
  list.Scale({}, {600}, {900}, kEqual);
  EXPECT_EQ(Told(list), "0+900x0.666667");
  list.Scale({}, {900}, {600}, kEqual);
  EXPECT_EQ(Told(list), "0+600");

  list = ListOf({{100, 0}, {50, -1}, {100, 5000}});
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
}

TEST(Rescale, GivesTheSameIn64BitsAsIn128) {
  constexpr std::int64_t kEnd = std::int64_t{1} << 32, kFar = 1 << 29;  // scales for 128 bits
  for (const std::int64_t units : {-kEnd - 1, -kEnd, std::int64_t{-7}, kEnd, kEnd + 1}) {
    for (const auto& [from, to] : {std::pair{2, 1}, {600, 44100}, {44100, 600}, {90000, 999}}) {
      for (const Rounding rounding : {Rounding::kNearest, Rounding::kDown, Rounding::kUp}) {
        EXPECT_EQ(Rescale(units, from, to, rounding),
                  Rescale(units, from * kFar, to * kFar, rounding));
      }
    }
  }
}

// --- Movie time scales

TEST(TimeScale, RoundsBoundariesAndNotLengths) {
  for (const auto& [scale, expected] : {std::pair{44100, "0+7350 9000+7424 18000+7423"},
                                        {48, "0+8 9000+8 18000+8"},
                                        {2, "9000+1"}}) {
    MovieRecord movie;
    TrackRecord& track = movie.AddTrack();
    track.media.emplace().header.scale = 600;
    track.edits = ListOf({{100, 0}, {101, 9000}, {101, 18000}});
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

void Trim(Cells& cells) {
  while (!cells.empty() && cells.back() == kNone) cells.pop_back();
}

// [from, from + length) of the cells, as far as it is there.
std::pair<Cells::iterator, Cells::iterator> Part(Cells& cells, std::int64_t from,
                                                 std::int64_t length) {
  const auto size = static_cast<std::int64_t>(cells.size());
  return {cells.begin() + std::min(from, size), cells.begin() + std::min(from + length, size)};
}

class EditModel : public testing::TestWithParam<unsigned> {
 protected:
  std::int64_t Below(std::int64_t limit) {
    return random_.Below(static_cast<std::uint64_t>(limit));
  }
  std::int64_t Size() const { return static_cast<std::int64_t>(cells_.size()); }
  void Insert();
  void Delete();
  void CutOut();
  void ScaleThereAndBack();

  Random random_{GetParam()};
  EditList list_;
  Cells cells_;
};

// Inserts a list with gaps before, between and after its edits.
void EditModel::Insert() {
  EditList other;
  Cells room;
  for (std::int64_t i = Below(4); i > 0; --i) {
    room.resize(room.size() + static_cast<std::size_t>(Below(3) * Below(4)), kNone);
    const std::int64_t media = Below(60), length = 1 + Below(9);
    other.Insert(ListOf({{length, media}}), {static_cast<std::int64_t>(room.size())}, {length},
                 kEqual);
    for (std::int64_t k = 0; k < length; ++k) room.push_back(media + k);
  }
  const std::int64_t at = Below(Size() + 8);
  room.resize(room.size() + static_cast<std::size_t>(Below(4)), kNone);
  list_.Insert(other, {at}, {static_cast<std::int64_t>(room.size())}, kEqual);
  cells_.resize(static_cast<std::size_t>(std::max(Size(), at)), kNone);
  cells_.insert(cells_.begin() + at, room.begin(), room.end());
}

void EditModel::Delete() {
  const std::int64_t from = Below(Size() + 3), length = Below(20);
  list_.Delete({from}, {length}, kEqual);
  const auto [first, last] = Part(cells_, from, length);
  cells_.erase(first, last);
}

void EditModel::CutOut() {
  const std::int64_t from = Below(Size() + 3), length = Below(Size() + 5);
  const EditList segment = list_.Segment({from}, {length}, kEqual);
  const auto [first, last] = Part(cells_, from, length);
  Cells expected(first, last);
  Trim(expected);
  ExpectNormal(segment);
  ASSERT_EQ(CellsOf(segment), expected);
}

// Scaling to a greater length and back changes nothing.
void EditModel::ScaleThereAndBack() {
  const EditList before = list_;
  const MovieTime from{Below(Size() + 3)}, length{1 + Below(20)};
  const MovieTime newLength = length + MovieTime{Below(1000)};
  list_.Scale(from, length, newLength, kEqual);
  ExpectNormal(list_);
  if (from + length <= before.Duration()) {
    ASSERT_EQ(list_.Duration(), before.Duration() - length + newLength);
  }
  list_.Scale(from, newLength, length, kEqual);
  ASSERT_EQ(list_, before);
}

TEST_P(EditModel, AgreesAfterAnySequenceOfEdits) {
  for (int step = 0; step < 400 && !HasFailure(); ++step) {
    const std::int64_t kind = Below(6);
    if (kind < 2) Insert();
    if (kind == 2) CutOut();
    if (kind == 3) ScaleThereAndBack();
    if (kind > 3) Delete();
    Trim(cells_);
    ExpectNormal(list_);
    ASSERT_EQ(CellsOf(list_), cells_) << "after step " << step;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, EditModel, testing::Range(1U, 9U));

}  // namespace
}  // namespace toolbox
