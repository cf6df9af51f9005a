// Reads a sample table, 'stbl', into SampleRows.
#pragma once

#include <memory>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/movie/media.h"
#include "toolbox/movie/sample_rows.h"

namespace toolbox {

// Reads `table` into rows and adds its sample descriptions to `media`, whose handler and data
// references are known. There are as many samples as sizes; other tables are cut or continued to
// match. Samples without a chunk stay unlocated. The rows are views of the bytes that `table` was
// read from. Throws Malformed.
std::shared_ptr<SampleRows> ReadSamples(SampleTableAtoms table, MediaRecord& media);

}  // namespace toolbox
