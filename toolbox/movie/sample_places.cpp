#include "toolbox/movie/sample_places.h"

#include <algorithm>

namespace toolbox {
namespace {

// Rounds `sample` to the start of a packet: down, or with `up` to the next start. The end of a
// slice or of a chunk also ends a packet.
std::uint64_t PacketBoundary(const SampleTable& samples, std::uint64_t sample, bool up) {
  const SampleSlice& slice = samples.SliceOf(sample);
  const std::uint32_t row = slice.RowOf(sample);
  if (slice.rows->packings.empty() || row >= slice.rows->Located()) return sample;
  const ChunkRun run = *slice.rows->chunkRuns.From(row);
  const std::uint32_t packet = slice.rows->PackingOf(run.description).samples;
  const std::uint32_t inChunk = (row - run.sample) % run.samplesPerChunk;
  const std::uint32_t over = inChunk % packet;
  if (over == 0) return sample;
  if (!up) return sample - std::min<std::uint64_t>(over, sample - slice.first);
  const std::uint32_t missing = std::min(packet - over, run.samplesPerChunk - inChunk);
  return std::min(sample + missing, slice.End());
}

}  // namespace

void CheckLocated(const SampleTable& samples, SampleRange range) {
  for (const SampleSlice& slice : samples.SlicesIn(range)) {
    if (slice.RowsIn(range).to > slice.rows->Located()) {
      throw Refused{invalidSampleTable, "a sample is in no chunk"};
    }
  }
}

std::uint64_t LocatedCount(const SampleTable& samples) {
  for (const SampleSlice& slice : samples.Slices()) {
    const std::uint32_t located = slice.rows->Located();
    if (located < slice.part.to) return slice.SampleOf(std::max(slice.part.from, located));
  }
  return samples.Count();
}

std::uint64_t ChunkCount(const SampleTable& samples, SampleRange range) {
  std::uint64_t chunks = 0;
  for (const SampleSlice& slice : samples.SlicesIn(range)) {
    const RowRange part = slice.RowsIn(range);
    chunks += ChunkAt(*slice.rows, part.to - 1).chunk - ChunkAt(*slice.rows, part.from).chunk + 1;
  }
  return chunks;
}

std::uint64_t SizeOf(const SampleTable& samples, std::uint64_t first, std::uint32_t count,
                     std::uint32_t description) {
  const SampleSlice& slice = samples.SliceOf(first);
  const auto index = std::ranges::find(*slice.descriptions, description);
  return slice.rows->SizeOf(slice.RowOf(first), count,
                            static_cast<std::uint32_t>(index - slice.descriptions->begin()));
}

std::uint32_t PacketLength(const SampleTable& samples, std::uint64_t sample) {
  const SampleSlice& slice = samples.SliceOf(sample);
  const std::uint32_t row = slice.RowOf(sample);
  if (slice.rows->packings.empty() || row >= slice.rows->Located()) return 1;
  return slice.rows->PackingOf(slice.rows->chunkRuns.From(row)->description).samples;
}

SampleRange WholePackets(const SampleTable& samples, SampleRange range) {
  return {PacketBoundary(samples, range.from, false),
          range.to == samples.Count() ? range.to : PacketBoundary(samples, range.to, true)};
}

void MarkDescriptions(const SampleTable& samples, SampleRange range, std::vector<bool>& used) {
  for (const SampleSlice& slice : samples.SlicesIn(range)) {
    const RowRange part = slice.RowsIn(range);
    const auto allMarked = [&] {
      return std::ranges::all_of(*slice.descriptions, [&](std::uint32_t i) { return used[i]; });
    };
    ChunkRuns::Walk run = slice.rows->chunkRuns.From(part.from);
    for (; !run.IsAtEnd() && run->sample < part.to && !allMarked(); run.Next()) {
      if (run->end != run->sample) used[(*slice.descriptions)[run->description]] = true;
    }
  }
}

FileChunks ChunkAt(const SampleRows& rows, std::uint32_t row) {
  const ChunkRun run = *rows.chunkRuns.From(row);
  const std::uint32_t before = (row - run.sample) % run.samplesPerChunk;
  FileChunks chunks{row, run.samplesPerChunk - before, run.description,
                    run.chunk + (row - run.sample) / run.samplesPerChunk, 1};
  if (before != 0) chunks.skipped = rows.SizeOf(row - before, before, run.description);
  return chunks;
}

}  // namespace toolbox
