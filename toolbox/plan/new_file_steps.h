// The steps that write a planned movie to a new file.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/disk/perform.h"
#include "toolbox/plan/plan.h"
#include "toolbox/read/file_atoms.h"

namespace toolbox {

// The order and form of the parts of a new file.
struct FileLayout {
  bool movieFirst = true;  // movie header before media data ("fast start")
  bool compress = true;  // compress the movie header
};

// The movie header of a plan. Its size and its bytes depend on `dataStart`, the position in the
// file of the first byte of media data, because chunk offsets count from the start of the file.
class PlannedHeader {
 public:
  virtual ~PlannedHeader() = default;
  // The size of the whole header in bytes.
  virtual std::uint64_t SizeAt(std::uint64_t dataStart) = 0;
  // The whole header.
  virtual Bytes Encode(std::uint64_t dataStart) = 0;
  // The whole header, compressed. Its size is not known in advance.
  virtual Bytes Compress(std::uint64_t dataStart) = 0;
};

// The parts of a file that are made while they are written: WritePart::part, with the meaning of
// WritePart::detail.
enum Part : int {
  kMovieHeader,  // detail: `dataStart`
  kCopiedMedia,  // FilePlan::ForEachRange; no detail
  kMadeMedia,  // detail: index in FilePlan::made
};

// All steps of a new file except NamingStage:
//
//   | ftyp | moov | mdat | other atoms |     movieFirst
//   | ftyp | mdat | moov | other atoms |     otherwise
//
// `type` is the whole 'ftyp'. `atoms` are copied from `ownSource`, which may be null if there are
// none, and must outlive the steps. Throws Refused: eofErr (an item is beyond the end of the file),
// featureUnsupported (an item whose place cannot be changed).
std::vector<Stage> StepsForNewFile(const FilePlan& plan, FileLayout layout, const Bytes& type,
                                   PlannedHeader& header, std::vector<AtomToCopy> atoms,
                                   const ByteSource* ownSource);

// Appends the steps that write the 'mdat' at byte `at`: its head, the copied ranges, and the made
// data. Appends nothing if the plan has no media data. Returns the position after the 'mdat'.
std::uint64_t AddMediaData(const FilePlan& plan, std::uint64_t at, std::vector<Step>& steps);

}  // namespace toolbox
