#include "toolbox/movie/sample_groups.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"
#include "toolbox/movie/sample_columns.h"

namespace toolbox {
namespace {

// Four samples in groups of that type. `rest` is what the 'sgpd' has after it; empty: no groups.
SampleTable Grouped(FourCC type, std::uint32_t version, const std::string& rest,
                    const std::vector<GroupRun>& runs) {
  auto rows = PlainRows(4, 1, 1);
  const SampleGroupDescriptions descriptions{version << 24, type, Made(rest)};
  if (!rest.empty()) rows->groups = {{type, 0, 0, descriptions, runs}};
  return SampleTable(rows);
}

// The number of the group of each sample, such as "1002"; "default" if all have the default number.
std::string NumbersIn(const SampleTable& table) {
  const auto groups = GroupsOf(table);
  if (groups.empty()) return "no groups";
  if (!groups[0].isMapped) return "default";
  std::string numbers;
  ForEachGroup(table, groups[0], [&](std::uint32_t count, std::uint32_t number) {
    while (count-- != 0) numbers += std::to_string(number);
  });
  return numbers;
}

TEST(SampleGroups, AreNumberedTogetherForAllFiles) {
  constexpr FourCC kRap{"rap "}, kOpaque{"oinf"};
  const std::vector<GroupRun> runs{{0, 1}, {1, 0}, {3, 2}};
  struct Case {
    FourCC type;
    std::uint32_t version;
    const char* first;
    std::uint32_t secondVersion;
    const char* second;
    std::vector<GroupRun> secondRuns;
    const char *numbers, *joined;
  };
  // Entries of a byte each; version 2 has a default number.
  const Case cases[] = {
      {kRap, 1, "1 2 x0708", 1, "1 2 x0708", {{0, 2}, {2, 1}}, "10022211", "1 2 x0708"},
      {kRap, 1, "1 2 x0708", 1, "1 2 x0809", {{0, 2}, {2, 1}}, "10023322", "1 3 x070809"},
      {kRap, 1, "1 2 x0708", 0, "1 x09", {{0, 1}, {1, 0}}, "10023000", "1 3 x070809"},
      {kRap, 1, "1 2 x0708", 2, "1 2 2 x0907", {}, "10021111", "1 3 x070809"},
      {kRap, 1, "1 2 x0708", 1, "", {}, "10020000", "1 2 x0708"},
      {kRap, 2, "1 1 1 x07", 1, "", {}, "10020000", "1 1 1 x07"},
      {kOpaque, 0, "2 x010203", 0, "2 x010203", {{0, 2}}, "10022222", "2 x010203"},
      {kOpaque, 0, "2 x010203", 0, "2 x010204", {{0, 2}}, "no groups", ""},
  };
  for (const Case& one : cases) {
    SampleTable table = Grouped(one.type, one.version, one.first, runs);
    table.AppendSlice(Grouped(one.type, one.secondVersion, one.second, one.secondRuns), {0, 4});
    EXPECT_EQ(NumbersIn(table), one.numbers) << one.second;
    for (const JoinedGroup& group : GroupsOf(table)) {
      EXPECT_EQ(group.descriptions.value().rest, Made(one.joined)) << one.second;
    }
  }
}

TEST(SampleGroups, MapTheDefaultNumberOnceNotAllSamplesHaveIt) {
  SampleTable table = Grouped(FourCC{"rap "}, 2, "1 1 1 x07", {});
  EXPECT_EQ(NumbersIn(table), "default");
  table.AppendSlice(Grouped({}, 0, "", {}), {0, 4});
  EXPECT_EQ(NumbersIn(table), "11110000");
}

TEST(SampleGroups, StateHowFarBackDecodingStarts) {
  const SampleTable table = Grouped(FourCC{"roll"}, 2, "2 2 2 -1/2 -3/2", {{1, 1}, {2, 0}, {3, 2}});
  const std::optional<std::uint32_t> expected[] = {3, 1, {}, 3};
  for (std::uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(RollDistance(*table.WholeRows(), i), expected[i]) << i;
  }
}

}  // namespace
}  // namespace toolbox
