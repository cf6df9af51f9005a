// The walks over a sample table; part of sample_table.h, apart because only their code is here.
#pragma once

#include <algorithm>
#include <iterator>
#include <span>
#include <utility>

#include "toolbox/movie/run_joiner.h"
#include "toolbox/movie/sample_table.h"
#include "toolbox/refused.h"

namespace toolbox {

// Calls add(samples, value) for the part of `runs` within [from, to).
template <class Runs, class Run, class Value, class Add>
void ForEachRunIn(const Runs& runs, std::uint32_t from, std::uint32_t to, Value Run::*value,
                  Add&& add) {
  auto run = std::ranges::upper_bound(runs, from, {}, &Run::sample);
  if (run != runs.begin()) --run;
  for (; run != runs.end() && run->sample < to; ++run) {
    const std::uint32_t end =
        std::next(run) == runs.end() ? to : std::min(to, std::next(run)->sample);
    const std::uint32_t start = std::max(from, run->sample);
    if (end > start) add(end - start, (*run).*value);
  }
}

template <class Visit>
void SampleTable::ForEachTime(Visit&& visit) const {
  RunJoiner<std::int64_t, Visit> joiner(visit);
  for (const Slice& slice : slices_) {
    const std::uint32_t plain = slice.stretch == 0 ? slice.to : slice.to - 1;
    ForEachRunIn(slice.rows->times, slice.from, plain, &TimeRun::delta,
                 [&](std::uint32_t samples, std::uint32_t delta) { joiner.Add(samples, delta); });
    if (slice.stretch != 0) joiner.Add(1, slice.rows->DurationOf(slice.to - 1) + slice.stretch);
  }
  joiner.Flush();
}

template <class Visit, class VisitEncoded>
void SampleTable::ForEachOffset(Visit&& visit, VisitEncoded&& visitEncoded) const {
  RunJoiner<std::int32_t, Visit> joiner(visit);
  for (const Slice& slice : slices_) {
    const OffsetRuns& offsets = slice.rows->offsets;
    const auto add = [&](std::uint32_t samples, std::int32_t offset) {
      joiner.Add(samples, offset + slice.shift);
    };
    if (offsets.IsEmpty()) {
      add(slice.to - slice.from, 0);
    } else if (slice.shift != 0) {
      offsets.ForEach(slice.from, slice.to, add);
    } else {
      // Neighbouring rows differ, so none of these is to be joined to another.
      offsets.ForEach(slice.from, slice.to, add, [&](ByteSpan rows) {
        joiner.Flush();
        visitEncoded(rows);
      });
    }
  }
  joiner.Flush();
}

template <class Visit>
void SampleTable::ForEachOffset(Visit&& visit) const {
  ForEachOffset(visit, [&visit](ByteSpan rows) { OffsetRuns::ForEachRow(rows, visit); });
}

template <class Visit>
void SampleTable::ForEachGroup(const JoinedGroup& group, Visit&& visit) const {
  RunJoiner<std::uint32_t, Visit> joiner(visit);
  for (const Slice& slice : slices_) {
    const auto found = group.numbers.find(slice.rows.get());
    const auto numbers = found == group.numbers.end() ? JoinedGroup::Numbers{} : found->second;
    if (numbers.group == nullptr) {
      joiner.Add(slice.to - slice.from, numbers.defaultNumber);
      continue;
    }
    ForEachRunIn(numbers.group->runs, slice.from, slice.to, &GroupRun::group,
                 [&](std::uint32_t samples, std::uint32_t number) {
                   joiner.Add(samples, numbers.Of(number));
                 });
  }
  joiner.Flush();
}

template <class Visit>
void SampleTable::ForEachEncodedSize(Visit&& visit) const {
  for (const Slice& slice : slices_) {
    const SampleRows& rows = *slice.rows;
    if (rows.constantSize == 0) {
      visit(rows.sizes.Encoded(slice.from, slice.to));
      continue;
    }
    ForEachEncodedRepeat(rows.constantSize, slice.to - slice.from, visit);
  }
}

template <class Visit>
void SampleTable::ForEachSize(Visit&& visit) const {
  ForEachEncodedSize([&visit](ByteSpan rows) {
    Rows<SampleSize>(rows).ForEach([&visit](const SampleSize& row) { visit(row.size); });
  });
}

template <class Visit>
void SampleTable::ForEachSync(Visit&& visit) const {
  for (const Slice& slice : slices_) {
    if (!slice.rows->sync) {
      for (std::uint64_t sample = slice.first; sample < slice.End(); ++sample) visit(sample);
      continue;
    }
    const std::vector<std::uint32_t>& sync = *slice.rows->sync;
    for (auto row = std::ranges::lower_bound(sync, slice.from);
         row != sync.end() && *row < slice.to; ++row) {
      visit(slice.first + (*row - slice.from));
    }
  }
}

template <class Visit>
void SampleTable::ForEachPartialSync(Visit&& visit) const {
  for (const Slice& slice : slices_) {
    const std::vector<std::uint32_t>& sync = slice.rows->partialSync;
    for (auto row = std::ranges::lower_bound(sync, slice.from);
         row != sync.end() && *row < slice.to; ++row) {
      visit(slice.first + (*row - slice.from));
    }
  }
}

template <class Values>
bool SampleTable::Has(Values SampleRows::*table) const {
  return std::ranges::any_of(
      slices_, [table](const Slice& slice) { return !((*slice.rows).*table).empty(); });
}

template <class Values, class Visit>
void SampleTable::ForEachValue(Values SampleRows::*table, Visit&& visit) const {
  for (const Slice& slice : slices_) {
    const Values& values = (*slice.rows).*table;
    for (std::uint32_t row = slice.from; row < slice.to; ++row) {
      visit(row < values.size() ? values[row] : typename Values::value_type{0});
    }
  }
}

template <class Visit>
void SampleTable::ForEachStretch(std::uint64_t from, std::uint64_t to, Visit&& visit) const {
  for (const Slice& slice : SlicesIn(from, to)) {
    const SampleRows& rows = *slice.rows;
    std::uint32_t row = slice.RowOf(std::max(from, slice.first));
    const std::uint32_t end = slice.RowOf(std::min(to, slice.End()));
    while (row < end) {
      const std::uint32_t next =
          std::min({rows.TimesAround(row).second, rows.OffsetsAround(row).second, end});
      visit(slice.first + (row - slice.from), next - row,
            slice.time + rows.TimeOf(row) - slice.rowTime + rows.OffsetOf(row) + slice.shift,
            std::int64_t{rows.DurationOf(row)});
      row = next;
    }
  }
}

// The chunks of a run that [row, end) takes, the first and the last perhaps in part:
//
//      |  chunk  |  chunk  |  chunk  |  chunk  |
//            [row |         whole         | .. end)
template <class Visit>
void SampleTable::ForEachChunksIn(const Slice& slice, std::uint64_t from, std::uint64_t to,
                                  Visit&& visit) const {
  const SampleRows& rows = *slice.rows;
  RowChunks chunks{.row = slice.RowOf(std::max(from, slice.first))};
  const std::uint32_t end = slice.RowOf(std::min(to, slice.End()));
  if (chunks.row >= end) return;
  for (ChunkRuns::Walk run = rows.chunkRuns.From(chunks.row); chunks.row < end; run.Next()) {
    if (run.IsAtEnd()) throw Refused{invalidSampleTable};
    const std::uint32_t runEnd = std::min(end, run->end), perChunk = run->samplesPerChunk;
    chunks.description = run->description;
    while (chunks.row < runEnd) {
      const std::uint32_t left = runEnd - chunks.row;
      std::uint32_t before = 0;
      chunks.chunk = run->chunk;
      if (chunks.row != run->sample) {
        chunks.chunk += (chunks.row - run->sample) / perChunk;
        before = (chunks.row - run->sample) % perChunk;
      }
      chunks.perChunk = perChunk;
      chunks.count = left == perChunk ? 1 : left / perChunk;
      chunks.skipped = 0;
      if (before != 0 || chunks.count == 0) {
        chunks.perChunk = std::min(left, perChunk - before);
        chunks.count = 1;
        if (before != 0) {
          chunks.skipped = rows.SizeOf(chunks.row - before, before, run->description);
        }
      }
      visit(std::as_const(chunks));
      chunks.row += chunks.count * chunks.perChunk;
    }
  }
}

template <class Visit>
void SampleTable::ForEachChunks(std::uint64_t from, std::uint64_t to, Visit&& visit) const {
  for (const Slice& slice : SlicesIn(from, to)) {
    ForEachChunksIn(slice, from, to, [&](const RowChunks& chunks) {
      visit({chunks.count, chunks.perChunk, (*slice.descriptions)[chunks.description]});
    });
  }
}

template <class Visit>
void SampleTable::ForEachOffsetOfChunk(std::uint64_t from, std::uint64_t to, Visit&& visit) const {
  for (const Slice& slice : SlicesIn(from, to)) {
    const EncodedNumbers::View offsets = slice.rows->chunkOffsets.Values();
    const auto visitAll = [&](const RowChunks& chunks) {
      const std::uint32_t description = (*slice.descriptions)[chunks.description];
      for (std::uint32_t i = 0; i < chunks.count; ++i) {
        visit(offsets[chunks.chunk + i] + chunks.skipped, description);
      }
    };
    if (!slice.rows->chunkRuns.ArePlain()) {
      ForEachChunksIn(slice, from, to, visitAll);
      continue;
    }
    // Only the first may not be taken from its start.
    const std::uint64_t first = std::max(from, slice.first), end = std::min(to, slice.End());
    const RowChunks start = ChunkAt(slice, first);
    visitAll(start);
    visitAll({.chunk = start.chunk + 1, .count = ChunkAt(slice, end - 1).chunk - start.chunk});
  }
}

template <class Visit>
void SampleTable::ForEachPiece(std::uint64_t from, std::uint64_t to, Visit&& visit) const {
  for (const Slice& slice : SlicesIn(from, to)) {
    const SampleRows& rows = *slice.rows;
    const EncodedNumbers::View offsets = rows.chunkOffsets.Values(), sizes = rows.sizes.Values();
    ForEachChunksIn(slice, from, to, [&](const RowChunks& chunks) {
      SamplePiece piece{slice.first + (chunks.row - slice.from), chunks.perChunk,
                        (*slice.descriptions)[chunks.description]};
      std::uint32_t row = chunks.row;
      for (std::uint32_t i = 0; i < chunks.count; ++i) {
        piece.offset = offsets[chunks.chunk + i] + chunks.skipped;
        piece.size = rows.SizeOf(row, chunks.perChunk, chunks.description, sizes);
        visit(std::as_const(piece));
        piece.sample += chunks.perChunk;
        row += chunks.perChunk;
      }
    });
  }
}

}  // namespace toolbox
