// The files that the media of a movie is in.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "clipinfo/open.h"

namespace clipinfo {

// A file, or another place of media. Text may hold any bytes.
struct SourceFile {
  std::string name;  // the last part of the path, or more if that is not unique
  // From the folder of the movie if it is there, else absolute. Of a missing file: where it was.
  std::string path;
  bool isMissing = false;
};

// From media time `from` on, up to the next run, samples are in the file of that index. No file: in
// no chunk.
struct FileRun {
  toolbox::MediaTime from;
  std::optional<std::size_t> file;
};

// The files of a movie, each once. The movie must be resolved.
class SourceFiles {
 public:
  explicit SourceFiles(const OpenedMovie& opened) : opened_(opened) {}

  const std::vector<SourceFile>& All() const { return files_; }
  // The runs of the media, the first at time 0; neighbors differ. Adds their files to All().
  std::vector<FileRun> RunsOf(const toolbox::MediaRecord& media);

 private:
  // The index of the file of a reference.
  std::size_t IndexOf(const toolbox::DataReference& reference);
  SourceFile FileOf(const toolbox::DataReference& reference) const;

  const OpenedMovie& opened_;
  std::vector<SourceFile> files_;
  std::set<std::string> names_;
  std::map<std::pair<std::string, std::string>, std::size_t> known_;  // by path and name
};

}  // namespace clipinfo
