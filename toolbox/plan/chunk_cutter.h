// Samples of a track as the chunks of a new file.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "toolbox/plan/plan.h"

namespace toolbox {

// Cuts the samples of a media into chunks of at most half a second and 1 MiB. A sample, or a packet
// of sound, that is longer or larger is a chunk alone.
class ChunkCutter {
 public:
  // Appends to `chunks`; `descriptions` are the indexes of the output by those of the source. All
  // of them must outlive the cutter.
  ChunkCutter(const MediaRecord& media, std::span<const std::uint32_t> descriptions,
              PackedChunks& chunks);

  // Starts a new chunk with the next piece.
  void Close() { isOpen_ = false; }
  // Adds the next samples. Their places are not decided here.
  void Add(SamplePiece piece);

 private:
  // How many samples of `piece` fit into the open chunk, or into a new one: whole packets.
  std::uint32_t Fitting(const SamplePiece& piece);
  // How many of the first `most` samples of `piece` have at most that many bytes.
  std::uint32_t FittingBytes(const SamplePiece& piece, std::uint32_t most, std::uint64_t bytes);
  // Moves the first `count` samples of `piece` into a chunk.
  void Take(SamplePiece& piece, std::uint32_t count, std::uint32_t description);

  const MediaRecord& media_;
  std::span<const std::uint32_t> descriptions_;
  PackedChunks& chunks_;
  TimeCursor times_{media_.samples};
  const MediaTime longest_;
  bool isOpen_ = false;
  MediaTime duration_;  // of the open chunk
};

}  // namespace toolbox
