// Makes the parts of a file that are not bytes in its steps: movie header and media data.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/disk/perform.h"
#include "toolbox/plan/plan.h"
#include "toolbox/references/sources.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {

// Performs the steps of a plan and makes each WritePart. Plan and header must outlive it. Sources
// are opened when they are needed.
class PartsWriter {
 public:
  PartsWriter(const FilePlan& plan, MovieWriter& header)
      : plan_(plan), header_(header), sources_(plan.ownFile) {}

  // Performs all stages and reports progress to the movie's callback. Throws Refused: ioErr (made
  // media data has another size than planned, because its source has changed), and what reading and
  // writing throw.
  void Perform(const std::vector<Stage>& stages, Disk& disk);

 private:
  void Write(const WritePart& part, Disk& disk);
  void WriteHeader(const WritePart& part, Disk& disk);
  void CopyMedia(const WritePart& part, Disk& disk);
  void MakeMedia(const WritePart& part, Disk& disk);
  // Adds `bytes` to the media data done, and reports progress if it is time.
  void Report(std::uint64_t bytes);

  const FilePlan& plan_;
  MovieWriter& header_;
  OpenSources sources_;
  std::uint64_t done_ = 0, reported_ = 0;  // bytes of media data
};

// Loads the sample tables of the source into memory, so that later changes of their files do not
// matter.
void LoadTables(const FilePlan& plan);

}  // namespace toolbox
