// Reads a movie file into a MovieRecord. Other folders start here.
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// How to treat other media files that the movie refers to: find each of them now, or look for none.
enum class References { kResolve, kLeave };

// Opens the file at `path` (absolute) and reads its first movie. A file of raw AAC becomes a movie
// of one track. Sample data is not read. Throws Refused: couldNotResolveDataRef (no such file, or a
// media file in use is not found), noMovieFound (no movie header), badPublicMovieAtom (a damaged
// one), cantFindHandler (compressed in an unknown way), featureUnsupported (fragments that
// ReadFragments refuses), and what FileSource throws.
std::unique_ptr<MovieRecord> ReadMovieFile(const boost::filesystem::path& path,
                                           References references);

// The content of the first movie header ('moov', ISO/IEC 14496-12 8.2.1) in `source`, inflated if
// it is compressed. Empty if there is none. Throws Malformed or Refused.
HeldBytes ReadMovieHeader(const ByteSource& source);

}  // namespace toolbox
