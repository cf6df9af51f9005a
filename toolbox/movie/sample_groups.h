// Sample groups: which description of a grouping each sample belongs to, and one numbering for
// samples from several files. ISO/IEC 14496-12 8.9.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "toolbox/atoms/group_atoms.h"
#include "toolbox/movie/sample_table.h"

namespace toolbox {

// Adds a run from `sample` on. It replaces the last run if that starts at the same sample. It is
// joined to the last run if that has the same group.
void AddGroupRun(std::vector<GroupRun>& runs, std::uint32_t sample, std::uint32_t group);

// One grouping of samples from several files. It refers to their rows, which must outlive it.
struct JoinedGroup {
  FourCC grouping;
  std::uint32_t versionAndFlags = 0, parameter = 0;  // of 'sbgp'
  // Groups that differ only in their parameter share the descriptions; the first of them has these.
  std::optional<SampleGroupDescriptions> descriptions;
  bool isMapped = false;  // whether an 'sbgp' is needed

  // The numbers of samples from one file.
  struct Numbers {
    const SampleGroup* group = nullptr;  // null: all samples have defaultNumber
    std::vector<std::uint32_t> joined;  // by the number in the file; empty: the same numbers
    std::uint32_t defaultNumber = 0;  // in the joined numbering

    std::uint32_t Of(std::uint32_t number) const {
      if (joined.empty()) return number;
      return number < joined.size() ? joined[number] : 0;
    }
  };
  std::unordered_map<const SampleRows*, Numbers> numbers;
};

// Joins the groupings of all files of a table. Equal descriptions become one. Samples of a file
// without a grouping are in none of its groups. A grouping is left out if its descriptions differ
// between files and their entries cannot be separated.
std::vector<JoinedGroup> GroupsOf(const SampleTable& samples);

// How many samples earlier decoding has to start so that the row is decoded correctly: the distance
// of its roll group, ISO/IEC 14496-12 10.1. Nothing if the row is in no roll group.
std::optional<std::uint32_t> RollDistance(const SampleRows& rows, std::uint32_t row);

}  // namespace toolbox
