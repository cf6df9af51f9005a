// Plans to copy samples in the order of their files, if these are interleaved already.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "toolbox/plan/plan.h"
#include "toolbox/plan/used_samples.h"

namespace toolbox {

// Collects the places of the samples of all tracks of a plan. If the samples fill large blocks of
// their files, and pictures and sound of the same time are close together, the output gets these
// blocks as its media data:
//
//   source file   | header | v a v a v a v a | unused | v a v a | header | ...
//                          [---- block ------]        [ block ]
//   media data    | v a v a v a v a | v a v a | next block | ...
//
// Each block has one extent for each track, here for v and for a.
class KeptPlaces {
 public:
  explicit KeptPlaces(FilePlan& plan) : plan_(plan) {}

  // Adds samples of the track with index `track`. `ends` has the end of the source for each
  // description. Returns false if the places cannot be kept, because the samples are not in order
  // in their files or cannot be found. Throws Refused (eofErr) if a sample is beyond the end of its
  // file.
  bool Add(std::size_t track, const UsedSamples& part, std::span<const SourceEnd> ends);
  // The size of the samples so far, in bytes.
  std::uint64_t Bytes() const;
  // Puts blocks and stretches into the plan. Returns false, and plans nothing, if unused bytes
  // split the samples into too many blocks, if bytes are used twice, or if the samples are not
  // interleaved.
  bool Take();

 private:
  // Added samples of one track that are in one file, from byte `begin` to byte `end`. `filled` is
  // the sum of their sizes. It is less than end - begin if samples of other tracks, or unused
  // bytes, are between them.
  struct Extent {
    std::string file;  // its path
    const DataReference* from = nullptr;
    std::size_t track = 0;
    MovieTime shown;
    std::uint64_t begin = 0, end = 0, filled = 0;  // bytes
    KeptStretch stretch;
  };
  // Bytes of a file that are copied as a whole, from the first to the last of some extents.
  // `filled` is the sum of the `filled` of these extents.
  struct Block {
    CopyRange range;
    MovieTime shown;
    std::uint64_t filled = 0;
    std::vector<Extent*> extents;
  };

  // The path of a file that can be copied from; empty for anything else.
  std::string FileOf(const DataReference& reference) const;
  std::vector<Block> MakeBlocks();
  // Whether a block surely has no unused bytes.
  bool IsFull(const Block& block) const;
  // Splits extents wherever a block has unused bytes, so that the blocks made of them have none.
  // Returns false if that would make too many blocks, or if bytes are used twice.
  bool SplitAtGaps(const std::vector<Block>& blocks);
  // Adds the parts of the extents of one block to `parts`.
  bool SplitBlock(const Block& block, std::vector<Extent>& parts) const;
  // Whether the stretches in the plan are interleaved well enough to play.
  bool IsInterleaved() const;
  // The place in the media data, in bytes, of the sample that a track shows at `time`. Nothing if
  // it shows none.
  std::optional<std::uint64_t> PlaceAt(const TrackPlan& track, MovieTime time) const;

  FilePlan& plan_;
  std::vector<Extent> extents_;
};

}  // namespace toolbox
