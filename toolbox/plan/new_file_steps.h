// The steps that write a planned movie into a new file.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/disk/perform.h"
#include "toolbox/plan/plan.h"
#include "toolbox/read/file_atoms.h"

namespace toolbox {

struct FileLayout {
  bool movieFirst = true;  // movie header before media data ("fast start")
  bool compress = true;  // the movie header
};

// The movie header of a plan, as far as the places of other parts depend on it.
class PlannedHeader {
 public:
  virtual ~PlannedHeader() = default;
  // Its size in bytes when the media data starts at byte `dataStart`.
  virtual std::uint64_t SizeAt(std::uint64_t dataStart) = 0;
  // All of it.
  virtual Bytes Encode(std::uint64_t dataStart) = 0;
  // All of it, compressed. The size of that is known only afterwards.
  virtual Bytes Compress(std::uint64_t dataStart) = 0;
};

// The parts of a file that a plan only names, for WritePart.
enum Part : int {
  kMovieHeader,  // detail: where the media data starts
  kCopiedMedia,  // the ranges of the plan
  kMadeMedia,  // detail: index of the MadeData
};

// All steps but those of NamingStage. `type` is the whole 'ftyp'; `atoms` are copied from
// `ownSource`, which must live until then. Throws Refused: eofErr, featureUnsupported (items of
// `atoms` that are not there, or in a way that nobody knows).
std::vector<Stage> StepsForNewFile(const FilePlan& plan, FileLayout layout, const Bytes& type,
                                   PlannedHeader& header, std::vector<AtomToCopy> atoms,
                                   const ByteSource* ownSource);

// Appends the steps for the head of the media data and for all of it, starting at byte `at`;
// nothing when the plan has none. Returns where the media data ends.
std::uint64_t AddMediaData(const FilePlan& plan, std::uint64_t at, std::vector<Step>& steps);

}  // namespace toolbox
