#include "toolbox/write/update_file.h"

#include <sys/file.h>

#include "toolbox/disk/byte_source.h"
#include "toolbox/disk/file_in_place.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/plan/reference.h"
#include "toolbox/plan/update_steps.h"
#include "toolbox/read/file_outline.h"
#include "toolbox/write/write_movie.h"
#include "toolbox/write/write_parts.h"

namespace toolbox {

void UpdateFile(const MovieRecord& movie, const boost::filesystem::path& path, Descriptor& file) {
  const FileSource source(path);
  const FileOutline outline = ReadOutline(source);
  FilePlan plan = PlanUpdate(movie);
  LoadTables(plan);  // they may be in the file that changes now
  MovieWriter header(plan, path);
  const UpdateSteps steps = StepsForUpdate(plan, outline, header);
  PartsWriter parts(plan, header);
  FileInPlace inPlace(file);
  parts.Perform(steps.inPlace, inPlace);
  if (steps.newFile.empty()) return;
  // OutputFile refuses to replace a locked file, even if the lock is our own.
  flock(file.Number(), LOCK_UN);
  OutputFile output(path);
  parts.Perform(steps.newFile, output);
}

}  // namespace toolbox
