// Sample groups: which description of a grouping each sample belongs to, and one numbering for
// samples that come from several files. ISO/IEC 14496-12 8.9.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"
#include "toolbox/movie/sample_rows.h"

namespace toolbox {

// What an atom 'sgpd' says. Its entries are views of its bytes.
struct GroupDescriptions {
  std::uint32_t standard = 0;  // the number for samples that 'sbgp' does not speak of; 0 for none
  std::vector<ByteSpan> entries;  // number 1 first
};
// Nothing where the entries cannot be told apart: version 0 states no lengths.
std::optional<GroupDescriptions> ReadGroupDescriptions(ByteSpan atom);

// An 'sgpd' in which each entry states its length unless all have one: of version 1, or 2 where
// samples have a number as a standard.
Bytes WriteGroupDescriptions(FourCC grouping, std::span<const ByteSpan> entries,
                             std::uint32_t standard = 0);

// Adds a run to those of `runs` that end where it starts.
void AddGroupRun(std::vector<GroupRun>& runs, std::uint32_t sample, std::uint32_t group);

// A grouping of samples from several files, as one file states it.
struct JoinedGroup {
  FourCC grouping;
  std::uint32_t versionAndFlags = 0, parameter = 0;  // of 'sbgp'
  Bytes descriptions;  // the whole 'sgpd' atom; empty where another group of the kind states it
  bool isMapped = false;  // whether there is an 'sbgp'

  // The numbers of samples from one file.
  struct Numbers {
    const SampleGroup* group = nullptr;  // null: all samples have the number `standard`
    std::vector<std::uint32_t> joined;  // by the file's number; empty: the same
    std::uint32_t standard = 0;

    std::uint32_t Of(std::uint32_t number) const {
      if (joined.empty()) return number;
      return number < joined.size() ? joined[number] : 0;
    }
  };
  std::unordered_map<const SampleRows*, Numbers> numbers;  // those without are of no group
};

// The groupings that samples of `rows`, which are all different, have together: equal descriptions
// are one, samples of a file that does not know a grouping are in none of its groups. A grouping
// whose descriptions differ and cannot be told apart is left out.
std::vector<JoinedGroup> JoinGroups(std::span<const SampleRows* const> rows);

// How many samples before a row decoding has to start for it to sound right: the distance of its
// roll group, ISO/IEC 14496-12 10.1. Nothing if it has none.
std::optional<std::uint32_t> RollDistance(const SampleRows& rows, std::uint32_t row);

}  // namespace toolbox
