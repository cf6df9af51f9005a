// Finds the frames of uncompressed sound in fragments. Writers put many frames into each sample
// that they state.
#pragma once

#include <cstdint>

#include "toolbox/atoms/fragment_atoms.h"
#include "toolbox/movie/media.h"

namespace toolbox {

// Counts the frames of one track. A frame is a sample of each channel. If the samples of all runs
// are whole frames, and each run lasts one unit for each of its frames, then every frame becomes a
// sample. This is how QuickTime stores uncompressed sound in tables: it needs no table of sizes,
// and such sound can share a table with that of other movies. Otherwise the samples stay as the
// file states them.
class FragmentFrames {
 public:
  // Both must outlive this object. The rows have the samples of the fragments so far.
  FragmentFrames(const MediaRecord& media, SampleRows& rows) : media_(media), rows_(rows) {}

  // Notes the samples of the header. Call it before the first run.
  void Begin();
  // Notes a run of `size` bytes that was added to the rows as their last chunk.
  void Add(const TrackRun& run, const FragmentSample& defaults, std::uint64_t size,
           std::uint32_t description);
  // Call it after the last run, when the rows have all other tables. Returns whether frames have
  // become samples.
  bool Finish();

 private:
  const MediaRecord& media_;
  SampleRows& rows_;
  std::uint32_t size_ = 0;  // bytes of a frame; 0: samples stay as they are stated
  std::uint64_t count_ = 0;  // frames so far
  ChunkRuns chunks_;  // of the rows, in frames
};

}  // namespace toolbox
