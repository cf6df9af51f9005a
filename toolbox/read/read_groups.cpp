#include "toolbox/read/read_groups.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "toolbox/movie/sample_groups.h"

namespace toolbox {
namespace {

constexpr std::uint32_t kOwnNumbers = 0x10000;  // beyond it those of a fragment's own 'sgpd'

// Numbers of 4, 8, 16 or 32 bits, one behind the other.
class PackedNumbers {
 public:
  explicit PackedNumbers(ByteSpan bytes) : bytes_(bytes) {}
  std::uint32_t Take(std::size_t bits) {
    if (bits > bytes_.size() * 8 - at_) throw Malformed("'csgp' is shorter than its count");
    std::uint32_t number = 0;
    for (const std::size_t end = at_ + bits; at_ < end; at_ += 4) {
      number = number << 4 | (bytes_[at_ / 8] >> (at_ % 8 == 0 ? 4U : 0U) & 15U);
    }
    return number;
  }

 private:
  ByteSpan bytes_;
  std::size_t at_ = 0;  // in bits
};

FragmentGroups ReadPlain(const SampleToGroup& stated, std::uint32_t samples) {
  FragmentGroups read;
  read.group.grouping = stated.grouping;
  read.group.versionAndFlags = stated.versionAndFlags;
  read.group.parameter = stated.parameter;
  stated.rows.ForEach([&](const SampleToGroup::Row& row) {
    if (row.count != 0 && read.mapped < samples) {
      AddGroupRun(read.group.runs, read.mapped, row.group);
    }
    read.mapped += std::min(row.count, samples - read.mapped);
  });
  return read;
}

// Patterns of numbers that repeat. Nothing where they are of an unknown version, or so many written
// out that no recorder can have meant it.
std::optional<FragmentGroups> ReadCompact(ByteSpan content, std::uint32_t samples) {
  constexpr std::size_t kMostRuns = 4'000'000;
  constexpr std::uint32_t kHasParameter = 0x40, kMarksOwnNumbers = 0x80;
  const auto widthOf = [](std::uint32_t code) { return std::size_t{4} << (code & 3); };
  FieldReader io(content);
  FragmentGroups read;
  std::uint32_t flags = 0, count = 0;
  io("version", flags);
  if (flags >> 24 != 0) return std::nullopt;
  io("grouping", read.group.grouping);
  if ((flags & kHasParameter) != 0) {
    io("parameter", read.group.parameter);
    read.group.versionAndFlags = 1U << 24;  // of the 'sbgp' that says the same
  }
  io("patterns", count);
  if (count > io.Remaining().size()) throw Malformed("'csgp' is shorter than its count");

  struct Pattern {
    std::uint32_t length = 0, samples = 0;
  };
  PackedNumbers numbers(io.Remaining());
  std::vector<Pattern> patterns(count);
  for (Pattern& pattern : patterns) {
    pattern.length = numbers.Take(widthOf(flags >> 4));
    pattern.samples = numbers.Take(widthOf(flags >> 2));
  }
  const std::size_t width = widthOf(flags);
  const std::uint32_t own = (flags & kMarksOwnNumbers) != 0 ? 1U << (width - 1) : 0;
  for (const Pattern& pattern : patterns) {
    std::vector<std::uint32_t> each;
    for (std::uint32_t i = 0; i < pattern.length; ++i) {
      const std::uint32_t number = numbers.Take(width);
      each.push_back((number & own) != 0 ? kOwnNumbers + (number & ~own) : number);
    }
    if (each.empty()) continue;
    const std::uint32_t first = read.mapped;
    read.mapped += std::min(pattern.samples, samples - first);
    const bool isOne = std::ranges::all_of(each, [&](std::uint32_t n) { return n == each[0]; });
    for (std::uint32_t sample = first; sample < read.mapped; ++sample) {
      if (read.group.runs.size() > kMostRuns) return std::nullopt;
      AddGroupRun(read.group.runs, sample, each[(sample - first) % each.size()]);
      if (isOne) break;
    }
  }
  return read;
}

// Calls visit(atom) for all atoms of one kind, in their order.
template <class A>
void ForEachOf(const SampleGroupAtoms& atoms, auto&& visit) {
  for (const SampleGroupAtom& any : atoms) {
    if (const A* atom = std::get_if<A>(&any)) visit(*atom);
  }
}

// All maps of a table or a fragment, without their descriptions.
std::vector<FragmentGroups> ReadMaps(const SampleGroupAtoms& atoms, std::uint32_t samples) {
  std::vector<FragmentGroups> maps;
  ForEachOf<SampleToGroup>(
      atoms, [&](const SampleToGroup& atom) { maps.push_back(ReadPlain(atom, samples)); });
  ForEachOf<CompactSampleToGroup>(atoms, [&](const CompactSampleToGroup& atom) {
    auto map =
        InAtom(CompactSampleToGroup::kType, [&] { return ReadCompact(atom.content, samples); });
    if (map) maps.push_back(std::move(*map));
  });
  return maps;
}

struct Descriptions {
  FourCC grouping;
  Bytes atom;
};

std::vector<Descriptions> ReadDescriptions(const SampleGroupAtoms& atoms) {
  std::vector<Descriptions> all;
  ForEachOf<SampleGroupDescriptions>(atoms, [&](const SampleGroupDescriptions& atom) {
    Descriptions& one = all.emplace_back();
    FieldReader io(atom.content);
    std::uint32_t version = 0;
    io("version", version);
    io("grouping", one.grouping);
    one.atom = Encode(atom);
  });
  return all;
}

}  // namespace

void ReadSampleGroups(const SampleGroupAtoms& atoms, SampleRows& rows) {
  for (Descriptions& stated : ReadDescriptions(atoms)) {
    SampleGroup& group = rows.groups.emplace_back();
    group.grouping = stated.grouping;
    group.descriptions = std::move(stated.atom);
  }
  for (FragmentGroups& map : ReadMaps(atoms, rows.count)) {
    auto group = std::ranges::find_if(rows.groups, [&](const SampleGroup& candidate) {
      return candidate.grouping == map.group.grouping && candidate.runs.empty();
    });
    if (group == rows.groups.end()) group = rows.groups.insert(group, SampleGroup{});
    map.group.descriptions = std::move(group->descriptions);
    *group = std::move(map.group);
    if (map.mapped < rows.count) {
      const auto described = ReadGroupDescriptions(group->descriptions);
      AddGroupRun(group->runs, map.mapped, described ? described->standard : 0);
    }
  }
}

std::vector<FragmentGroups> ReadFragmentGroups(const SampleGroupAtoms& atoms,
                                               std::uint32_t samples) {
  std::vector<FragmentGroups> groups = ReadMaps(atoms, samples);
  for (const Descriptions& stated : ReadDescriptions(atoms)) {
    for (FragmentGroups& read : groups) {
      if (read.group.grouping == stated.grouping) read.group.descriptions = stated.atom;
    }
  }
  return groups;
}

Bytes& FragmentGrouper::DescriptionsOf(FourCC grouping) {
  const auto found = std::ranges::find_if(rows_.groups, [grouping](const SampleGroup& group) {
    return group.grouping == grouping && !group.descriptions.empty();
  });
  if (found != rows_.groups.end()) return found->descriptions;
  return std::ranges::find(rows_.groups, grouping, &SampleGroup::grouping)->descriptions;
}

FragmentGrouper::Known& FragmentGrouper::KnownOf(FourCC grouping) {
  const auto [place, isNew] = known_.try_emplace(grouping);
  Known& known = place->second;
  const Bytes& stated = DescriptionsOf(grouping);
  if (!isNew || stated.empty()) return known;
  const auto descriptions = ReadGroupDescriptions(stated);
  known.isReadable = descriptions.has_value();
  if (!descriptions) return known;
  known.standard = descriptions->standard;
  for (const ByteSpan entry : descriptions->entries) {
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
    if (!group.runs.empty()) AddGroupRun(group.runs, rows_.count, KnownOf(group.grouping).standard);
  }
}

void FragmentGrouper::Add(const FragmentGroups& added) {
  const FourCC grouping = added.group.grouping;
  if (added.mapped > UINT32_MAX - rows_.count) throw Malformed("the samples cannot be counted");
  auto group = std::ranges::find_if(rows_.groups, [&](const SampleGroup& known) {
    // Descriptions without a map are of no parameter yet.
    return known.grouping == grouping &&
           (known.parameter == added.group.parameter || known.runs.empty());
  });
  if (group == rows_.groups.end()) group = rows_.groups.insert(group, SampleGroup{});
  group->grouping = grouping;
  group->parameter = added.group.parameter;
  group->versionAndFlags = added.group.versionAndFlags;
  Known& known = KnownOf(grouping);
  const auto own = ReadGroupDescriptions(added.group.descriptions);
  if (rows_.count != 0 && group->runs.empty()) AddGroupRun(group->runs, 0, known.standard);
  for (const GroupRun& run : added.group.runs) {
    std::uint32_t number = run.group;
    if (number > kOwnNumbers) {
      number -= kOwnNumbers;
      const bool isKnown = known.isReadable && own && number <= own->entries.size();
      number = isKnown ? known.NumberOf(own->entries[number - 1]) : 0;
    }
    AddGroupRun(group->runs, rows_.count + run.sample, number);
  }
  AddGroupRun(group->runs, rows_.count + added.mapped, known.standard);
}

void FragmentGrouper::Finish() {
  for (const auto& [grouping, known] : known_) {
    if (!known.isLonger) continue;
    const std::vector<ByteSpan> entries(known.entries.begin(), known.entries.end());
    DescriptionsOf(grouping) = WriteGroupDescriptions(grouping, entries, known.standard);
  }
}

}  // namespace toolbox
