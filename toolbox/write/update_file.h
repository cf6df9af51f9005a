// A movie into the file it came from, its media data untouched.
#pragma once

#include <boost/filesystem/path.hpp>

#include "toolbox/disk/descriptor.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// Replaces the movie in `file`, which was read from `path` and is locked: in place where that is
// possible (see StepsForUpdate), otherwise by a new file. A new file ends the lock.
//
// Throws Refused: featureUnsupported (the file has no movie header, or one that cannot be
// replaced), couldNotResolveDataRef, and what writing throws.
void UpdateFile(const MovieRecord& movie, const boost::filesystem::path& path, Descriptor& file);

}  // namespace toolbox
