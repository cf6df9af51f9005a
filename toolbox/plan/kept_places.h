// Samples that are copied as they lie: whole stretches of files that are interleaved already.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "toolbox/plan/plan.h"
#include "toolbox/plan/used_samples.h"

namespace toolbox {

// Gathers the stretches that the samples of all tracks of a plan lie in. Where they fill blocks of
// their files without a gap, and pictures and sound of one time lie near one another, the blocks
// are what the media data of the output is made of.
class KeptPlaces {
 public:
  explicit KeptPlaces(FilePlan& plan) : plan_(plan) {}

  // Adds a stretch of samples of a track (an index); `ends` has the sizes of their files, by
  // description. False when they do not lie in their order. Throws Refused (eofErr).
  bool Add(std::size_t track, const UsedSamples& part, std::span<const std::uint64_t> ends);
  // Chunks of the files so far.
  std::uint64_t Chunks() const { return chunks_; }
  // Puts blocks and chunks into the plan; false, and nothing is there, where they do not fit
  // together.
  bool Take();

 private:
  // What lies in one file of one stretch.
  struct Extent {
    std::string file;
    const DataReference* from = nullptr;
    std::size_t track = 0;
    MovieTime shown;
    std::uint64_t begin = 0, end = 0, filled = 0;  // bytes
    KeptStretch stretch;
  };
  struct Block {
    CopyRange range;
    MovieTime shown;
    std::uint64_t filled = 0;
    std::vector<Extent*> extents;
  };

  std::string FileOf(const DataReference& reference) const;
  std::vector<Block> MakeBlocks();
  bool IsInterleaved() const;
  // Where in the media data the sample lies that a track shows at that time; nothing when it shows
  // none.
  std::optional<std::uint64_t> PlaceAt(const TrackPlan& track, MovieTime time) const;

  FilePlan& plan_;
  std::vector<Extent> extents_;
  std::uint64_t chunks_ = 0;
};

}  // namespace toolbox
