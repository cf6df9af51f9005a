// A new file that takes its name only when it is whole: written beside its target, then renamed.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>

#include "toolbox/disk/disk.h"

namespace toolbox {

enum class Existing { kReplace, kRefuse };

// Written front to back: every Write and Copy goes to Position(), any other place is refused with
// ioErr. The target stays as it is until TakeName. Without TakeName nothing is left, even when the
// process exits or is ended by a signal that it can catch. After a call has thrown, the file cannot
// become whole: every later call throws ioErr.
//
// A target that is no regular file (/dev/null, a FIFO) is written directly.
class OutputFile final : public Disk {
 public:
  // Opens a temporary file in the folder of `target`. Symbolic links are followed; with a relative
  // path the current folder must stay the same until TakeName. The new file has the permissions of
  // the old one. Throws Refused: dirNFErr (no such folder), afpAccessDenied (folder or existing
  // file not writable), fLckdErr (the existing file is immutable), vLckdErr (read-only file
  // system), notAFileErr (a directory), fBsyErr (the existing file is locked or held open
  // elsewhere), dupFNErr (there is one and `existing` is kRefuse), bdNamErr, dskFulErr, tmfoErr,
  // ioErr.
  explicit OutputFile(const boost::filesystem::path& target,
                      Existing existing = Existing::kReplace);
  ~OutputFile() override;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Where the next byte goes.
  std::uint64_t Position() const;

  void Write(std::uint64_t at, ByteSpan bytes) override;
  // Copies inside the kernel where that pays.
  void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
            std::uint64_t length) override;
  void Reserve(std::uint64_t size) override;
  void Flush() override;
  // Does so only when the file replaces another. A new name is not synced: nobody loses a file with
  // it.
  void Sync() override;
  // Gives back what was reserved and not written; `size` must be Position().
  void CutOff(std::uint64_t size) override;
  // Refused with dupFNErr when there is a file by now and it may not be replaced. When only the
  // folder could not be synced, the new file has its name already.
  void TakeName() override;
  // Does the steps of NamingStage.
  void Commit();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace toolbox
