#include "toolbox/disk/temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <random>
#include <string>
#include <utility>

#include "toolbox/disk/system_error.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;

// The start of the hidden name, before the random letters: ".name.". The name is shortened if the
// whole would be too long for the file system.
std::string HiddenName(const fs::path& target) {
  constexpr std::size_t kAround = 8;  // the dots and the random letters
  const long limit = pathconf(target.parent_path().c_str(), _PC_NAME_MAX);
  const std::size_t room = static_cast<std::size_t>(limit > 0 ? limit : NAME_MAX) - kAround;

  std::string name = target.filename().native();
  if (name.size() > room) {
    std::size_t end = room;
    while (end > 0 && (name[end] & 0xC0) == 0x80) --end;  // not inside a UTF-8 character
    name.resize(end);
  }
  return "." + name + ".";
}

std::string RandomLetters() {
  constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  std::uniform_int_distribution<std::size_t> any(0, sizeof kLetters - 2);
  std::string letters(6, ' ');
  for (char& letter : letters) letter = kLetters[any(random)];
  return letters;
}

// Opens a file without a name. The result is not open if the system or the file system does not
// support such files, or if /proc, which is needed to name the file later, is missing.
Descriptor Unnamed([[maybe_unused]] const fs::path& folder) {
#ifdef O_TMPFILE
  if (access("/proc/self/fd", X_OK) == 0) return {folder, O_WRONLY | O_TMPFILE, 0666};
#endif
  return {};
}

// Gives the unnamed file a name. Returns false with errno if that fails.
bool Name(const Descriptor& file, const fs::path& name) {
  const std::string link = "/proc/self/fd/" + std::to_string(file.Number());
  return linkat(AT_FDCWD, link.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

// Renames a file. Without `replaces`, it fails if the target exists. Returns 0, or -1 with errno;
// or throws Refused.
int Rename(const fs::path& from, const fs::path& to, bool replaces) {
#ifdef RENAME_NOREPLACE
  if (!replaces) {
    const int result = renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    if (result == 0 || (errno != EINVAL && errno != ENOSYS)) return result;
  }
#endif
  // The file system cannot check and rename in one step. Another process may create the target
  // after this check.
  if (!replaces && StatusOf(to)) throw RefusedBy(EEXIST);
  return std::rename(from.c_str(), to.c_str());
}

}  // namespace

template <class Make>
void TemporaryFile::Hide(const fs::path& target, Make&& make) {
  const std::string hidden = HiddenName(target);
  do {
    path_ = target.parent_path() / (hidden + RandomLetters());
    if (make()) hidden_ = path_.c_str();
  } while (hidden_ == nullptr && errno == EEXIST);
  if (hidden_ == nullptr) throw RefusedBy(errno);
}

TemporaryFile::TemporaryFile(const fs::path& target) : file_(Unnamed(target.parent_path())) {
  if (!file_.IsOpen()) {
    // mkostemp would not do: it always sets 0600, but the permissions of a new file depend on the
    // umask and the folder.
    Hide(target, [this] {
      file_ = Descriptor(path_, O_WRONLY | O_CREAT | O_EXCL, 0666);
      return file_.IsOpen();
    });
  }
  next_ = std::exchange(newest_, this);
}

TemporaryFile::~TemporaryFile() {
  if (hidden_ != nullptr) unlink(path_.c_str());
  TemporaryFile** link = &newest_;
  while (*link != this) link = &(*link)->next_;
  *link = next_;
}

void TemporaryFile::TakeName(const fs::path& target, bool replaces) {
  if (hidden_ == nullptr && !replaces) {
    if (!Name(file_, target)) throw RefusedBy(errno);
    try {
      return file_.Close();
    } catch (...) {
      unlink(target.c_str());
      throw;
    }
  }
  if (hidden_ == nullptr) Hide(target, [this] { return Name(file_, path_); });
  file_.Close();
  if (Rename(path_, target, replaces) != 0) throw RefusedBy(errno);
  hidden_ = nullptr;
}

void RemoveTemporaryFiles() {
  for (const TemporaryFile* file = TemporaryFile::newest_; file != nullptr; file = file->next_) {
    if (const char* name = file->hidden_) unlink(name);
  }
}

}  // namespace toolbox
