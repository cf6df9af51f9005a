// Saves a movie into the file that it was read from, without changing its media data.
#pragma once

#include <boost/filesystem/path.hpp>

#include "toolbox/disk/descriptor.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// Replaces the movie in the file at `path`. `file` is that file, open for reading and writing and
// locked. The change is made in place if possible (see StepsForUpdate), otherwise a new file
// replaces the old one and the lock is released.
//
// Throws Refused: featureUnsupported (the file has no movie header, or one that cannot be
// replaced), couldNotResolveDataRef, and what writing throws.
void UpdateFile(const MovieRecord& movie, const boost::filesystem::path& path, Descriptor& file);

}  // namespace toolbox
