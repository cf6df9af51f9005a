#include "toolbox/movie/sample_groups.h"

#include <algorithm>
#include <map>

namespace toolbox {
namespace {

// Version 0 states no length of an entry; these have one by their definition.
std::size_t FixedLength(FourCC grouping) {
  for (const FourCC known : {FourCC{"roll"}, FourCC{"prol"}}) {
    if (grouping == known) return 2;
  }
  for (const FourCC known : {FourCC{"rap "}, FourCC{"tele"}, FourCC{"sync"}}) {
    if (grouping == known) return 1;
  }
  return 0;
}

std::optional<std::uint32_t> TakeNumber(ByteSpan& rest) {
  if (rest.size() < 4) return std::nullopt;
  std::uint32_t number = 0;
  for (const std::uint8_t byte : rest.first(4)) number = number << 8 | byte;
  rest = rest.subspan(4);
  return number;
}

void PutNumber(std::uint8_t* at, std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8) *at++ = static_cast<std::uint8_t>(number >> shift);
}

void AppendNumber(Bytes& bytes, std::uint32_t number) {
  bytes.resize(bytes.size() + 4);
  PutNumber(bytes.data() + bytes.size() - 4, number);
}

const Bytes* DescriptionsIn(const SampleRows& rows, FourCC grouping) {
  const auto found = std::ranges::find_if(rows.groups, [grouping](const SampleGroup& group) {
    return group.grouping == grouping && !group.descriptions.empty();
  });
  return found == rows.groups.end() ? nullptr : &found->descriptions;
}

// The descriptions of one grouping in all files.
class Merger {
 public:
  Merger(std::span<const SampleRows* const> rows, FourCC grouping) : grouping_(grouping) {
    for (const SampleRows* one : rows) {
      const Bytes* atom = DescriptionsIn(*one, grouping);
      if (atom == nullptr) continue;
      isSame_ = isSame_ && (first_ == nullptr || *first_ == *atom);
      if (first_ == nullptr) first_ = atom;
      Add(*atom);
    }
  }

  bool IsPossible() const { return isSame_ || isReadable_; }
  Bytes Atom() const {
    if (first_ == nullptr) return {};
    return isSame_ ? *first_ : WriteGroupDescriptions(grouping_, entries_);
  }
  // The number, in the atom, of samples that are not mapped.
  std::uint32_t Standard() const {
    const auto known = isSame_ && first_ != nullptr ? known_.find(*first_) : known_.end();
    return known == known_.end() ? 0 : known->second.standard;
  }
  JoinedGroup::Numbers NumbersOf(const SampleRows& rows, const SampleGroup* group) const {
    const Bytes* atom = DescriptionsIn(rows, grouping_);
    JoinedGroup::Numbers numbers;
    if (group != nullptr && !group->runs.empty()) numbers.group = group;
    const auto known = atom == nullptr ? known_.end() : known_.find(*atom);
    if (known != known_.end()) {
      numbers.standard =
          isSame_ ? known->second.standard : known->second.joined[known->second.standard];
      if (!isSame_) numbers.joined = known->second.joined;
    }
    return numbers;
  }

 private:
  struct Known {
    std::uint32_t standard = 0;
    std::vector<std::uint32_t> joined;
  };

  void Add(const Bytes& atom) {
    if (known_.contains(atom)) return;
    const auto stated = ReadGroupDescriptions(atom);
    isReadable_ = isReadable_ && stated.has_value();
    if (!stated) return;
    Known& known = known_[atom];
    known.joined = {0};
    for (const ByteSpan entry : stated->entries) {
      auto same = std::find_if(entries_.begin(), entries_.end(), [entry](ByteSpan other) {
        return std::ranges::equal(entry, other);
      });
      if (same == entries_.end()) same = entries_.insert(same, entry);
      known.joined.push_back(static_cast<std::uint32_t>(same - entries_.begin()) + 1);
    }
    if (stated->standard < known.joined.size()) known.standard = stated->standard;
  }

  FourCC grouping_;
  const Bytes* first_ = nullptr;
  bool isSame_ = true, isReadable_ = true;
  std::vector<ByteSpan> entries_;  // in the rows
  std::map<Bytes, Known> known_;
};

}  // namespace

