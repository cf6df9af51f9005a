// A file that has no name, or a hidden one, until it is complete.
#pragma once

#include <atomic>
#include <boost/filesystem/path.hpp>

#include "toolbox/disk/descriptor.h"

namespace toolbox {

// A new file in the folder of its target. It has no name if the file system supports that, so
// nothing is left of it, however the process ends. Otherwise its name is `.name.XXXXXX`, which it
// also needs for a moment to replace another file. The destructor removes a file with that name,
// and so does RemoveTemporaryFiles. Use it from one thread only.
class TemporaryFile {
 public:
  // Creates the file with the permissions of any new file. Throws Refused, see RefusedBy.
  explicit TemporaryFile(const boost::filesystem::path& target);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  // The file, open for writing until it takes its name.
  const Descriptor& File() const { return file_; }
  // Closes the file and gives it the name `target`. Replaces a file of that name in one step if
  // `replaces`, otherwise throws dupFNErr. Throws Refused, see RefusedBy.
  void TakeName(const boost::filesystem::path& target, bool replaces);

 private:
  friend void RemoveTemporaryFiles();
  // Sets path_ to a hidden name that is free: tries names until make() does not fail with EEXIST.
  // Throws Refused for any other failure.
  template <class Make>
  void Hide(const boost::filesystem::path& target, Make&& make);

  static inline TemporaryFile* newest_ = nullptr;  // start of a list, linked by next_
  TemporaryFile* next_ = nullptr;
  Descriptor file_;
  boost::filesystem::path path_;
  // The hidden name while the file has it, in `path_`; null otherwise. A signal handler reads it.
  std::atomic<const char*> hidden_ = nullptr;
};

// Removes the temporary files that have a hidden name. It is safe in a signal handler.
void RemoveTemporaryFiles();

}  // namespace toolbox
