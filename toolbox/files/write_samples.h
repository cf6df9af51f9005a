// 'stbl' out of a sample table: its tables are made row by row while they are written.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/atoms/fields.h"
#include "toolbox/files/plan.h"
#include "toolbox/movie/media.h"

namespace toolbox {

// Writes or measures the sample table of `media`. Its samples lie in `chunks`, counted from byte
// `dataStart` of the file, or where the table itself says when `chunks` is null.
void PutSamples(FieldWriter& io, const MediaRecord& media, const std::vector<OutputChunk>* chunks,
                std::uint64_t dataStart);
void PutSamples(FieldSizer& io, const MediaRecord& media, const std::vector<OutputChunk>* chunks,
                std::uint64_t dataStart);

}  // namespace toolbox
