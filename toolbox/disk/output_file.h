// A new file that is written under a temporary name and renamed when it is complete.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>

#include "toolbox/disk/disk.h"

namespace toolbox {

// What to do about an existing file at the target: replace it, or throw dupFNErr.
enum class Existing { kReplace, kRefuse };

// The file is written from start to end: every Write and Copy must be at Position(), or it throws
// ioErr. The target does not change before TakeName. Without TakeName the new file is removed, even
// if the process exits or a signal that can be caught ends it. After a call has thrown, every later
// call throws ioErr.
//
//   .name.XXXXXX   while it is written, in the folder of the target
//   name           after TakeName: one rename, so that a reader sees the old or the new file
//
// A target that is no regular file (/dev/null, a FIFO) is written directly.
class OutputFile final : public Disk {
 public:
  // Opens a temporary file in the folder of `target`. Symbolic links are followed. With a relative
  // path, the current folder must not change until TakeName. The new file has the permissions of
  // the old one. Throws Refused: dirNFErr (no such folder), afpAccessDenied (folder or existing
  // file not writable), fLckdErr (the existing file is immutable), vLckdErr (read-only file
  // system), notAFileErr (a directory), fBsyErr (the existing file is locked or open in
  // another process), dupFNErr (the file exists and `existing` is kRefuse), bdNamErr, dskFulErr,
  // tmfoErr, ioErr.
  explicit OutputFile(const boost::filesystem::path& target,
                      Existing existing = Existing::kReplace);
  ~OutputFile() override;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // The number of bytes so far, which is where the next byte goes.
  std::uint64_t Position() const;

  void Write(std::uint64_t at, ByteSpan bytes) override;
  // The kernel copies large pieces itself, if it can.
  void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
            std::uint64_t length) override;
  void Reserve(std::uint64_t size) override;
  void Flush() override;
  // Does nothing unless the file replaces another: only then can a power cut lose an old file.
  void Sync() override;
  // Gives back the room that was reserved and not used. `size` must be Position().
  void CutOff(std::uint64_t size) override;
  // Throws dupFNErr if there is a file by now and it may not be replaced. If syncing the folder
  // fails, this throws although the new file already has its name.
  void TakeName() override;
  // Performs NamingStage: gives back unused room, syncs, and takes the name.
  void Commit();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace toolbox
