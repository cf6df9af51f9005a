// Samples that are copied in the order of their files, where those are interleaved already.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "toolbox/plan/plan.h"
#include "toolbox/plan/used_samples.h"

namespace toolbox {

// Collects where the samples of all tracks of a plan are. When they fill blocks of their files
// without a gap, and pictures and sound of one time are near one another, the media data of the
// output is made of those blocks.
class KeptPlaces {
 public:
  explicit KeptPlaces(FilePlan& plan) : plan_(plan) {}

  // Adds a stretch of samples of a track (an index); `ends` has the sizes of their files, by
  // description. False when they are not in their order there. Throws Refused (eofErr).
  bool Add(std::size_t track, const UsedSamples& part, std::span<const std::uint64_t> ends);
  // Chunks of the files so far.
  std::uint64_t Chunks() const { return chunks_; }
  // Puts blocks and stretches into the plan; false, and the plan stays as it was, when the samples
  // leave gaps or are not interleaved.
  bool Take();

 private:
  // The part of a stretch that is in one file.
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
  // Where in the media data the sample is that a track shows at that time; nothing when it shows
  // none.
  std::optional<std::uint64_t> PlaceAt(const TrackPlan& track, MovieTime time) const;

  FilePlan& plan_;
  std::vector<Extent> extents_;
  std::uint64_t chunks_ = 0;
};

}  // namespace toolbox
