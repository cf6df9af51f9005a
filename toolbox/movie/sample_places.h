// Where the samples of a table are in their files: chunks, packets and pieces.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "toolbox/movie/sample_table.h"
#include "toolbox/refused.h"

namespace toolbox {

// Consecutive samples of one description whose bytes follow one another in their file.
struct SamplePiece {
  std::uint64_t sample = 0;  // the first
  std::uint32_t count = 0;  // of samples
  std::uint32_t description = 0;  // index
  std::uint64_t offset = 0;  // bytes, from the start of the file
  std::uint64_t size = 0;  // bytes
};

// Consecutive chunks of one description, all with the same number of samples.
struct SampleChunks {
  std::uint32_t count = 0;  // of chunks
  std::uint32_t perChunk = 0;  // samples
  std::uint32_t description = 0;  // index
};

// Throws Refused (invalidSampleTable) if a sample of `range` is in no chunk.
void CheckLocated(const SampleTable& samples, SampleRange range);
// How many samples from the first on are in a chunk.
std::uint64_t LocatedCount(const SampleTable& samples);
// How many chunks the samples of `range` are in. All of these are located.
std::uint64_t ChunkCount(const SampleTable& samples, SampleRange range);
// Bytes of `count` samples of one chunk, from the sample `first` on.
std::uint64_t SizeOf(const SampleTable& samples, std::uint64_t first, std::uint32_t count,
                     std::uint32_t description);
// How many samples the packets around a sample have; 1 where there are no packets.
std::uint32_t PacketLength(const SampleTable& samples, std::uint64_t sample);
// The smallest range around `range` that splits no packet.
SampleRange WholePackets(const SampleTable& samples, SampleRange range);
// Sets used[i] for each description i that samples of `range` have. All of these are located.
void MarkDescriptions(const SampleTable& samples, SampleRange range, std::vector<bool>& used);

// The functions below expect located samples and throw Refused (invalidSampleTable) for others.

// `perChunk` samples of each of `count` consecutive chunks of a file. The first chunk has the index
// `chunk`. The first sample is the row `row`.
struct FileChunks {
  std::uint32_t row = 0, perChunk = 0, description = 0;
  std::uint32_t chunk = 0, count = 0;
  // Bytes at the start of the chunk that belong to samples before `row`. If not 0, count is 1.
  std::uint64_t skipped = 0;
};

// The rest of the chunk of `row`, from that row on.
FileChunks ChunkAt(const SampleRows& rows, std::uint32_t row);

// Calls visit(FileChunks) for `part` of the rows. Its first and its last chunk may be incomplete:
//
//      |  chunk  |  chunk  |  chunk  |  chunk  |
//         [ part.from          ...        part.to )
template <class Visit>
void ForEachFileChunks(const SampleRows& rows, RowRange part, Visit&& visit) {
  FileChunks chunks{.row = part.from};
  for (ChunkRuns::Walk run = rows.chunkRuns.From(chunks.row); chunks.row < part.to; run.Next()) {
    if (run.IsAtEnd()) throw Refused{invalidSampleTable};
    const std::uint32_t runEnd = std::min(part.to, run->end), perChunk = run->samplesPerChunk;
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

// Calls visit(SampleChunks) for the chunks of `range`. Neighbors may be alike.
template <class Visit>
void ForEachChunks(const SampleTable& samples, SampleRange range, Visit&& visit) {
  for (const SampleSlice& slice : samples.SlicesIn(range)) {
    ForEachFileChunks(*slice.rows, slice.RowsIn(range), [&](const FileChunks& chunks) {
      visit(SampleChunks{chunks.count, chunks.perChunk, (*slice.descriptions)[chunks.description]});
    });
  }
}

// Calls visit(offset, description) for each chunk of `range`: the offset is that of the first
// sample in both the chunk and the range, in bytes from the start of the file.
template <class Visit>
void ForEachChunkOffset(const SampleTable& samples, SampleRange range, Visit&& visit) {
  for (const SampleSlice& slice : samples.SlicesIn(range)) {
    const SampleRows& rows = *slice.rows;
    const RowRange part = slice.RowsIn(range);
    const EncodedNumbers::View offsets = rows.chunkOffsets.Values();
    const auto visitAll = [&](const FileChunks& chunks) {
      const std::uint32_t description = (*slice.descriptions)[chunks.description];
      for (std::uint32_t i = 0; i < chunks.count; ++i) {
        visit(offsets[chunks.chunk + i] + chunks.skipped, description);
      }
    };
    if (!rows.chunkRuns.ArePlain()) {
      ForEachFileChunks(rows, part, visitAll);
      continue;
    }
    // Only the first chunk may have samples before the range.
    const FileChunks first = ChunkAt(rows, part.from);
    visitAll(first);
    visitAll({.chunk = first.chunk + 1, .count = ChunkAt(rows, part.to - 1).chunk - first.chunk});
  }
}

// Calls visit(SamplePiece) for each chunk of `range`.
template <class Visit>
void ForEachPiece(const SampleTable& samples, SampleRange range, Visit&& visit) {
  for (const SampleSlice& slice : samples.SlicesIn(range)) {
    const SampleRows& rows = *slice.rows;
    const EncodedNumbers::View offsets = rows.chunkOffsets.Values(), sizes = rows.sizes.Values();
    ForEachFileChunks(rows, slice.RowsIn(range), [&](const FileChunks& chunks) {
      SamplePiece piece{slice.SampleOf(chunks.row), chunks.perChunk,
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
