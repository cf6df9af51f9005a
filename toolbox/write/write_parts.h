// The parts of a file that its plan only names: movie header and media data.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/disk/perform.h"
#include "toolbox/plan/plan.h"
#include "toolbox/references/sources.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {

// Performs the steps of a plan. Plan and header must outlive it.
class PartsWriter {
 public:
  PartsWriter(const FilePlan& plan, MovieWriter& header)
      : plan_(plan), header_(header), sources_(plan.ownFile) {}

  // Throws Refused: ioErr (made media data of another size than planned, because its source has
  // changed), and what reading and writing throw.
  void Perform(const std::vector<Stage>& stages, Disk& disk);

 private:
  void Write(const WritePart& part, Disk& disk);
  void WriteHeader(const WritePart& part, Disk& disk);
  void CopyMedia(const WritePart& part, Disk& disk);
  void MakeMedia(const WritePart& part, Disk& disk);
  void Report(std::uint64_t bytes);

  const FilePlan& plan_;
  MovieWriter& header_;
  OpenSources sources_;
  std::uint64_t done_ = 0, reported_ = 0;  // bytes of media data
};

// Keeps the sample tables of the source in memory, whatever happens to their files from now on.
void OwnTables(const FilePlan& plan);

}  // namespace toolbox
