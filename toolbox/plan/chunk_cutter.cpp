#include "toolbox/plan/chunk_cutter.h"

namespace toolbox {

ChunkCutter::ChunkCutter(const MediaRecord& media, std::span<const std::uint32_t> descriptions,
                         PackedChunks& chunks)
    : media_(media),
      descriptions_(descriptions),
      chunks_(chunks),
      longest_{std::max(media.header.scale / 2, 1)} {}

std::uint32_t ChunkCutter::FittingBytes(const SamplePiece& piece, std::uint32_t most,
                                        std::uint64_t bytes) {
  // Binary search: the size grows with the number of samples.
  std::uint32_t low = 0, high = most;
  while (low < high) {
    const std::uint32_t middle = high - (high - low) / 2;
    if (SizeOf(media_.samples, piece.sample, middle, piece.description) <= bytes) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  return low;
}

}  // namespace toolbox
