// Reads raw AAC ("ADTS", ISO/IEC 13818-7 Annex B), a file without atoms, as a movie of one sound
// track.
#pragma once

#include <memory>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// Makes a movie of `source`. The caller sets its file. Each frame without its header is a sample
// that stays in the file. Bytes between frames are skipped. The track ends before the first frame
// with another rate, kind or channel layout, because it has one sample description. Returns null if
// the file does not start with two frames of AAC; tags (ID3v2) may precede them. Throws Malformed
// (more than 2^32 - 1 frames), and what reading throws.
std::unique_ptr<MovieRecord> ReadAdtsFile(const ByteSource& source);

}  // namespace toolbox
