// A sample table out of 'stbl': its tables to SampleRows.
#pragma once

#include <memory>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/movie/media.h"
#include "toolbox/movie/sample_rows.h"

namespace toolbox {

// The rows of `table`; its sample descriptions go into `media`, whose handler and data references
// are known. Tables that state fewer samples than there are sizes are made to fit; samples without
// a chunk have no place. The rows point into the bytes that `table` was read from. Throws
// Malformed.
std::shared_ptr<SampleRows> ReadSamples(SampleTableAtoms table, MediaRecord& media);

}  // namespace toolbox
