// Cuts the samples of a track into the chunks of a new file.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

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

}  // namespace toolbox
