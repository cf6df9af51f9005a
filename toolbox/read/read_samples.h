// Reads a sample table, 'stbl', into SampleRows.
#pragma once

#include <memory>

#include "toolbox/bytes.h"
#include "toolbox/movie/media.h"
#include "toolbox/movie/sample_rows.h"

namespace toolbox {

// Reads the tables in `content`, the content of an 'stbl', and adds the sample descriptions to
// `media`, whose handler and data references are known. There are as many samples as sizes; other
// tables are cut or continued to match. Samples without a chunk stay unlocated. The rows are views
// of `content`. Throws Malformed.
std::shared_ptr<SampleRows> ReadSamples(ByteSpan content, MediaRecord& media);

}  // namespace toolbox
