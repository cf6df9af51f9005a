#include "toolbox/write/write_file.h"

#include <optional>
#include <utility>
#include <vector>

#include "toolbox/disk/byte_source.h"
#include "toolbox/read/file_atoms.h"
#include "toolbox/write/write_movie.h"
#include "toolbox/write/write_parts.h"

namespace toolbox {

void WriteFile(const FilePlan& plan, FileLayout layout, const boost::filesystem::path& file,
               Disk& output) {
  // Other programs do not find the auxiliary information of samples or the GPS data of a dashcam
  // if the header is compressed.
  if (!plan.auxiliary.empty() || !plan.gps.empty()) layout.compress = false;
  std::optional<FileSource> ownSource;
  std::vector<AtomToCopy> atoms;
  if (!plan.movie->fileAtoms.empty()) {
    ownSource.emplace(plan.movie->file.value().path);
    for (const FileAtom& atom : plan.movie->fileAtoms) {
      atoms.push_back(LoadFileAtom(atom, *ownSource));
    }
  }
  MovieWriter header(plan, file);
  const std::vector<Stage> stages = StepsForNewFile(
      plan, layout, FileTypeOf(plan), header, std::move(atoms), ownSource ? &*ownSource : nullptr);
  // Copying can take minutes, and the source files may change in that time. So if a part after the
  // copied data needs the tables, they are loaded first.
  const bool needsTablesLater = !plan.made.empty() || (!layout.movieFirst && !layout.compress);
  if (plan.dataSize != 0 && needsTablesLater) LoadTables(plan);
  PartsWriter(plan, header).Perform(stages, output);
}

}  // namespace toolbox
