#include "toolbox/disk/output_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <csignal>
#include <limits>
#include <optional>
#include <utility>

#include "toolbox/disk/attributes.h"
#include "toolbox/disk/file_copier.h"
#include "toolbox/disk/perform.h"
#include "toolbox/disk/system_error.h"
#include "toolbox/disk/temporary_file.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;

constexpr std::uint64_t kFarthest = std::numeric_limits<off_t>::max();

// Follows the symbolic links at `target`, even if the last one leads to no file yet. Without this,
// the rename would replace the link instead of its target.
fs::path Followed(const fs::path& target) {
  // The limit of Linux. In a circle of links, the result is still a link, and opening it fails.
  constexpr int kMaxLinks = 40;
  fs::path path = target.has_parent_path() ? target : "." / target;
  for (int links = 0; links < kMaxLinks; ++links) {
    boost::system::error_code notALink;
    const fs::path link = fs::read_symlink(path, notALink);
    if (notALink) break;
    path = link.is_absolute() ? link : path.parent_path() / link;
  }
  return path;
}

// Opens the file that will be replaced and locks it, so that no other process saves into it or
// replaces it in the meantime. Throws Refused if it is protected or in use; the rename itself
// checks neither.
Descriptor OpenToReplace(const fs::path& path, Existing existing) {
  Descriptor file(path, O_WRONLY | O_NONBLOCK);
  if (!file.IsOpen()) {
    throw errno == EPERM ? Refused{fLckdErr, "it is immutable"} : RefusedBy(errno);
  }
  if (existing == Existing::kLocked) return file;
  // An error other than EWOULDBLOCK means that the file system has no locks. Below, an error other
  // than EAGAIN means that it has no leases.
  const auto lock = [&file] { return flock(file.Number(), LOCK_EX | LOCK_NB); };
  if (Uninterrupted(lock) != 0 && errno == EWOULDBLOCK) throw RefusedBy(errno);
#ifdef F_SETLEASE
  // The system grants a write lease only if nobody else has the file open. If another process opens
  // the file at this moment, a signal reports it. SIGURG is ignored by default; the usual SIGIO
  // would end the process.
  fcntl(file.Number(), F_SETSIG, SIGURG);
  if (fcntl(file.Number(), F_SETLEASE, F_WRLCK) == 0) {
    fcntl(file.Number(), F_SETLEASE, F_UNLCK);
  } else if (errno == EAGAIN) {
    throw RefusedBy(errno);
  }
#endif
  return file;
}

// Throws Refused (dirNFErr) if `folder` is no folder.
void CheckFolder(const fs::path& folder) {
  const std::optional<struct stat> status = StatusOf(folder);
  if (!status || !S_ISDIR(status->st_mode)) throw Refused{dirNFErr, "its folder is missing"};
}

// Makes the names in a folder safe from a power cut.
void SyncFolder(const fs::path& folder) {
  const Descriptor opened(folder, O_RDONLY | O_DIRECTORY);
  // A folder without read permission cannot be opened, so it is not synced. EINVAL: the file system
  // does not sync folders.
  if (!opened.IsOpen()) return;
  const int result = Uninterrupted([&opened] { return fsync(opened.Number()); });
  if (result != 0 && errno != EINVAL) throw RefusedBy(errno);
}

// Reserves `size` bytes for `file`. Returns false if the file system cannot do that. Throws Refused
// if there is no room.
bool Allocate([[maybe_unused]] int file, [[maybe_unused]] std::uint64_t size) {
#ifdef __linux__
  if (size > kFarthest) throw RefusedBy(EFBIG);
  if (Uninterrupted([&] { return fallocate(file, 0, 0, static_cast<off_t>(size)); }) == 0) {
    return true;
  }
  const int lacks[] = {ENOSPC, EDQUOT, EFBIG, EIO};
  if (std::ranges::find(lacks, errno) != std::end(lacks)) throw RefusedBy(errno);
#endif
  return false;
}

}  // namespace

struct OutputFile::State {
  fs::path target;
  Existing existing = Existing::kReplace;
  Descriptor replaced;  // the existing file, locked; closed if there is none
  std::optional<TemporaryFile> temporary;
  std::optional<FileCopier> copier;  // for `temporary`
  Descriptor direct;  // open instead of `temporary` if the target is no regular file

  std::atomic<std::uint64_t> written = 0;  // bytes
  std::uint64_t reserved = 0;  // size of the file that Reserve asked for
  std::uint64_t anyOrderUntil = 0;  // several threads may write in any order up to this position
  std::atomic<bool> hasFailed = false;

  int File() const { return (temporary ? temporary->File() : direct).Number(); }

  // Runs `body`, unless an earlier step threw. A file with a missing part must not get its name,
  // even if the caller goes on after an error.
  void Step(auto body) try {
    if (hasFailed) throw Refused{ioErr, "an earlier write has failed"};
    body();
  } catch (Failure& failure) {
    hasFailed = true;
    failure.NameFile(target.native());
    throw;
  } catch (...) {
    hasFailed = true;
    throw;
  }

