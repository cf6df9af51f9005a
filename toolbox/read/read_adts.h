// Reads raw AAC ("ADTS", ISO/IEC 13818-7 Annex B), a file without atoms, as a movie of one sound
// track.
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// Makes a movie of `source`, the open file at `path`. Each frame without its header is a sample
// that stays in the file. Bytes between frames are skipped. The track ends before the first frame
// with another rate, kind or channel layout, because it has one sample description. Returns null if
// the file does not start with two frames of AAC; tags (ID3v2) may precede them. Throws Malformed
// (more than 2^32 - 1 frames), and what reading throws.
std::unique_ptr<MovieRecord> ReadAdtsFile(const ByteSource& source,
                                          const boost::filesystem::path& path);

}  // namespace toolbox
