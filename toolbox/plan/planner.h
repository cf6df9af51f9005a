// The steps from a movie to the plan of its file, which flattening and references share.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "toolbox/plan/plan.h"
#include "toolbox/plan/used_samples.h"
#include "toolbox/refused.h"

namespace toolbox {

// The sizes of sources, so that no plan reads beyond the end of one.
class SourceSizes {
 public:
  // `ownFile` is what ThisFile means and must outlive this object.
  explicit SourceSizes(const std::optional<OtherFile>& ownFile) : ownFile_(ownFile) {}

  // In bytes. Throws Refused: couldNotResolveDataRef.
  std::uint64_t Of(const DataReference& reference);

 private:
  const std::optional<OtherFile>& ownFile_;
  std::map<std::string, std::uint64_t> sizes_;
};

// Fills a plan, track by track. An index is that of a track in the plan.
class Planner {
 public:
  // Starts with every track of `movie`, whose samples stay where they are. Both must outlive it.
  Planner(const MovieRecord& movie, FilePlan& plan);

  // Leaves a track out.
  void Drop(std::size_t index);
  // Leaves out the descriptors and scenes of MPEG-4 systems (ISO/IEC 14496-1). They describe tracks
  // in a way that holds only in the file they came in, and readers of QuickTime movies fail on
  // them.
  void DropSystems();
  // Reduces a track of the output to what the source's shows. Throws Refused: invalidSampleTable
  // (samples without a place), featureUnsupported (a part of encrypted samples), and what
  // SourceSizes throws.
  void Prepare(std::size_t index);
  // Copies the samples of all prepared tracks as they lie in their files; false, and nothing is
  // planned, where that is impossible or takes more chunks. Throws Refused: eofErr.
  bool KeepPlaces(std::uint64_t mostChunks);
  // Copies the samples of a prepared track chunk by chunk. Throws Refused: eofErr.
  void Cut(std::size_t index);
  // Gives every chunk its place.
  void Arrange(bool interleave);
  // Copies what lies beside the samples of a prepared track. Throws Refused: eofErr,
  // invalidSampleTable.
  void AddAuxiliary(std::size_t index);

 private:
  // A description for each of the source's. Those that are equal once they share a file are one.
  void MergeDescriptions(std::size_t index);

  // What is known of a track once it is prepared.
  struct Prepared {
    std::vector<UsedSamples> used;
    std::vector<std::uint64_t> ends;  // by description: the size of the file of its samples

    void CheckEnd(const SamplePiece& piece) const {
      const std::uint64_t end = ends[piece.description];
      if (piece.offset > end || piece.size > end - piece.offset) throw Refused{eofErr};
    }
  };

  struct Timed {
    MovieTime shown;
    int rank;
    ChunkReference chunk;
  };

  FilePlan& plan_;
  SourceSizes sizes_;
  std::map<std::size_t, Prepared> prepared_;  // by track
  std::vector<Timed> timed_;
};

}  // namespace toolbox
