// Makes the parts of a file that are not bytes in its steps: movie header and media data.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "toolbox/disk/perform.h"
#include "toolbox/plan/plan.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {

// Performs the steps of a plan and makes each WritePart. Plan and header must outlive it. Sources
// are opened when they are needed.
class PartsWriter {
 public:
  PartsWriter(const FilePlan& plan, MovieWriter& header) : plan_(plan), header_(header) {}

  // Performs all stages and reports progress to the movie's callback. Throws Refused: ioErr (made
  // media data has another size than planned, because its source has changed), and what reading and
  // writing throw.
  void Perform(const std::vector<Stage>& stages, Disk& disk);

 private:
  void Write(const WritePart& part, Disk& disk);
  void WriteHeader(const WritePart& part, Disk& disk);
  // Copies the media data, window by window.
  void CopyMedia(const WritePart& part, Disk& disk);
  std::uint64_t ThreadsToCopy(const WritePart& part, Disk& disk) const;
  // `at` is the position of the media data.
  void CopyWindow(DataWindow window, std::uint64_t at, Disk& disk);
  void MakeMedia(const WritePart& part, Disk& disk);
  // Adds `bytes` to the media data done, and reports progress if it is time.
  void Report(std::uint64_t bytes);

  const FilePlan& plan_;
  MovieWriter& header_;
  const std::thread::id caller_ = std::this_thread::get_id();
  // Bytes of media data. Only the calling thread reports.
  std::atomic<std::uint64_t> done_ = 0;
  std::uint64_t reported_ = 0;
};

// Loads the sample tables of the source into memory, so that later changes of their files do not
// matter.
void LoadTables(const FilePlan& plan);

}  // namespace toolbox
