#include "toolbox/plan/chunk_cutter.h"
#include "toolbox/movie/sample_places.h"

#include <algorithm>

namespace toolbox {
namespace {

constexpr std::uint64_t kLargestChunk = 1 << 20;  // bytes

}  // namespace

ChunkCutter::ChunkCutter(const MediaRecord& media, std::span<const std::uint32_t> descriptions,
                         PackedChunks& chunks)
    : media_(media),
      descriptions_(descriptions),
      chunks_(chunks),
      longest_{std::max(media.header.scale / 2, 1)} {}

void ChunkCutter::Add(SamplePiece piece) {
  const std::uint32_t description = descriptions_[piece.description];
  while (piece.count != 0) {
    if (isOpen_ && chunks_.back().description != description) Close();
    std::uint32_t taken = Fitting(piece);
    if (taken == 0 && isOpen_) {
      // The open chunk is full. Try again with a new one.
      Close();
      continue;
    }
    // Even a new chunk is too small: the chunk is one packet.
    if (taken == 0) taken = std::min(piece.count, PacketLength(media_.samples, piece.sample));
    Take(piece, taken, description);
  }
}

std::uint32_t ChunkCutter::Fitting(const SamplePiece& piece) {
  const MediaTime room = isOpen_ ? std::max(longest_ - duration_, MediaTime{}) : longest_;
  const std::uint64_t bytes =
      isOpen_ ? kLargestChunk - std::min(kLargestChunk, chunks_.back().size) : kLargestChunk;
  std::uint32_t fitting = piece.count;
  if (piece.count == 1) {
    if (times_.DurationOf(piece.sample) > room) return 0;
  } else if (times_.TimeOf(piece.sample + piece.count) - times_.TimeOf(piece.sample) > room) {
    const MediaTime end = times_.TimeOf(piece.sample) + room;
    fitting = static_cast<std::uint32_t>(media_.samples.SampleAt(end) - piece.sample);
  }
  if (piece.size > bytes) fitting = FittingBytes(piece, fitting, bytes);
  // A cut inside the piece must be between two packets.
  if (fitting == piece.count) return fitting;
  return fitting - fitting % PacketLength(media_.samples, piece.sample);
}

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

void ChunkCutter::Take(SamplePiece& piece, std::uint32_t count, std::uint32_t description) {
  if (!isOpen_) {
    chunks_.push_back({.sample = piece.sample, .description = description});
    duration_ = {};
    isOpen_ = true;
  }
  const std::uint64_t size = count == piece.count
                                 ? piece.size
                                 : SizeOf(media_.samples, piece.sample, count, piece.description);
  duration_ += times_.TimeOf(piece.sample + count) - times_.TimeOf(piece.sample);
  chunks_.back().size += size;
  chunks_.back().count += count;
  piece.sample += count;
  piece.count -= count;
  piece.offset += size;
  piece.size -= size;
}

}  // namespace toolbox
