#include "toolbox/disk/temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "toolbox/disk/system_error.h"

namespace toolbox {
namespace {

// The signals that end the process and leave time to remove files.
constexpr int kEndings[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXCPU, SIGBUS};

// Handles SIGXFSZ, so that a write beyond the limit fails with EFBIG. SIG_IGN would do the same,
// but programs that this one starts would inherit it.
void CarryOn(int) {}

// Replaces the handler `before` by `now`. If the process handles or ignores the signal in another
// way, nothing changes.
void Exchange(int signal, void (*before)(int), void (*now)(int)) {
  struct sigaction action {};
  if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler != before) return;
  action.sa_handler = now;
  // SA_RESETHAND restores the default before the handler runs. The handler can then raise the
  // signal again to end the process.
  action.sa_flags = now == CarryOn ? SA_RESTART : static_cast<int>(SA_RESETHAND);
  sigaction(signal, &action, nullptr);
}

// Blocks the ending signals while the files on disk and the list of files differ.
class EndingsHeld {
 public:
  EndingsHeld() {
    sigset_t endings{};
    sigemptyset(&endings);
    for (const int signal : kEndings) sigaddset(&endings, signal);
    pthread_sigmask(SIG_BLOCK, &endings, &before_);
  }
  ~EndingsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  EndingsHeld(const EndingsHeld&) = delete;
  EndingsHeld& operator=(const EndingsHeld&) = delete;

 private:
  sigset_t before_{};
};

// The start of the hidden name, before the random letters: ".name.". The name is shortened if the
// whole would be too long for the file system.
std::string HiddenName(const boost::filesystem::path& target) {
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

}  // namespace

TemporaryFile::TemporaryFile(const boost::filesystem::path& target, std::optional<mode_t> mode) {
  const std::string hidden = HiddenName(target);
  const EndingsHeld held;
  do {
    path_ = target.parent_path() / (hidden + RandomLetters());
    // Not mkostemp: it always sets 0600, but a new file has the permissions of umask and folder.
    file_ = Descriptor(path_, O_WRONLY | O_CREAT | O_EXCL, mode.value_or(0666));
  } while (!file_.IsOpen() && errno == EEXIST);
  if (!file_.IsOpen()) throw RefusedBy(errno);
  if (mode && fchmod(file_.Number(), *mode) != 0) {
    const int why = errno;
    unlink(path_.c_str());
    throw RefusedBy(why);
  }
  Enlist();
}

TemporaryFile::~TemporaryFile() {
  if (path_.empty()) return;  // it has taken its name
  unlink(path_.c_str());
  Delist();
}

void TemporaryFile::TakeName(const boost::filesystem::path& target) {
  file_.Close();
  if (std::rename(path_.c_str(), target.c_str()) != 0) throw RefusedBy(errno);
  Delist();
  path_.clear();
}

void TemporaryFile::RemoveAll() {
  for (const TemporaryFile* file = newest_; file != nullptr; file = file->next_) {
    unlink(file->path_.c_str());
  }
}

// Runs in a signal handler: only unlink and raise, which are safe there.
void TemporaryFile::RemoveAllAndDie(int signal) {
  RemoveAll();
  raise(signal);
}

void TemporaryFile::Enlist() {
  [[maybe_unused]] static const int atExit = std::atexit(RemoveAll);
  next_ = std::exchange(newest_, this);
  for (const int signal : kEndings) Exchange(signal, SIG_DFL, RemoveAllAndDie);
  Exchange(SIGXFSZ, SIG_DFL, CarryOn);
}

void TemporaryFile::Delist() {
  const EndingsHeld held;
  TemporaryFile** link = &newest_;
  while (*link != this) link = &(*link)->next_;
  *link = next_;
  if (newest_ != nullptr) return;  // the others still need the handlers
  for (const int signal : kEndings) Exchange(signal, RemoveAllAndDie, SIG_DFL);
  Exchange(SIGXFSZ, CarryOn, SIG_DFL);
}

}  // namespace toolbox
