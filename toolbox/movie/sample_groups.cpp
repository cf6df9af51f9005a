#include "toolbox/movie/sample_groups.h"

#include <algorithm>
#include <map>
#include <span>
#include <unordered_set>

namespace toolbox {
namespace {

// The rows of all files that have samples in the table, each once.
std::vector<const SampleRows*> RowsOf(const SampleTable& samples) {
  std::vector<const SampleRows*> rows;
  std::unordered_set<const SampleRows*> seen;
  if (samples.Count() == 0 && samples.WholeRows() != nullptr) rows.push_back(samples.WholeRows());
  for (const SampleSlice& slice : samples.Slices()) {
    if (seen.insert(slice.rows.get()).second) rows.push_back(slice.rows.get());
  }
  return rows;
}

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
      if (const auto* descriptions = DescriptionsIn(*one, grouping)) Add(*descriptions);
    }
    for (auto& [descriptions, numbers] : known_) {
      if (IsSame()) numbers.joined.clear();
      numbers.defaultNumber = numbers.Of(numbers.defaultNumber);
    }
  }

  // False: descriptions differ, and some cannot be split into entries.
  bool IsPossible() const { return IsSame() || isReadable_; }
  std::optional<SampleGroupDescriptions> Descriptions() const {
    if (known_.empty()) return std::nullopt;
    return IsSame() ? known_.begin()->first : SampleGroupDescriptions::Of(grouping_, entries_);
  }
  // The number that Descriptions() states for samples in no run.
  std::uint32_t DefaultNumber() const {
    return IsSame() && !known_.empty() ? known_.begin()->second.defaultNumber : 0;
  }
  JoinedGroup::Numbers NumbersOf(const SampleRows& rows, const SampleGroup* group) const {
    const SampleGroupDescriptions* descriptions = DescriptionsIn(rows, grouping_);
    auto numbers = descriptions != nullptr ? known_.at(*descriptions) : JoinedGroup::Numbers{};
    if (group != nullptr && !group->runs.empty()) numbers.group = group;
    return numbers;
  }

 private:
  bool IsSame() const { return known_.size() <= 1; }

  void Add(const SampleGroupDescriptions& descriptions) {
    const auto [known, isNew] = known_.try_emplace(descriptions);
    if (!isNew) return;
    JoinedGroup::Numbers& numbers = known->second;
    const auto found = descriptions.Entries();
    isReadable_ = isReadable_ && found.has_value();
    if (!found) return;
    numbers.joined = {0};
    for (const ByteSpan entry : found->entries) {
      auto same = std::find_if(entries_.begin(), entries_.end(), [entry](ByteSpan other) {
        return std::ranges::equal(entry, other);
      });
      if (same == entries_.end()) same = entries_.insert(same, entry);
      numbers.joined.push_back(static_cast<std::uint32_t>(same - entries_.begin()) + 1);
    }
    if (found->defaultNumber < numbers.joined.size()) numbers.defaultNumber = found->defaultNumber;
  }

  FourCC grouping_;
  bool isReadable_ = true;
  std::vector<ByteSpan> entries_;  // views of the rows
  std::map<SampleGroupDescriptions, JoinedGroup::Numbers> known_;  // without `group`
};

}  // namespace

void AddGroupRun(std::vector<GroupRun>& runs, std::uint32_t sample, std::uint32_t group) {
  if (!runs.empty() && runs.back().sample == sample) runs.pop_back();
  if (runs.empty() || runs.back().group != group) runs.push_back({sample, group});
}

std::vector<JoinedGroup> GroupsOf(const SampleTable& samples) {
  std::vector<JoinedGroup> joined;
  const std::vector<const SampleRows*> rows = RowsOf(samples);
  std::map<FourCC, Merger> mergers;
  for (const SampleRows* one : rows) {
    for (const SampleGroup& group : one->groups) {
      const auto isThis = [&](const auto& other) {
        return other.grouping == group.grouping && other.parameter == group.parameter;
      };
      if (std::ranges::any_of(joined, isThis)) continue;
      const auto [merger, isNew] = mergers.try_emplace(group.grouping, rows, group.grouping);
      if (!merger->second.IsPossible()) continue;
      joined.push_back({group.grouping, group.versionAndFlags, group.parameter});
      JoinedGroup& result = joined.back();
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