  void CheckPlace(std::uint64_t at) const {
    if (at >= anyOrderUntil && at != written) {
      throw Refused{ioErr, "a write is not at the end of the file"};
    }
  }

  void Write(std::uint64_t at, ByteSpan bytes) {
    if (temporary) {
      WriteFully(File(), at, bytes);
      written += bytes.size();
      return;
    }
    while (!bytes.empty()) {  // a pipe has no positions
      const ssize_t put = Required([&] { return write(File(), bytes.data(), bytes.size()); });
      bytes = bytes.subspan(static_cast<std::size_t>(put));
      written += static_cast<std::uint64_t>(put);
    }
  }

  void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from, std::uint64_t length) {
    CheckEnd(from, length, kFarthest);
    if (copier && source.Descriptor() >= 0 && length >= FileCopier::kSmallest) {
      copier->Copy(at, source, from, length);
      written += length;
      return;
    }
    ForEachBlock(source, from, length, [&](ByteSpan block) {
      Write(at, block);
      at += block.size();
    });
  }

  std::uint64_t ThreadsToCopy(const ByteSource& source, std::uint64_t bytes) {
    // Without room reserved, some file systems would first write zeros up to a later place.
    if (!temporary || reserved == 0) return 1;
    const std::uint64_t threads = copier->ThreadsToCopy(source, bytes);
    if (threads > 1) anyOrderUntil = written + bytes;
    return threads;
  }

  void Sync() {
    // Only a file that replaces another is synced.
    if (replaced.IsOpen()) Required([this] { return fsync(File()); });
  }

  void CutOff(std::uint64_t size) {
    if (size != written) throw Refused{ioErr, "the new file has another size"};
    if (reserved <= size) return;
    Required([&] { return ftruncate(File(), static_cast<off_t>(size)); });
  }

  void TakeName() {
    if (!temporary) return direct.Close();
    const std::optional<FileState> now = StateOf(target);
    // A file that appeared in the meantime is not the one that the user wanted to replace.
    const auto isReplaced = [&] {
      return replaced.IsOpen() && StateIn(StatusOf(replaced.Number())).identity == now->identity;
    };
    if (now && !isReplaced()) {
      throw Refused{existing == Existing::kRefuse ? dupFNErr : fBsyErr,
                    "another program has made a file of this name"};
    }
    temporary->TakeName(target, replaced.IsOpen());
    if (replaced.IsOpen()) SyncFolder(target.parent_path());
  }
};

OutputFile::OutputFile(const fs::path& target, Existing existing) try
    : state_(std::make_unique<State>()) {
  state_->existing = existing;
  const std::optional<struct stat> old = StatusOf(target);
  if (old && S_ISDIR(old->st_mode)) throw RefusedBy(EISDIR);
  if (old && existing == Existing::kRefuse) throw RefusedBy(EEXIST);
  if (old && !S_ISREG(old->st_mode)) {
    // A device or a FIFO: it cannot be replaced.
    state_->direct = Descriptor(target, O_WRONLY | O_NOCTTY);
    if (!state_->direct.IsOpen()) throw RefusedBy(errno);
    return;
  }
  const fs::path& path = state_->target = Followed(target);
  CheckFolder(path.parent_path());
  if (faccessat(AT_FDCWD, path.parent_path().c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
    throw RefusedBy(errno);
  }
  if (old) state_->replaced = OpenToReplace(path, existing);
  state_->temporary.emplace(path);
  state_->copier.emplace(state_->temporary->File().Number());
  if (old) CopyAttributes(state_->replaced, state_->temporary->File());
} catch (Failure& failure) {
  failure.NameFile(target.native());
  throw;
}

OutputFile::~OutputFile() = default;

std::uint64_t OutputFile::Position() const { return state_->written; }

std::uint64_t OutputFile::FindSharing(const ByteSource& source) {
  std::uint64_t unit = 1;
  state_->Step([&] {
    if (state_->copier && state_->written == 0) unit = state_->copier->FindSharing(source);
  });
  return unit;
}

std::uint64_t OutputFile::ThreadsToCopy(const ByteSource& source, std::uint64_t bytes) {
  return state_->ThreadsToCopy(source, bytes);
}

void OutputFile::Write(std::uint64_t at, ByteSpan bytes) {
  state_->Step([&] {
    state_->CheckPlace(at);
    state_->Write(at, bytes);
  });
}

void OutputFile::Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
                      std::uint64_t length) {
  state_->Step([&] {
    state_->CheckPlace(at);
    state_->Copy(at, source, from, length);
  });
}

void OutputFile::Reserve(std::uint64_t size) {
  state_->Step([&] {
    if (!state_->temporary || size <= state_->reserved) return;
    if (Allocate(state_->File(), size)) state_->reserved = size;
  });
}

void OutputFile::Sync() {
  state_->Step([&] { state_->Sync(); });
}

void OutputFile::CutOff(std::uint64_t size) {
  state_->Step([&] { state_->CutOff(size); });
}

void OutputFile::TakeName() {
  state_->Step([&] { state_->TakeName(); });
}

void OutputFile::Commit() { Perform({NamingStage(Position())}, *this, nullptr); }

}  // namespace toolbox
