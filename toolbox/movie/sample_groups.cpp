#include "toolbox/movie/sample_groups.h"

#include <algorithm>
#include <map>

namespace toolbox {
namespace {

const SampleGroupDescriptions* DescriptionsIn(const SampleRows& rows, FourCC grouping) {
  const auto found = std::ranges::find_if(rows.groups, [grouping](const SampleGroup& group) {
    return group.grouping == grouping && group.descriptions;
  });
  return found == rows.groups.end() ? nullptr : &*found->descriptions;
}

// Joins the descriptions of one grouping in all files. If all files have the same ones, they are
// kept as they are. Otherwise each different entry gets a new number, in order of first appearance.
class Merger {
 public:
  Merger(std::span<const SampleRows* const> rows, FourCC grouping) : grouping_(grouping) {
    for (const SampleRows* one : rows) {
      const SampleGroupDescriptions* descriptions = DescriptionsIn(*one, grouping);
      if (descriptions == nullptr) continue;
      isSame_ = isSame_ && (first_ == nullptr || *first_ == *descriptions);
      if (first_ == nullptr) first_ = descriptions;
      Add(*descriptions);
    }
  }

  // False: descriptions differ, and some cannot be split into entries.
  bool IsPossible() const { return isSame_ || isReadable_; }
  std::optional<SampleGroupDescriptions> Descriptions() const {
    if (first_ == nullptr) return std::nullopt;
    return isSame_ ? *first_ : SampleGroupDescriptions::Of(grouping_, entries_);
  }
  // The number that Descriptions() states for samples in no run.
  std::uint32_t DefaultNumber() const {
    const auto known = isSame_ && first_ != nullptr ? known_.find(*first_) : known_.end();
    return known == known_.end() ? 0 : known->second.defaultNumber;
  }
  JoinedGroup::Numbers NumbersOf(const SampleRows& rows, const SampleGroup* group) const {
    const SampleGroupDescriptions* descriptions = DescriptionsIn(rows, grouping_);
    JoinedGroup::Numbers numbers;
    if (group != nullptr && !group->runs.empty()) numbers.group = group;
    const auto known = descriptions == nullptr ? known_.end() : known_.find(*descriptions);
    if (known == known_.end()) return numbers;
    const auto& [defaultNumber, joined] = known->second;
    numbers.defaultNumber = isSame_ ? defaultNumber : joined[defaultNumber];
    if (!isSame_) numbers.joined = joined;
    return numbers;
  }

 private:
  // Descriptions of at least one file.
  struct Known {
    std::uint32_t defaultNumber = 0;
    std::vector<std::uint32_t> joined;  // by old number: the new one; 0 stays 0
  };

  void Add(const SampleGroupDescriptions& descriptions) {
    if (known_.contains(descriptions)) return;
    const auto found = descriptions.Entries();
    isReadable_ = isReadable_ && found.has_value();
    if (!found) return;
    Known& known = known_[descriptions];
    known.joined = {0};
    for (const ByteSpan entry : found->entries) {
      auto same = std::find_if(entries_.begin(), entries_.end(), [entry](ByteSpan other) {
        return std::ranges::equal(entry, other);
      });
      if (same == entries_.end()) same = entries_.insert(same, entry);
      known.joined.push_back(static_cast<std::uint32_t>(same - entries_.begin()) + 1);
    }
    if (found->defaultNumber < known.joined.size()) known.defaultNumber = found->defaultNumber;
  }

  FourCC grouping_;
  const SampleGroupDescriptions* first_ = nullptr;
  bool isSame_ = true, isReadable_ = true;
  std::vector<ByteSpan> entries_;  // views of the rows
  std::map<SampleGroupDescriptions, Known> known_;
};

}  // namespace

void AddGroupRun(std::vector<GroupRun>& runs, std::uint32_t sample, std::uint32_t group) {
  if (!runs.empty() && runs.back().sample == sample) runs.pop_back();
  if (runs.empty() || runs.back().group != group) runs.push_back({sample, group});
}

std::vector<JoinedGroup> JoinGroups(std::span<const SampleRows* const> rows) {
  std::vector<JoinedGroup> joined;
  std::map<FourCC, Merger> mergers;
  for (const SampleRows* one : rows) {
    for (const SampleGroup& group : one->groups) {
      const auto isThis = [&](const auto& other) {
        return other.grouping == group.grouping && other.parameter == group.parameter;
      };
      if (std::ranges::any_of(joined, isThis)) continue;
      const auto [merger, isNew] = mergers.try_emplace(group.grouping, rows, group.grouping);
      if (!merger->second.IsPossible()) continue;
      JoinedGroup& result = joined.emplace_back();
      result.grouping = group.grouping;
      result.parameter = group.parameter;
      result.versionAndFlags = group.versionAndFlags;
      if (isNew) result.descriptions = merger->second.Descriptions();
      for (const SampleRows* other : rows) {
        const auto found = std::ranges::find_if(other->groups, isThis);
        const SampleGroup* same = found == other->groups.end() ? nullptr : &*found;
        const JoinedGroup::Numbers& numbers = result.numbers[other] =
            merger->second.NumbersOf(*other, same);
        if (numbers.group != nullptr) result.versionAndFlags = same->versionAndFlags;
        result.isMapped = result.isMapped || numbers.group != nullptr ||
                          numbers.defaultNumber != merger->second.DefaultNumber();
      }
    }
  }
  return joined;
}

std::optional<std::uint32_t> RollDistance(const SampleRows& rows, std::uint32_t row) {
  for (const SampleGroup& group : rows.groups) {
    if (group.grouping != FourCC{"roll"}) continue;
    const auto described = group.descriptions ? group.descriptions->Entries() : std::nullopt;
    if (!described) continue;
    const auto after = std::ranges::upper_bound(group.runs, row, {}, &GroupRun::sample);
    const std::uint32_t number =
        after == group.runs.begin() ? described->defaultNumber : std::prev(after)->group;
    if (number == 0 || number > described->entries.size()) continue;
    if (const auto distance = RollDistanceIn(described->entries[number - 1])) return distance;
  }
  return std::nullopt;
}

}  // namespace toolbox