std::optional<GroupDescriptions> ReadGroupDescriptions(ByteSpan atom) {
  if (atom.size() < 16) return std::nullopt;
  const std::uint8_t version = atom[8];
  ByteSpan rest = atom.subspan(12);
  const FourCC grouping(TakeNumber(rest).value());
  GroupDescriptions descriptions;
  std::optional<std::uint32_t> length = 0, standard = 0;
  if (version >= 1) length = TakeNumber(rest);
  if (version >= 2) standard = TakeNumber(rest);
  const auto count = TakeNumber(rest);
  if (!length || !standard || !count || *count > rest.size()) return std::nullopt;
  descriptions.standard = *standard;
  for (std::uint32_t i = 0; i < *count; ++i) {
    std::size_t size = *length;
    if (version == 0) size = *count == 1 ? rest.size() : FixedLength(grouping);
    if (version >= 1 && size == 0) size = TakeNumber(rest).value_or(UINT32_MAX);
    if (size == 0 || size > rest.size()) return std::nullopt;
    descriptions.entries.push_back(rest.first(size));
    rest = rest.subspan(size);
  }
  if (!rest.empty()) return std::nullopt;
  return descriptions;
}

Bytes WriteGroupDescriptions(FourCC grouping, std::span<const ByteSpan> entries,
                             std::uint32_t standard) {
  const bool isFixed = !entries.empty() && std::ranges::all_of(entries, [&](ByteSpan entry) {
    return entry.size() == entries.front().size() && !entry.empty();
  });
  const auto length = static_cast<std::uint32_t>(isFixed ? entries.front().size() : 0);
  const std::uint32_t version = standard == 0 ? 1 : 2;
  Bytes atom(4);
  for (const std::uint32_t word : {FourCC{"sgpd"}.value, version << 24, grouping.value, length}) {
    AppendNumber(atom, word);
  }
  if (standard != 0) AppendNumber(atom, standard);
  AppendNumber(atom, static_cast<std::uint32_t>(entries.size()));
  for (const ByteSpan entry : entries) {
    if (!isFixed) AppendNumber(atom, static_cast<std::uint32_t>(entry.size()));
    atom.insert(atom.end(), entry.begin(), entry.end());
  }
  PutNumber(atom.data(), static_cast<std::uint32_t>(atom.size()));
  return atom;
}

void AddGroupRun(std::vector<GroupRun>& runs, std::uint32_t sample, std::uint32_t group) {
  if (!runs.empty() && runs.back().sample == sample) runs.pop_back();
  if (runs.empty() || runs.back().group != group) runs.push_back({sample, group});
}

std::vector<JoinedGroup> JoinGroups(std::span<const SampleRows* const> rows) {
  std::vector<JoinedGroup> joined;
  std::map<FourCC, Merger> mergers;
  for (const SampleRows* one : rows) {
    for (const SampleGroup& group : one->groups) {
      const auto isThis = [&](const JoinedGroup& other) {
        return other.grouping == group.grouping && other.parameter == group.parameter;
      };
      if (std::ranges::any_of(joined, isThis)) continue;
      const auto [merger, isNew] = mergers.try_emplace(group.grouping, rows, group.grouping);
      if (!merger->second.IsPossible()) continue;
      JoinedGroup& made = joined.emplace_back();
      made.grouping = group.grouping;
      made.parameter = group.parameter;
      made.versionAndFlags = group.versionAndFlags;
      if (isNew) made.descriptions = merger->second.Atom();
      for (const SampleRows* other : rows) {
        const auto own = std::ranges::find_if(other->groups, [&](const SampleGroup& candidate) {
          return candidate.grouping == group.grouping && candidate.parameter == group.parameter;
        });
        const SampleGroup* stated = own == other->groups.end() ? nullptr : &*own;
        const JoinedGroup::Numbers& numbers = made.numbers[other] =
            merger->second.NumbersOf(*other, stated);
        if (numbers.group != nullptr) made.versionAndFlags = stated->versionAndFlags;
        made.isMapped = made.isMapped || numbers.group != nullptr ||
                        numbers.standard != merger->second.Standard();
      }
    }
  }
  return joined;
}

std::optional<std::uint32_t> RollDistance(const SampleRows& rows, std::uint32_t row) {
  for (const SampleGroup& group : rows.groups) {
    if (group.grouping != FourCC{"roll"}) continue;
    const auto stated = ReadGroupDescriptions(group.descriptions);
    if (!stated) continue;
    const auto after = std::ranges::upper_bound(group.runs, row, {}, &GroupRun::sample);
    const std::uint32_t number =
        after == group.runs.begin() ? stated->standard : std::prev(after)->group;
    if (number == 0 || number > stated->entries.size()) continue;
    const ByteSpan entry = stated->entries[number - 1];
    if (entry.size() != 2) continue;
    const auto distance = static_cast<std::int16_t>(entry[0] << 8 | entry[1]);
    if (distance < 0) return static_cast<std::uint32_t>(-distance);
  }
  return std::nullopt;
}

}  // namespace toolbox
