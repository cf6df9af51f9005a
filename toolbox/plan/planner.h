// Makes the plan of a file from a movie. Self-contained files, reference movies and updates use it.
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

// The ends of sources. Each file is asked once.
class SourceEnds {
 public:
  // `ownFile` is the file that ThisFile means. `sizes` gets the files. Both must outlive this
  // object.
  SourceEnds(const std::optional<OtherFile>& ownFile, std::map<std::string, std::uint64_t>& sizes)
      : ownFile_(ownFile), sizes_(sizes) {}

  // Throws Refused: couldNotResolveDataRef.
  SourceEnd Of(const DataReference& reference);

 private:
  const std::optional<OtherFile>& ownFile_;
  std::map<std::string, std::uint64_t>& sizes_;
};

// Fills a plan, track by track. `index` is always the index of a track in the plan. The order of
// calls is: AddGps, Drop, Prepare, then either KeepPlaces or Cut and Arrange, then AddAuxiliary.
class Planner {
 public:
  // Starts with a plan in which every track of `movie` stays in place. Both arguments must outlive
  // the planner.
  Planner(const MovieRecord& movie, FilePlan& plan);

  // Plans to copy what 'gps ' of the movie locates. If that cannot be found, the atom is copied as
  // it is. Throws what SourceEnds throws.
  void AddGps();
  // Leaves a track out. The indexes of later tracks decrease by one.
  void Drop(std::size_t index);
  // Leaves out the descriptors and scenes of MPEG-4 systems (ISO/IEC 14496-1). Their descriptions
  // of tracks are valid only in the source file, and readers of QuickTime movies fail on them.
  void DropSystems();
  // Reduces a track of the output to the samples that the source track uses, and adapts its edits.
  // The track must have a media. Throws Refused: invalidSampleTable (a sample is in no chunk),
  // featureUnsupported (only a part of encrypted samples is used), and what SourceEnds throws.
  void Prepare(std::size_t index);
  // Plans to copy the samples of all prepared tracks in the order of their files. Returns false,
  // and plans nothing, if that is impossible, or if it takes more than `maxChunks` chunks and the
  // file system cannot share many bytes. Throws Refused: eofErr.
  bool KeepPlaces(std::uint64_t maxChunks);
  // Cuts the samples of prepared tracks into new chunks. Throws Refused: eofErr.
  void Cut(const std::vector<std::size_t>& indexes);
  // Gives every cut chunk its place: by the time it is shown, or else track by track.
  void Arrange(bool interleave);
  // Plans to copy the auxiliary information of the samples of a prepared track, after all other
  // media data so far. Throws Refused: eofErr, invalidSampleTable (a protected track whose
  // information cannot be found).
  void AddAuxiliary(std::size_t index);

 private:
  // Adds the used descriptions of the source to the output. Descriptions that differ only in their
  // file become one.
  void MergeDescriptions(std::size_t index);

  // The result of Prepare for one track.
  struct Prepared {
    std::vector<UsedSamples> used;
    std::vector<SourceEnd> ends;  // of the sources of samples, by description
  };

  // A chunk and its position in the interleaved order.
  struct Timed {
    MovieTime shown;
    int rank = 0;
    ChunkReference chunk;
  };

  // The number of chunks that the samples of all prepared tracks have in their files.
  std::uint64_t Chunks() const;
  // Returns the new chunks of one track. Several threads may cut different tracks.
  std::vector<Timed> CutTrack(std::size_t index);

  FilePlan& plan_;
  SourceEnds ends_;
  std::map<std::size_t, Prepared> prepared_;  // by track
  std::vector<std::vector<Timed>> timed_;  // of each track that is cut
};

}  // namespace toolbox
