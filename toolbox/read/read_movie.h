// A movie out of a file: atoms to MovieRecord.
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// Media files that the movie refers to: found now, or not even looked for.
enum class References { kResolve, kLeave };

// Opens the file at `path` (absolute) and reads its first movie, or takes raw AAC for one.
// Throws Refused: couldNotResolveDataRef (no such file, or a media file in use is not found),
// noMovieFound (no movie header), badPublicMovieAtom (a broken one), cantFindHandler (compressed in
// an unknown way), featureUnsupported (encrypted fragments), and what FileSource throws.
std::unique_ptr<MovieRecord> ReadMovieFile(const boost::filesystem::path& path,
                                           References references);

// The content of the first movie header in `source`, inflated if need be; empty when there is none.
// Throws Malformed or Refused.
HeldBytes ReadMovieHeader(const ByteSource& source);

}  // namespace toolbox
