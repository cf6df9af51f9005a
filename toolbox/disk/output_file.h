// A new file that takes its name only when it is whole: written beside its target, then renamed.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>

#include "toolbox/bytes.h"
#include "toolbox/disk/byte_source.h"

namespace toolbox {

enum class Existing { kReplace, kRefuse };

// Written front to back. Until Commit the target is untouched; without Commit nothing is left
// behind, also when the process exits or is ended by a signal it can catch. After a call has
// thrown, the file can never become whole: every later one, Commit included, throws ioErr.
//
// A target that is no regular file (/dev/null, a FIFO) is written directly.
class OutputFile {
 public:
  // Opens a temporary file in the folder of `target`: symbolic links are followed; a relative path
  // wants the current folder to stay the same until Commit. The new file has the permissions of the
  // old one. Throws Refused: dirNFErr (no such folder), afpAccessDenied (folder or existing file
  // not writable), fLckdErr (the existing file is immutable), vLckdErr (read-only file system),
  // notAFileErr (a directory), fBsyErr (the existing file is locked or held open elsewhere),
  // dupFNErr (there is one and `existing` is kRefuse), bdNamErr, dskFulErr, tmfoErr, ioErr.
  explicit OutputFile(const boost::filesystem::path& target,
                      Existing existing = Existing::kReplace);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Where the next byte goes.
  std::uint64_t Position() const;
  // Sets room aside for a file of `size` bytes. A file system that cannot do so is no error; one
  // without the room is (dskFulErr).
  void Reserve(std::uint64_t size);
  void Append(ByteSpan bytes);
  // Appends [at, at + length) of `source`, inside the kernel where that pays. `source` must live
  // until the next call of Flush or Commit. Throws Refused: eofErr when the source ends before.
  void Copy(const ByteSource& source, std::uint64_t at, std::uint64_t length);
  // Hands everything appended so far to the system.
  void Flush();
  // Makes the file whole and gives it its name; syncs it first when it replaces another. Nothing
  // may follow. Throws Refused; when only the folder could not be synced, the new file has its name
  // already.
  void Commit();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace toolbox
