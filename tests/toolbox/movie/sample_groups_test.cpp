#include "toolbox/movie/sample_groups.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/movie/sample_table.h"

namespace toolbox {
namespace {

SampleTable Grouped(std::vector<SampleGroup> groups) {
  auto rows = PlainRows(4, 1, 1);
  rows->groups = std::move(groups);
  return SampleTable(rows);
}

// An 'sgpd' of that version with 'rap ' entries of a byte each.
SampleGroupDescriptions Descriptions(std::uint32_t version, const Bytes& entries,
                                     std::uint32_t defaultNumber = 0) {
  const auto count = static_cast<std::uint32_t>(entries.size());
  return {version << 24, FourCC{"rap "},
          Join(version >= 1 ? U32(1) : Bytes(), version >= 2 ? U32(defaultNumber) : Bytes(),
               U32(count), entries)};
}

using Numbers = std::vector<std::uint32_t>;

Numbers NumbersIn(const SampleTable& table, const JoinedGroup& group) {
  Numbers numbers;
  ForEachGroup(table, group, [&](std::uint32_t count, std::uint32_t number) {
    numbers.insert(numbers.end(), count, number);
  });
  return numbers;
}

TEST(SampleGroups, AreNumberedTogetherForAllFiles) {
  static constexpr FourCC kRap{"rap "};
  const auto of = [](SampleGroupDescriptions descriptions, std::vector<GroupRun> runs) {
    return SampleGroup{kRap, 0, 0, std::move(descriptions), std::move(runs)};
  };
  const SampleGroup first = of(Descriptions(1, {7, 8}), {{0, 1}, {1, 0}, {3, 2}});
  struct Case {
    SampleGroup second;
    SampleGroupDescriptions descriptions;
    Numbers numbers;  // of the last four samples
  };
  const Case cases[] = {
      {of(*first.descriptions, {{0, 2}, {2, 1}}), *first.descriptions, {2, 2, 1, 1}},
      {of(Descriptions(1, {8, 9}), {{0, 2}, {2, 1}}), Descriptions(1, {7, 8, 9}), {3, 3, 2, 2}},
      {of(Descriptions(0, {9}), {{0, 1}, {1, 0}}), Descriptions(1, {7, 8, 9}), {3, 0, 0, 0}},
      {of(Descriptions(2, {9, 7}, 2), {}), Descriptions(1, {7, 8, 9}), {1, 1, 1, 1}},
      {SampleGroup{FourCC{"tele"}, 0, 0, {}, {}}, *first.descriptions, {0, 0, 0, 0}}};
  for (const Case& one : cases) {
    SampleTable table = Grouped({first});
    table.AppendSlice(Grouped({one.second}), {0, 4});
    const auto groups = GroupsOf(table);
    ASSERT_FALSE(groups.empty());
    EXPECT_EQ(groups[0].descriptions, one.descriptions);
    EXPECT_TRUE(groups[0].isMapped);
    Numbers expected{1, 0, 0, 2};
    expected.insert(expected.end(), one.numbers.begin(), one.numbers.end());
    EXPECT_EQ(NumbersIn(table, groups[0]), expected);
  }
}

TEST(SampleGroups, MapTheDefaultNumberOnceNotAllSamplesHaveIt) {
  const SampleGroup unmapped{FourCC{"rap "}, 0, 0, Descriptions(2, {7}, 1), {}};
  SampleTable table = Grouped({unmapped});
  EXPECT_FALSE(GroupsOf(table).at(0).isMapped);
  table.AppendSlice(Grouped({}), {0, 4});
  EXPECT_TRUE(GroupsOf(table).at(0).isMapped);
  EXPECT_EQ(NumbersIn(table, GroupsOf(table)[0]), (Numbers{1, 1, 1, 1, 0, 0, 0, 0}));
}

TEST(SampleGroups, AreLeftOutIfTheirEntriesCannotBeSeparated) {
  const auto opaque = [](const char* rest) {
    const FourCC type{"oinf"};
    return Grouped({{type, 0, 0, SampleGroupDescriptions{0, type, Made(rest)}, {{0, 1}}}});
  };
  SampleTable table = opaque("2 x010203");
  table.AppendSlice(opaque("2 x010203"), {1, 4});
  EXPECT_EQ(GroupsOf(table).size(), 1U);
  table.AppendSlice(opaque("2 x010204"), {0, 4});
  EXPECT_TRUE(GroupsOf(table).empty());
}

TEST(SampleGroups, StateHowFarBackDecodingStarts) {
  const FourCC roll{"roll"};
  const SampleTable table = Grouped({{roll,
                                      0,
                                      0,
                                      SampleGroupDescriptions{1 << 24, roll, Made("2 2 -1/2 -3/2")},
                                      {{0, 0}, {1, 1}, {3, 2}}}});
  const std::optional<std::uint32_t> expected[] = {{}, 1, 1, 3};
  for (std::uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(RollDistance(*table.WholeRows(), i), expected[i]) << i;
  }
}

}  // namespace
}  // namespace toolbox
