// A movie saved into the file it came from, media data untouched: crash-safe, in place where that
// can be done.
#pragma once

#include <boost/filesystem/path.hpp>

#include "toolbox/disk/descriptor.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// Replaces the movie in `file`, which was read from `path` and is locked. At every instant the file
// holds one whole movie, the old or the new one:
//
//   ... | old moov | mdat |                       as it was
//   ... | old moov | mdat | new moov |            appended (or put where there is room), synced
//   ... | free     | mdat | new moov |            the old one's type changed, synced
//
// Where nothing can be appended, a new file takes the place of the old one; so it does where the
// movie lies in fragments, which become one movie with ordinary tables.
//
// Throws Refused: featureUnsupported (the file holds no movie header), couldNotResolveDataRef, and
// what writing throws.
void UpdateFile(const MovieRecord& movie, const boost::filesystem::path& path, Descriptor& file);

}  // namespace toolbox
