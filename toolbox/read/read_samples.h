// A sample table out of 'stbl': its tables to SampleRows.
#pragma once

#include <memory>

#include "toolbox/bytes.h"
#include "toolbox/movie/media.h"
#include "toolbox/movie/sample_rows.h"

namespace toolbox {

// Reads the tables in `content` and puts the sample descriptions into `media`, whose handler and
// data references are known. Tables that state fewer samples than there are sizes are made to fit;
// samples without a chunk stay unlocated. Throws Malformed.
std::shared_ptr<SampleRows> ReadSamples(ByteSpan content, MediaRecord& media);

}  // namespace toolbox
