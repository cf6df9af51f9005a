// Opens movies for clipinfo, with the reason if that fails.
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <string>

#include "toolbox/movie/movie.h"
#include "toolbox/refused.h"

namespace clipinfo {

// A movie with other media files left alone: each data reference to another file is Unresolved, so
// that a missing file does not make the movie unreadable. Resolve finds the files.
struct OpenedMovie {
  std::string name;  // as on the command line
  boost::filesystem::path path;  // absolute
  std::unique_ptr<toolbox::MovieRecord> movie;
};

// Throws what toolbox::ReadMovieFile throws, and filesystem_error.
OpenedMovie OpenMovie(const std::string& name);

// Replaces each data reference of the movie to a file that is found by that file. The others stay
// Unresolved.
void Resolve(OpenedMovie& opened);

// Where the file of an entry that was not resolved should be: its path, else its address or name.
// Empty if the entry says nothing. `movie` is the path of the movie.
std::string StatedPlace(const toolbox::DataReferenceEntry& entry,
                        const boost::filesystem::path& movie);

// The exception that is being handled as a failure; it names `file` if it names none. Rethrows one
// that the toolbox does not know.
toolbox::Failure CaughtFailure(const std::string& file);

// The reason of a failure in words; there is always one.
std::string ReasonOf(const toolbox::Failure& failure);
// A failure as a line for people, with the control characters of names visible: the file, the path
// of the atom if it is known, and the reason.
std::string LineFor(const toolbox::Failure& failure);

}  // namespace clipinfo
