// A planned movie into a new file.
#pragma once

#include <boost/filesystem/path.hpp>

#include "toolbox/disk/disk.h"
#include "toolbox/plan/new_file_steps.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// Writes all of the file into `output`, an empty file that will be at `file`, and hands it to the
// system; does not give it its name. Throws Refused.
void WriteFile(const FilePlan& plan, FileLayout layout, const boost::filesystem::path& file,
               Disk& output);

}  // namespace toolbox
