// Raw AAC, ISO/IEC 13818-7 Annex B ("ADTS"): a file without atoms, as a movie of one sound track.
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// The movie for the file at `path`. Each frame without its header is a sample, by reference to the
// file. Bytes between frames are skipped; the track ends before frames of another rate, kind or
// layout of channels. Null when the file does not start with frames of AAC, or with tags (ID3v2)
// and then frames.
std::unique_ptr<MovieRecord> ReadAdtsFile(const ByteSource& source,
                                          const boost::filesystem::path& path);

}  // namespace toolbox
