// The files that have the samples of a movie.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "toolbox/movie/movie.h"

namespace clipinfo {

struct MediaFile {
  std::string name;  // the path, or what else the reference says; empty: the file of the movie
  boost::filesystem::path path;  // empty if there is no file to open
  std::uint64_t size = 0;  // in bytes; 0 if it cannot be read
  std::string problem;  // why it cannot be read, to follow the name: "is not there"
  bool isNewer = false;  // whether it has changed since the movie was saved

  // Reads the size of the file and where its media data are.
  void Open();
  // Whether [at, at + length), which must be inside the file, is inside one 'mdat'. True for every
  // place in a file that is not a movie.
  bool IsMediaData(std::uint64_t at, std::uint64_t length) const;

 private:
  struct Range {
    std::uint64_t from = 0, to = 0;
  };
  std::vector<Range> mediaData_;  // in order
  bool isMovie_ = false;
};

// The file of a data reference of the movie; it is not open yet. An alias record also has dates and
// numbers of the file, but those of a Macintosh volume, which no copy keeps. So only the date of
// the last change can show that it is another file.
MediaFile FileOf(const toolbox::DataReference& reference, const toolbox::MovieRecord& movie);

}  // namespace clipinfo
