// A file with a temporary name. It is removed if it never gets its final name.
#pragma once

#include <sys/types.h>

#include <boost/filesystem/path.hpp>
#include <optional>

#include "toolbox/disk/descriptor.h"

namespace toolbox {

// The file is removed by the destructor, at exit, and on a signal that ends the process (SIGINT,
// SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXCPU, SIGBUS), unless TakeName was called. Signals that the
// process ignores or handles itself are left alone. While a TemporaryFile exists, a write beyond
// the limit on file sizes fails with an error; the usual signal does not end the process.
//
// Use it from one thread only: the signal handler reads a list of all temporary files.
class TemporaryFile {
 public:
  // Creates `.name.XXXXXX` in the folder of `target`. Its permissions are `mode`, or those of any
  // new file if there is no `mode`. Throws Refused, see RefusedBy.
  TemporaryFile(const boost::filesystem::path& target, std::optional<mode_t> mode);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  // The file, open for writing until TakeName.
  const Descriptor& File() const { return file_; }
  // Closes the file and renames it to `target`, which it replaces. Throws Refused, see RefusedBy.
  void TakeName(const boost::filesystem::path& target);

 private:
  // Removes the files in the list. The list itself stays.
  static void RemoveAll();
  static void RemoveAllAndDie(int signal);
  // Add this file to the list, or remove it. The handlers are there while the list has files.
  void Enlist();
  void Delist();

  static inline TemporaryFile* newest_ = nullptr;  // start of the list, linked by next_
  TemporaryFile* next_ = nullptr;
  boost::filesystem::path path_;  // empty after TakeName
  Descriptor file_;
};

}  // namespace toolbox
