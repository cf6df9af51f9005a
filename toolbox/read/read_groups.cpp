#include "toolbox/read/read_groups.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <span>
#include <utility>

#include "toolbox/atoms/group_atoms.h"
#include "toolbox/movie/sample_groups.h"

namespace toolbox {
namespace {

std::optional<GroupEntries> EntriesOf(const std::optional<SampleGroupDescriptions>& descriptions) {
  return descriptions ? descriptions->Entries() : std::nullopt;
}

// The map of a 'sbgp', ISO/IEC 14496-12 8.9.2, for the first `samples` samples.
FragmentGroups ReadPlain(const SampleToGroup& plain, std::uint32_t samples) {
  FragmentGroups read;
  read.group = {plain.grouping, plain.versionAndFlags, plain.parameter, {}, {}};
  plain.rows.ForEach([&](const SampleToGroup::Row& row) {
    if (row.count != 0 && read.mapped < samples) {
      AddGroupRun(read.group.runs, read.mapped, row.group);
    }
    read.mapped += std::min(row.count, samples - read.mapped);
  });
  return read;
}

// The map of a 'csgp', ISO/IEC 14496-12 8.9.5. Nothing if the version is unknown, or if there are
// more runs than in any real file: a few bytes of patterns can claim billions of them.
std::optional<FragmentGroups> ReadCompact(const CompactSampleToGroup& compact,
                                          std::uint32_t samples) {
  constexpr std::size_t kMaxRuns = 4'000'000;
  if (!compact.IsKnownVersion()) return std::nullopt;
  FragmentGroups read;
  const std::uint32_t version = compact.HasParameter() ? 1 : 0;  // of the equivalent 'sbgp'
  read.group = {compact.grouping, version << 24, compact.parameter, {}, {}};
  std::vector<GroupRun>& runs = read.group.runs;
  bool isPlausible = true;
  compact.ForEachPattern([&](std::uint32_t count, std::span<const std::uint32_t> numbers) {
    if (numbers.empty()) return true;
    const std::uint32_t first = read.mapped;
    read.mapped += std::min(count, samples - first);
    // A pattern of one group is one run, however long it is.
    const bool isOne = std::ranges::count(numbers, numbers[0]) == std::ssize(numbers);
    for (std::uint32_t sample = first; sample < read.mapped; ++sample) {
      isPlausible = runs.size() <= kMaxRuns;
      if (!isPlausible) break;
      AddGroupRun(runs, sample, numbers[(sample - first) % numbers.size()]);
      if (isOne) break;
    }
    return isPlausible;
  });
  if (!isPlausible) return std::nullopt;
  return read;
}

// Calls visit(atom) for all atoms of type A, in file order.
template <class A>
void ForEachOf(const SampleGroupAtoms& atoms, auto&& visit) {
  for (const SampleGroupAtom& any : atoms) {
    if (const A* atom = std::get_if<A>(&any)) visit(*atom);
  }
}

// All maps of a sample table or a fragment, those of 'sbgp' first. They have no descriptions yet.
std::vector<FragmentGroups> ReadMaps(const SampleGroupAtoms& atoms, std::uint32_t samples) {
  std::vector<FragmentGroups> maps;
  ForEachOf<SampleToGroup>(
      atoms, [&](const SampleToGroup& plain) { maps.push_back(ReadPlain(plain, samples)); });
  ForEachOf<CompactSampleToGroup>(atoms, [&](const CompactSampleToGroup& compact) {
    auto map = InAtom(CompactSampleToGroup::kType, [&] { return ReadCompact(compact, samples); });
    if (map) maps.push_back(std::move(*map));
  });
  return maps;
}

}  // namespace

void ReadSampleGroups(const SampleGroupAtoms& atoms, SampleRows& rows) {
  ForEachOf<SampleGroupDescriptions>(atoms, [&](const SampleGroupDescriptions& descriptions) {
    rows.groups.push_back({descriptions.grouping, 0, 0, descriptions, {}});
  });
  for (FragmentGroups& map : ReadMaps(atoms, rows.count)) {
    // The first map of a grouping goes to the group with the descriptions. A further map, which has
    // another parameter, is a new group.
    auto group = std::ranges::find_if(rows.groups, [&](const SampleGroup& candidate) {
      return candidate.grouping == map.group.grouping && candidate.runs.empty();
    });
    if (group == rows.groups.end()) group = rows.groups.insert(group, SampleGroup{});
    map.group.descriptions = std::move(group->descriptions);
    *group = std::move(map.group);
    if (map.mapped < rows.count) {
      const auto described = EntriesOf(group->descriptions);
      AddGroupRun(group->runs, map.mapped, described ? described->defaultNumber : 0);
    }
  }
}

std::vector<FragmentGroups> ReadFragmentGroups(const SampleGroupAtoms& atoms,
                                               std::uint32_t samples) {
  std::vector<FragmentGroups> groups = ReadMaps(atoms, samples);
  ForEachOf<SampleGroupDescriptions>(atoms, [&](const SampleGroupDescriptions& descriptions) {
    for (FragmentGroups& read : groups) {
      if (read.group.grouping == descriptions.grouping) read.group.descriptions = descriptions;
    }
  });
  return groups;
}

std::optional<SampleGroupDescriptions>& FragmentGrouper::DescriptionsOf(FourCC grouping) {
  const auto rank = [grouping](const SampleGroup& group) {
    return std::pair(group.grouping == grouping, group.descriptions.has_value());
  };
  return std::ranges::max_element(rows_.groups, {}, rank)->descriptions;
}

FragmentGrouper::Known& FragmentGrouper::KnownOf(FourCC grouping) {
  const auto [place, isNew] = known_.try_emplace(grouping);
  Known& known = place->second;
  const std::optional<SampleGroupDescriptions>& descriptions = DescriptionsOf(grouping);
  if (!isNew || !descriptions) return known;
  const auto described = descriptions->Entries();
  known.isReadable = described.has_value();
  if (!described) return known;
  known.defaultNumber = described->defaultNumber;
  for (const ByteSpan entry : described->entries) {
    known.entries.emplace_back(entry.begin(), entry.end());
    known.numbers.try_emplace(known.entries.back(),
                              static_cast<std::uint32_t>(known.entries.size()));
  }
  return known;
}

std::uint32_t FragmentGrouper::Known::NumberOf(ByteSpan entry) {
  const auto [place, isNew] = numbers.try_emplace(Bytes(entry.begin(), entry.end()), 0);
  if (isNew) {
    entries.push_back(place->first);
    place->second = static_cast<std::uint32_t>(entries.size());
    isLonger = true;
  }
  return place->second;
}

void FragmentGrouper::Begin() {
  for (SampleGroup& group : rows_.groups) {
    if (!group.runs.empty())
      AddGroupRun(group.runs, rows_.count, KnownOf(group.grouping).defaultNumber);
  }
}

void FragmentGrouper::Add(const FragmentGroups& added) {
  const FourCC grouping = added.group.grouping;
  if (added.mapped > UINT32_MAX - rows_.count) throw Malformed("the track has too many samples");
  auto group = std::ranges::find_if(rows_.groups, [&](const SampleGroup& known) {
    // Descriptions without a map have no parameter yet.
    return known.grouping == grouping &&
           (known.parameter == added.group.parameter || known.runs.empty());
  });
  if (group == rows_.groups.end()) group = rows_.groups.insert(group, SampleGroup{});
  group->grouping = grouping;
  group->parameter = added.group.parameter;
  group->versionAndFlags = added.group.versionAndFlags;
  Known& known = KnownOf(grouping);
  const auto local = EntriesOf(added.group.descriptions);
  // If this is the first map of the grouping, earlier samples are in the default group.
  if (rows_.count != 0 && group->runs.empty()) AddGroupRun(group->runs, 0, known.defaultNumber);
  for (const GroupRun& run : added.group.runs) {
    std::uint32_t number = run.group;
    if (number > kFragmentNumbers) {
      number -= kFragmentNumbers;
      // Numbers of the fragment become numbers of the track; 0 if the description is missing.
      const bool isKnown = known.isReadable && local && number <= local->entries.size();
      number = isKnown ? known.NumberOf(local->entries[number - 1]) : 0;
    }
    AddGroupRun(group->runs, rows_.count + run.sample, number);
  }
  // The map can end before the fragment does, and later fragments can have no map.
  AddGroupRun(group->runs, rows_.count + added.mapped, known.defaultNumber);
}

void FragmentGrouper::Finish() {
  for (const auto& [grouping, known] : known_) {
    if (!known.isLonger) continue;
    const std::vector<ByteSpan> entries(known.entries.begin(), known.entries.end());
    DescriptionsOf(grouping) = SampleGroupDescriptions::Of(grouping, entries, known.defaultNumber);
  }
}

}  // namespace toolbox
