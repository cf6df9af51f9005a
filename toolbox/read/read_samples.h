// Reads a sample table ('stbl', ISO/IEC 14496-12 8.5.1) into SampleRows.
#pragma once

#include <cstdint>
#include <memory>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/movie/media.h"
#include "toolbox/movie/sample_rows.h"

namespace toolbox {

// Reads `table` into rows and adds its sample descriptions to `media`, whose handler and data
// references must be set. The table of sizes decides how many samples there are; other tables are
// cut or continued to match. Samples without a chunk have no place in a file. Large tables are not
// copied: the rows are views of the bytes that `table` was read from, which the caller must keep.
// Throws Malformed.
std::shared_ptr<SampleRows> ReadSamples(SampleTableAtoms table, MediaRecord& media);

// The size in bytes of one frame (a sample of each channel) of the uncompressed sound that
// `description` describes. 0 if it describes anything else.
std::uint32_t FrameSize(const SampleDescription& description);

}  // namespace toolbox
