// The columns of a sample table, as a file states them: durations, offsets, sizes, sync samples,
// groups. Each function runs through all samples in order.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <vector>

#include "toolbox/movie/run_joiner.h"
#include "toolbox/movie/sample_groups.h"
#include "toolbox/movie/sample_table.h"

namespace toolbox {

// The size in bytes that all samples share, or nothing.
std::optional<std::uint32_t> ConstantSize(const SampleTable& samples);
bool HasOffsets(const SampleTable& samples);
// The version in which a QuickTime file states the offsets.
std::uint32_t OffsetsVersion(const SampleTable& samples);
// Whether any sample is shown before it is decoded.
bool HasOffsetsBelowZero(const SampleTable& samples);
// False: every sample is a sync sample.
bool HasSyncTable(const SampleTable& samples);

// A member of a record.
template <class Record, class Value>
using Member = Value Record::*;

// Calls add(samples, value) for each of `runs` with samples in `part`: `samples` is their number,
// `value` a member of the run. A run ends where the next one starts.
template <class Runs, class Run, class Value, class Add>
void ForEachRunIn(const Runs& runs, RowRange part, Member<Run, Value> value, Add&& add) {
  auto run = std::ranges::upper_bound(runs, part.from, {}, &Run::sample);
  if (run != runs.begin()) --run;
  for (; run != runs.end() && run->sample < part.to; ++run) {
    const std::uint32_t end =
        std::next(run) == runs.end() ? part.to : std::min(part.to, std::next(run)->sample);
    const std::uint32_t start = std::max(part.from, run->sample);
    if (end > start) add(end - start, (*run).*value);
  }
}

// Calls visit(samples, duration) for runs of one duration; neighbors differ.
template <class Visit>
void ForEachTime(const SampleTable& samples, Visit&& visit) {
  RunJoiner<std::int64_t, Visit> joiner(visit);
  for (const SampleSlice& slice : samples.Slices()) {
    RowRange plain = slice.part;
    const bool isStretched = slice.stretch != MediaTime{};
    if (isStretched) --plain.to;
    ForEachRunIn(slice.rows->times, plain, &TimeRun::delta,
                 [&](std::uint32_t count, std::uint32_t delta) { joiner.Add(count, delta); });
    if (isStretched) joiner.Add(1, slice.DurationOf(plain.to).units);
  }
  joiner.Flush();
}

// Calls visit(samples, offset) for runs of one offset; neighbors differ. Where rows of 'ctts' can
// be taken over as they are, calls visitEncoded(rows) instead.
template <class Visit, class VisitEncoded>
void ForEachOffset(const SampleTable& samples, Visit&& visit, VisitEncoded&& visitEncoded) {
  RunJoiner<std::int32_t, Visit> joiner(visit);
  for (const SampleSlice& slice : samples.Slices()) {
    const OffsetRuns& offsets = slice.rows->offsets;
    const auto add = [&](std::uint32_t count, std::int32_t offset) {
      joiner.Add(count, offset + slice.shift);
    };
    if (offsets.IsEmpty()) {
      add(slice.part.Count(), 0);
    } else if (slice.shift != 0) {
      offsets.ForEach(slice.part.from, slice.part.to, add);
    } else {
      // Neighboring rows differ, so none of these is to be joined to another.
      offsets.ForEach(slice.part.from, slice.part.to, add, [&](ByteSpan rows) {
        joiner.Flush();
        visitEncoded(rows);
      });
    }
  }
  joiner.Flush();
}
template <class Visit>
void ForEachOffset(const SampleTable& samples, Visit&& visit) {
  ForEachOffset(samples, visit, [&visit](ByteSpan rows) { OffsetRuns::ForEachRow(rows, visit); });
}

// Calls visit(samples, number) for runs in one group of a grouping that GroupsOf has returned;
// neighbors differ. Number 0 is no group.
template <class Visit>
void ForEachGroup(const SampleTable& samples, const JoinedGroup& group, Visit&& visit) {
  RunJoiner<std::uint32_t, Visit> joiner(visit);
  for (const SampleSlice& slice : samples.Slices()) {
    const JoinedGroup::Numbers& numbers = group.numbers.at(slice.rows.get());
    if (numbers.group == nullptr) {
      joiner.Add(slice.part.Count(), numbers.defaultNumber);
      continue;
    }
    ForEachRunIn(
        numbers.group->runs, slice.part, &GroupRun::group,
        [&](std::uint32_t count, std::uint32_t number) { joiner.Add(count, numbers.Of(number)); });
  }
  joiner.Flush();
}

// Calls visit(rows) with rows of 'stsz', each the size of a sample.
template <class Visit>
void ForEachEncodedSize(const SampleTable& samples, Visit&& visit) {
  for (const SampleSlice& slice : samples.Slices()) {
    const SampleRows& rows = *slice.rows;
    if (rows.constantSize == 0) {
      visit(rows.sizes.Encoded(slice.part.from, slice.part.to));
    } else {
      ForEachEncodedRepeat(rows.constantSize, slice.part.Count(), visit);
    }
  }
}

// Calls visit(sample) for those of the sorted `rows` that are in the slice.
template <class Visit>
void ForEachListed(const SampleSlice& slice, const std::vector<std::uint32_t>& rows,
                   Visit&& visit) {
  for (auto row = std::ranges::lower_bound(rows, slice.part.from);
       row != rows.end() && *row < slice.part.to; ++row) {
    visit(slice.SampleOf(*row));
  }
}

// Calls visit(sample) for each sync sample.
template <class Visit>
void ForEachSync(const SampleTable& samples, Visit&& visit) {
  for (const SampleSlice& slice : samples.Slices()) {
    if (slice.rows->sync) {
      ForEachListed(slice, *slice.rows->sync, visit);
    } else {
      for (std::uint64_t sample = slice.first; sample < slice.End(); ++sample) visit(sample);
    }
  }
}

// Calls visit(sample) for each partial sync sample.
template <class Visit>
void ForEachPartialSync(const SampleTable& samples, Visit&& visit) {
  for (const SampleSlice& slice : samples.Slices()) {
    ForEachListed(slice, slice.rows->partialSync, visit);
  }
}

// Whether any file has values in that column, such as &SampleRows::padding.
template <class Values>
bool HasValues(const SampleTable& samples, Member<SampleRows, Values> column) {
  return std::ranges::any_of(samples.Slices(), [column](const SampleSlice& slice) {
    return !((*slice.rows).*column).empty();
  });
}

// Calls visit(value) for each sample; 0 where the column of its file is too short.
template <class Values, class Visit>
void ForEachValue(const SampleTable& samples, Member<SampleRows, Values> column, Visit&& visit) {
  for (const SampleSlice& slice : samples.Slices()) {
    const Values& values = (*slice.rows).*column;
    for (std::uint32_t row = slice.part.from; row < slice.part.to; ++row) {
      visit(row < values.size() ? values[row] : typename Values::value_type{0});
    }
  }
}

}  // namespace toolbox
