#include "toolbox/write/update_file.h"

#include <optional>

#include "toolbox/disk/file_in_place.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/plan/reference.h"
#include "toolbox/plan/update_steps.h"
#include "toolbox/read/file_outline.h"
#include "toolbox/refused.h"
#include "toolbox/write/write_movie.h"
#include "toolbox/write/write_parts.h"

namespace toolbox {

void UpdateFile(const MovieRecord& movie, const boost::filesystem::path& path,
                const FileSource& file, bool mediaMayMove) try {
  const FileOutline outline = ReadOutline(file);
  // Modification times can be too coarse to show that another save came first.
  if (movie.headerAt && *movie.headerAt != outline.Movie().at) {
    throw Refused{fBsyErr, "it has changed since it was opened"};
  }
  FilePlan plan = PlanUpdate(movie);
  LoadTables(plan);  // they may be in the file that changes now
  if (plan.ownFile) plan.ownFile->state.reset();  // this save changes it
  MovieWriter header(plan, path);
  std::optional<OutputFile> output;
  const UpdateSteps steps = StepsForUpdate(plan, outline, header, [&] {
    if (!mediaMayMove) throw Refused{fBsyErr, "its media would move, and another movie needs them"};
    return output.emplace(path, Existing::kLocked).FindSharing(file);
  });
  PartsWriter parts(plan, header);
  FileInPlace inPlace(file.Descriptor());
  parts.Perform(steps.inPlace, inPlace);
  if (output) parts.Perform(steps.newFile, *output);
} catch (Failure& failure) {
  failure.NameFile(path.native());
  throw;
}

}  // namespace toolbox
