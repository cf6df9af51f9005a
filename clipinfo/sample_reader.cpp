#include "clipinfo/sample_reader.h"

#include <algorithm>
#include <cmath>

#include "toolbox/movie/sample_columns.h"

namespace clipinfo {

using toolbox::MediaTime;
using toolbox::SamplePiece;
using toolbox::SampleRange;
using toolbox::SampleRows;
using toolbox::SampleSlice;

StretchTimes::StretchTimes(const Stretch& stretch)
    : edit_(stretch.edit),
      scale_(stretch.track->TimeClock().media),
      start_(stretch.Start()),
      end_(stretch.End()),
      until_(edit_.mediaTime + stretch.track->TimeClock().Shown(edit_.duration, edit_.rate)) {
  // A rate of 0 shows one sample all the time.
  until_ = std::max(until_, edit_.mediaTime + MediaTime{1});
}

Nanoseconds StretchTimes::At(MediaTime time) const {
  const std::int64_t into = (time - edit_.mediaTime).units;
  if (into <= 0) return start_;
  if (time >= until_ || edit_.rate <= 0) return end_;
  if (IsPlain()) return std::min(end_, start_ + InNanoseconds(into, scale_));
  const long double shown = static_cast<long double>(into) * kSecond / scale_ / edit_.rate;
  if (!(shown < static_cast<long double>(end_ - start_))) return end_;
  return start_ + std::llround(shown);
}

SampleReader::SampleReader(const Stretch& stretch, Files& files)
    : track_(*stretch.track),
      input_(stretch.input),
      times_(Samples()),
      hasPackets_(std::ranges::any_of(Samples().Slices(), [](const SampleSlice& slice) {
        return !slice.rows->packings.empty();
      })) {
  for (const toolbox::SampleDescription& each : track_.media->descriptions) {
    fileNumbers_.push_back(
        files.NumberOf(track_.media->dataReferences[each.dataReference], *track_.movie));
  }
}

std::vector<SampleReader::Entry>& SampleReader::Read(SampleRange range) {
  entries_.clear();
  ReadPieces(range, [this](const SamplePiece& piece) { AddEntries(piece); });
  for (const SampleSlice& slice : Samples().SlicesIn(range)) {
    SampleSlice part = slice;
    part.part = slice.RowsIn(range);
    part.first = slice.SampleOf(part.part.from);
    AddOffsets(part);
    AddSync(part);
    AddDependencies(part);
  }
  return entries_;
}

Shown SampleReader::RowOf(const SamplePiece& piece) const {
  return {.bytes = {fileNumbers_[piece.description], piece.offset, piece.size},
          .track = &track_,
          .sample = piece.sample,
          .description = piece.description,
          .input = input_};
}

void SampleReader::AddEntries(SamplePiece piece) {
  const SampleSlice& slice = Samples().SliceOf(piece.sample);
  const std::uint32_t each = hasPackets_ ? PacketLength(Samples(), piece.sample) : 1;
  const std::uint64_t end = piece.sample + piece.count;
  while (piece.sample < end) {
    piece.count = static_cast<std::uint32_t>(std::min<std::uint64_t>(each, end - piece.sample));
    piece.size = hasPackets_ ? SizeOf(Samples(), piece.sample, piece.count, piece.description)
                             : slice.rows->SizeOf(slice.RowOf(piece.sample), 1, 0);
    entries_.push_back({times_.TimeOf(piece.sample), RowOf(piece)});
    piece.sample += piece.count;
    piece.offset += piece.size;
  }
}

std::span<SampleReader::Entry> SampleReader::EntriesOf(std::uint64_t from, std::uint64_t to) {
  const auto sample = [](const Entry& entry) { return entry.row.sample; };
  const auto first = std::ranges::lower_bound(entries_, from, {}, sample);
  return {first, std::ranges::lower_bound(first, entries_.end(), to, {}, sample)};
}

void SampleReader::AddOffsets(const SampleSlice& part) {
  const toolbox::OffsetRuns& offsets = part.rows->offsets;
  // Packets of several samples have no offsets.
  const std::span<Entry> entries = EntriesOf(part.first, part.End());
  for (Entry& entry : entries) entry.shown += MediaTime{part.shift};
  if (offsets.IsEmpty()) return;
  auto entry = entries.begin();
  offsets.ForEach(part.part.from, part.part.to, [&](std::uint32_t count, std::int32_t offset) {
    for (; count != 0 && entry != entries.end(); --count, ++entry) {
      entry->shown += MediaTime{offset};
    }
  });
}

void SampleReader::AddSync(const SampleSlice& part) {
  const SampleRows& rows = *part.rows;
  const std::span<Entry> entries = EntriesOf(part.first, part.End());
  const auto mark = [&](const std::vector<std::uint32_t>& listed,
                        toolbox::Member<Shown, bool> flag) {
    ForEachListed(part, listed, [&](std::uint64_t sample) {
      for (Entry& entry : EntriesOf(sample, sample + 1)) entry.row.*flag = true;
    });
  };
  if (rows.sync) {
    for (Entry& entry : entries) entry.row.isSync = false;
    mark(*rows.sync, &Shown::isSync);
  }
  mark(rows.partialSync, &Shown::isPartialSync);
}

void SampleReader::AddDependencies(const SampleSlice& part) {
  const toolbox::Bytes& dependencies = part.rows->dependencies;
  if (dependencies.empty()) return;
  for (Entry& entry : EntriesOf(part.first, part.End())) {
    const std::uint32_t row = part.RowOf(entry.row.sample);
    if (row < dependencies.size()) entry.row.dependencies = dependencies[row];
  }
}

}  // namespace clipinfo
