// Writes a planned movie to a new file.
#pragma once

#include <boost/filesystem/path.hpp>

#include "toolbox/disk/disk.h"
#include "toolbox/plan/new_file_steps.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// Writes the whole file to `output` and flushes it, but does not give it its name. `output` is
// empty. `file` is the path that it will have, because data references can be relative to it.
// Throws Refused: what StepsForNewFile throws, and what reading the sources and writing throw.
void WriteFile(const FilePlan& plan, FileLayout layout, const boost::filesystem::path& file,
               Disk& output);

}  // namespace toolbox
