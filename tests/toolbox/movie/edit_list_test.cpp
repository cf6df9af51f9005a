#include "toolbox/movie/edit_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

#include "tests/toolbox/random.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

void PrintTo(const Edit& edit, std::ostream* out) {
  *out << '[' << edit.start.units << "+" << edit.duration.units << " shows " << edit.mediaTime.units
       << " x" << edit.rate << ']';
}

namespace {

constexpr Clock kEqual{600, 600};

using Edits = std::vector<Edit>;

// Edits in order: {duration, media time}.
EditList ListOf(std::vector<std::pair<std::int64_t, std::int64_t>> parts, Clock clock = kEqual) {
  EditList list;
  for (const auto& [duration, media] : parts) list.Append({duration}, {media}, 1.0, clock);
  return list;
}

void ExpectNormal(const EditList& list, Clock clock = kEqual) {
  MovieTime end;
  const Edit* before = nullptr;
  for (const Edit& edit : list.Edits()) {
    EXPECT_EQ(edit.start, end);
    EXPECT_GT(edit.duration.units, 0);
    EXPECT_TRUE(!edit.IsEmpty() || edit.rate == 1.0);
    if (before != nullptr) {
      EXPECT_FALSE(before->IsEmpty() && edit.IsEmpty());
      const bool continues =
          !before->IsEmpty() && !edit.IsEmpty() && before->rate == edit.rate &&
          before->mediaTime + clock.Shown(before->duration, edit.rate) == edit.mediaTime;
      EXPECT_FALSE(continues) << "at " << edit.start.units;
    }
    end = edit.End();
    before = &edit;
  }
  EXPECT_EQ(list.Duration(), end);
  EXPECT_FALSE(before != nullptr && before->IsEmpty()) << "empty space at the end";
}

TEST(EditList, CutsAnEditInItsMiddleInTwo) {
  EditList list = ListOf({{600, 100}});
  list.Delete({200}, {100}, kEqual);
  EXPECT_EQ(list.Edits(), (Edits{{{0}, {200}, {100}}, {{200}, {300}, {400}}}));
}

TEST(EditList, DeletingAcrossTwoEditsJoinsTheirRest) {
  EditList list = ListOf({{600, 0}, {600, 5000}});
  list.Delete({500}, {200}, kEqual);
  EXPECT_EQ(list.Edits(), (Edits{{{0}, {500}, {0}}, {{500}, {500}, {5100}}}));
}

TEST(EditList, DeletingAllThatIsShownLeavesNoEmptySpace) {
  EditList list = ListOf({{1200, -1}, {6000, 0}});
  EXPECT_EQ(list.Duration().units, 7200);
  EXPECT_EQ(list.Offset().units, 1200);
  list.Delete(list.Offset(), list.Duration(), kEqual);
  EXPECT_EQ(list, EditList());
  list.Insert(ListOf({{6000, 0}}), {}, {6000}, kEqual);
  EXPECT_EQ(list.Offset().units, 0);
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

TEST(EditList, FillsGapsWithEmptyEdits) {
  EditList list = ListOf({{100, 0}});
  list.Insert(ListOf({{50, 700}}), {300}, {50}, kEqual);
  EXPECT_EQ(list.Edits(), (Edits{{{0}, {100}, {0}}, {{100}, {200}, {-1}}, {{300}, {50}, {700}}}));
  list.Insert(ListOf({{10, 900}}), {40}, {30}, kEqual);
  EXPECT_EQ(list.Edits(), (Edits{{{0}, {40}, {0}},
                                 {{40}, {10}, {900}},
                                 {{50}, {20}, {-1}},
                                 {{70}, {60}, {40}},
                                 {{130}, {200}, {-1}},
                                 {{330}, {50}, {700}}}));
}

TEST(EditList, PartsThatFollowOneAnotherInTheMediaDoNotDrift) {
  const Clock clock{600, 44100};
  EditList list;
  for (std::int64_t i = 0; i < 1000; ++i) list.AppendMedia({i * 100'004}, {100'004}, 1.0, clock);
  EXPECT_EQ(list.Edits(), (std::vector<Edit>{{{0}, {1360599}, {0}}}));  // 1360598.6
  list.AppendMedia({5}, {44100}, 1.0, clock);
  list.AppendMedia({44105}, {44100}, 0.5, clock);
  EXPECT_EQ(list.Edits().size(), 3U) << "other media, another rate";
  EXPECT_EQ(list.Duration(), MovieTime{1360599 + 600 + 1200});
}

TEST(EditList, LosesEmptySpaceThatNothingFollows) {
  EditList list = ListOf({{100, 0}, {50, -1}});
  list.TrimEnd();
  EXPECT_EQ(list.Duration().units, 100);
  EXPECT_EQ(list.Edits(), (Edits{{{0}, {100}, {0}}}));
}

TEST(EditList, ScalingKeepsWhatIsShownAndMovesTheRest) {
  EditList list = ListOf({{600, 0}});
  list.Scale({}, {600}, {900}, kEqual);
  EXPECT_EQ(list.Edits(), (Edits{{{0}, {900}, {0}, 2.0 / 3}}));
  EXPECT_EQ(kEqual.Shown(list.Duration(), list.Edits()[0].rate).units, 600);
  list.Scale({}, {900}, {600}, kEqual);
  EXPECT_EQ(list.Edits(), (Edits{{{0}, {600}, {0}}}));

  list = ListOf({{100, 0}, {50, -1}, {100, 5000}});
  list.Scale({80}, {90}, {180}, kEqual);  // beyond the gap on both sides
  EXPECT_EQ(list.Edits(), (Edits{{{0}, {80}, {0}},
                                 {{80}, {40}, {80}, 0.5},
                                 {{120}, {100}, {-1}},
                                 {{220}, {40}, {5000}, 0.5},
                                 {{260}, {80}, {5020}}}));
  list.Scale({220}, {1000}, {1}, kEqual);  // reaches past the end; what becomes too short is gone
  EXPECT_EQ(list.Duration().units, 120);
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
  EXPECT_EQ((Clock{600, 44100}.Lasting({1000000}, 1.0)).units, 13605);
}

TEST(Rescale, GivesTheSameIn64BitsAsIn128) {
  constexpr std::int64_t kEnd = std::int64_t{1} << 32, kFar = 1 << 29;  // scales for 128 bits
  for (const std::int64_t units : {-kEnd - 1, -kEnd, std::int64_t{-7}, std::int64_t{-1},
                                   std::int64_t{0}, std::int64_t{5}, kEnd, kEnd + 1}) {
    for (const auto& [from, to] : {std::pair{2, 1}, {600, 44100}, {44100, 600}, {90000, 999}}) {
      for (const Rounding rounding : {Rounding::kNearest, Rounding::kDown, Rounding::kUp}) {
        EXPECT_EQ(Rescale(units, from, to, rounding),
                  Rescale(units, from * kFar, to * kFar, rounding));
      }
    }
  }
}

// --- Movie time scales

std::vector<std::int64_t> Boundaries(const EditList& list) {
  std::vector<std::int64_t> ends{0};
  for (const Edit& edit : list.Edits()) ends.push_back(edit.End().units);
  return ends;
}

MovieRecord& WithEdits(MovieRecord& movie, EditList edits) {
  TrackRecord& track = movie.AddTrack();
  track.media.emplace().header.scale = 600;
  track.edits = std::move(edits);
  return movie;
}

TEST(TimeScale, RoundsBoundariesAndNotLengths) {
  for (const auto& [scale, expected] :
       {std::pair{44100, std::vector<std::int64_t>{0, 7350, 14774, 22197}},
        std::pair{48, std::vector<std::int64_t>{0, 8, 16, 24}}}) {
    MovieRecord movie;
    WithEdits(movie, ListOf({{100, 0}, {101, 9000}, {101, 18000}})).SetScale(scale);
    EXPECT_EQ(Boundaries(movie.tracks[0]->edits), expected);
  }
}

TEST(TimeScale, DropsEditsTooShortToTellAndNeverDrifts) {
  std::vector<std::pair<std::int64_t, std::int64_t>> parts;
  for (std::int64_t i = 0; i < 1000; ++i) parts.emplace_back(7, 5000 - 20 * (i % 200));
  MovieRecord movie;
  WithEdits(movie, ListOf(parts)).SetScale(30);
  EXPECT_EQ(movie.Duration().units, 350);
  ExpectNormal(movie.tracks[0]->edits, {30, 600});
  movie.SetScale(1);
  EXPECT_EQ(movie.Duration().units, 12);
}

TEST(TimeScale, MultiplesAreReversible) {
  Random random(1);
  for (int round = 0; round < 200; ++round) {
    std::vector<std::pair<std::int64_t, std::int64_t>> parts;
    for (unsigned i = 0; i < 1 + random.Below(8); ++i) {
      parts.emplace_back(1 + random.Below(50),
                         random.Below(3) == 0 ? -1 : std::int64_t{random.Below(900)});
    }
    parts.emplace_back(10, 12345);
    MovieRecord movie;
    WithEdits(movie, ListOf(parts, {600, 600}));
    movie.header.selectionTime = random.Below(1000);
    const EditList before = movie.tracks[0]->edits;
    const std::int64_t selection = movie.header.selectionTime;
    movie.SetScale(600 * static_cast<std::int32_t>(2 + random.Below(160)));
    movie.SetScale(600);
    ASSERT_EQ(movie.tracks[0]->edits, before);
    ASSERT_EQ(movie.header.selectionTime, selection);
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

Cells Repeated(const Cells& cells, std::int64_t factor) {
  Cells scaled;
  for (std::size_t i = 0; i < cells.size();) {
    std::size_t end = i + 1;
    while (end < cells.size() && cells[end] == (cells[i] == kNone ? kNone : cells[end - 1] + 1)) {
      ++end;
    }
    for (std::int64_t k = 0; k < static_cast<std::int64_t>(end - i) * factor; ++k) {
      scaled.push_back(cells[i] == kNone ? kNone : cells[i] + k);
    }
    i = end;
  }
  return scaled;
}

class EditModel : public testing::TestWithParam<unsigned> {
 protected:
  std::int64_t Below(std::int64_t limit) {
    return random_.Below(static_cast<std::uint64_t>(limit));
  }

  // A list with at most one gap at its start and at most three edits of media.
  std::pair<EditList, Cells> SomeList() {
    EditList list;
    Cells cells;
    if (Below(3) == 0) cells.insert(cells.end(), static_cast<std::size_t>(1 + Below(6)), kNone);
    for (std::int64_t i = Below(4); i > 0; --i) {
      const std::int64_t media = Below(60), length = 1 + Below(9);
      list.Insert(ListOf({{length, media}}), {static_cast<std::int64_t>(cells.size())}, {length},
                  kEqual);
      for (std::int64_t k = 0; k < length; ++k) cells.push_back(media + k);
    }
    Trim(cells);
    return {list, cells};
  }
  void Insert();
  void Delete();
  void CutOut();
  void Stretch();
  void ScaleThereAndBack();

  Random random_{GetParam()};
  EditList list_;
  Cells cells_;
};

void EditModel::Insert() {
  const auto [other, otherCells] = SomeList();
  const std::int64_t at = Below(static_cast<std::int64_t>(cells_.size()) + 8);
  const auto length = otherCells.size() + static_cast<std::size_t>(Below(4));
  list_.Insert(other, {at}, {static_cast<std::int64_t>(length)}, kEqual);
  cells_.resize(std::max(cells_.size(), static_cast<std::size_t>(at)), kNone);
  Cells room = otherCells;
  room.resize(length, kNone);
  cells_.insert(cells_.begin() + at, room.begin(), room.end());
}

void EditModel::Delete() {
  const std::int64_t size = static_cast<std::int64_t>(cells_.size());
  const std::int64_t from = Below(size + 3), length = Below(20);
  list_.Delete({from}, {length}, kEqual);
  cells_.erase(cells_.begin() + std::min(from, size),
               cells_.begin() + std::min(from + length, size));
}

void EditModel::CutOut() {
  const std::int64_t size = static_cast<std::int64_t>(cells_.size());
  const std::int64_t from = Below(size + 3), length = Below(size + 5);
  const EditList segment = list_.Segment({from}, {length}, kEqual);
  Cells expected(cells_.begin() + std::min(from, size),
                 cells_.begin() + std::min(from + length, size));
  Trim(expected);
  ExpectNormal(segment);
  ASSERT_EQ(CellsOf(segment), expected);
}

void EditModel::Stretch() {
  if (cells_.size() > 60) return;
  const std::int64_t factor = 1 + Below(3);
  list_.MapBoundaries([=](MovieTime time) { return MovieTime{time.units * factor}; }, false,
                      kEqual);
  cells_ = Repeated(cells_, factor);
}

// Scaling to a greater length and back changes nothing.
void EditModel::ScaleThereAndBack() {
  const EditList before = list_;
  const std::int64_t size = static_cast<std::int64_t>(cells_.size());
  const MovieTime from{Below(size + 3)}, length{1 + Below(20)};
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
    switch (Below(7)) {
      case 0:
      case 1:
        Insert();
        break;
      case 2:
        CutOut();
        break;
      case 3:
        Stretch();
        break;
      case 4:
        ScaleThereAndBack();
        break;
      default:
        Delete();
    }
    Trim(cells_);
    ExpectNormal(list_);
    ASSERT_EQ(CellsOf(list_), cells_) << "after step " << step;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, EditModel, testing::Range(1U, 9U));

}  // namespace
}  // namespace toolbox
