// A file with a temporary name, which is removed with its owner or with the process.
#pragma once

#include <sys/types.h>

#include <boost/filesystem/path.hpp>
#include <optional>

#include "toolbox/disk/descriptor.h"

namespace toolbox {

// Removed unless it takes its name: by the destructor, at exit, and by the signals that end a
// process from outside (SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXCPU), unless the process
// ignores or handles them. While one exists, exceeding the limit on file sizes is an error of the
// write, not a signal.
//
// For one thread only: the signal handler sees all of them.
class TemporaryFile {
 public:
  // Creates `.name.XXXXXX` beside `target`, the file it is meant to become: with the permissions
  // `mode` where given, else with those of any new file. Throws Refused as system calls do.
  TemporaryFile(const boost::filesystem::path& target, std::optional<mode_t> mode);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  // Open for writing until TakeName.
  const Descriptor& File() const { return file_; }
  // Closes the file and puts it in the place of `target`. Throws Refused as system calls do.
  void TakeName(const boost::filesystem::path& target);

 private:
  static void RemoveAll();
  static void RemoveAllAndDie(int signal);
  void Enlist();
  void Delist();

  static inline TemporaryFile* newest_ = nullptr;
  TemporaryFile* next_ = nullptr;
  boost::filesystem::path path_;
  Descriptor file_;
};

}  // namespace toolbox
