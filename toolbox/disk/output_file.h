// A new file that is written under a temporary name and renamed when it is complete.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>

#include "toolbox/disk/disk.h"

namespace toolbox {

// What to do about an existing file at the target. kReplace: replace it unless it is in use.
// kRefuse: throw dupFNErr. kLocked: replace it; the caller has it open and has locked it.
enum class Existing { kReplace, kRefuse, kLocked };

// The file is written from start to end: every Write and Copy must be at Position(), or it throws
// ioErr. While several threads copy, they may write in any order. The target does not change before
// TakeName. After a call has thrown, every later call throws ioErr.
//
//   no name, or .name.XXXXXX   while it is written, in the folder of the target: a TemporaryFile
//   name                       after TakeName: a reader sees the whole old or the whole new file
//
// A target that is no regular file (/dev/null, a FIFO) is written directly.
class OutputFile final : public Disk {
 public:
  // Opens a temporary file in the folder of `target`. Symbolic links are followed. With a relative
  // path, the current folder must not change until TakeName. The new file has the attributes of
  // the old one (see CopyAttributes), which stays locked until it is replaced. Throws Refused:
  // dirNFErr (no such folder), afpAccessDenied (folder or existing file not writable), fLckdErr
  // (the existing file is immutable), vLckdErr (read-only file system), notAFileErr (a directory),
  // fBsyErr (the existing file is locked, or open anywhere else), dupFNErr (the file exists and
  // `existing` is kRefuse), bdNamErr, dskFulErr, tmfoErr, ioErr.
  explicit OutputFile(const boost::filesystem::path& target,
                      Existing existing = Existing::kReplace);
  ~OutputFile() override;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // The number of bytes so far, which is where the next byte goes unless several threads copy.
  std::uint64_t Position() const;

  // FileCopier::FindSharing for the new file. Returns 1 if something has been written already.
  std::uint64_t FindSharing(const ByteSource& source);

  std::uint64_t ThreadsToCopy(const ByteSource& source, std::uint64_t bytes) override;
  void Write(std::uint64_t at, ByteSpan bytes) override;
  // Large pieces of files are copied by a FileCopier.
  void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
            std::uint64_t length) override;
  void Reserve(std::uint64_t size) override;
  // Waits only if the file replaces another: only then can a power cut lose an old file.
  void Sync() override;
  // Gives back the room that was reserved and not used. `size` must be Position().
  void CutOff(std::uint64_t size) override;
  // Throws fBsyErr, or dupFNErr for kRefuse, if the target is no longer the file that it was at the
  // start. If syncing the folder fails, this throws although the new file already has its name.
  void TakeName() override;
  // Performs NamingStage: gives back unused room, syncs, and takes the name.
  void Commit();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace toolbox
