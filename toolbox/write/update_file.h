// Saves a movie into the file that it was read from, without changing its media data.
#pragma once

#include <boost/filesystem/path.hpp>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

// Replaces the movie in the file at `path`. `file` is that file, open for reading and writing and
// locked. The change is made in place if possible (see StepsForUpdate), otherwise a new file
// replaces the old one. `mediaMayMove` is false if something else refers to media in the file by
// their place; then the file is never replaced.
//
// Throws Refused: featureUnsupported (the file has no movie header, or one that cannot be
// replaced), couldNotResolveDataRef, fBsyErr (the movie header is not the one that `movie` was read
// from, or the file would have to be replaced and must not), and what writing throws.
void UpdateFile(const MovieRecord& movie, const boost::filesystem::path& path,
                const FileSource& file, bool mediaMayMove);

}  // namespace toolbox
