// Cuts the samples of a track into the chunks of a new file.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// Cuts the samples of a media into chunks of at most half a second and 1 MiB. A longer or larger
// sample, or packet of sound, is a chunk of its own. All samples of a chunk have one description.
class ChunkCutter {
 public:
  // Appends to `chunks`. `descriptions` maps the index of a description in the source to that in
  // the output. All arguments must outlive the cutter.
  ChunkCutter(const MediaRecord& media, std::span<const std::uint32_t> descriptions,
              PackedChunks& chunks);

  // Closes the open chunk. The next piece starts a new one.
  void Close() { isOpen_ = false; }
  // Adds the next samples, which may need several chunks. The chunks get no destination here.
  void Add(SamplePiece piece);

 private:
  static constexpr std::uint64_t kLargestChunk = 1 << 20;  // bytes

  // The number of samples of `piece` that fit into the open chunk, or into a new one if none is
  // open. Packets are not split.
  std::uint32_t Fitting(const SamplePiece& piece);
  // The number of samples, up to `most`, from the start of `piece` that fit into `bytes`.
  std::uint32_t FittingBytes(const SamplePiece& piece, std::uint32_t most, std::uint64_t bytes);
  // Moves the first `count` samples of `piece` into the open chunk, or into a new one.
  void Take(SamplePiece& piece, std::uint32_t count, std::uint32_t description);

  const MediaRecord& media_;
  std::span<const std::uint32_t> descriptions_;
  PackedChunks& chunks_;
  TimeCursor times_{media_.samples};
  const MediaTime longest_;  // duration of a chunk
  bool isOpen_ = false;
  MediaTime duration_;  // of the open chunk
};

// The next three are inline, because they are called for each chunk of the source: two million
// times in ten hours.

inline void ChunkCutter::Add(SamplePiece piece) {
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

inline std::uint32_t ChunkCutter::Fitting(const SamplePiece& piece) {
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

inline void ChunkCutter::Take(SamplePiece& piece, std::uint32_t count, std::uint32_t description) {
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
