// Preloaded (LD_PRELOAD) into a command, this makes one of its writing calls fail.
//
//   FAULT_AT=n            the n-th call fails, counted from 1; none without it
//   FAULT_KIND=kill       the process is killed just before the call (SIGKILL)
//   FAULT_KIND=term       the process is asked to end just before the call (SIGTERM)
//   FAULT_KIND=ENOSPC     the call fails with that error, likewise EIO
//   FAULT_COUNT_FILE=path gets the number of calls at exit
//   FAULT_NAMED=1         no file can be created without a name, as on some file systems
//
// It counts the calls below, which change a file or a folder, except those on the standard streams.
// Removing a file does not count, because that is how a command cleans up.

// Both spellings of each call are defined here. With this macro, the headers would merge them.
#undef _FILE_OFFSET_BITS

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

std::atomic<long> calls{0};

[[noreturn]] void Unusable(const char* name) {
  dprintf(STDERR_FILENO, "fault: %s is missing or means nothing\n", name);
  _exit(125);
}

// Counts a call. Returns true if it is the one to fail, and sets errno.
bool Fails() {
  static const char* const at = std::getenv("FAULT_AT");
  static const long chosen = at != nullptr ? std::atol(at) : 0;
  if (at != nullptr && chosen < 1) Unusable("FAULT_AT");
  if (++calls != chosen) return false;

  const char* const kind = std::getenv("FAULT_KIND");
  if (kind == nullptr) Unusable("FAULT_KIND");
  if (std::strcmp(kind, "kill") == 0) kill(getpid(), SIGKILL);
  if (std::strcmp(kind, "term") == 0) raise(SIGTERM);
  if (std::strcmp(kind, "ENOSPC") == 0) {
    errno = ENOSPC;
  } else if (std::strcmp(kind, "EIO") == 0) {
    errno = EIO;
  } else {
    Unusable("FAULT_KIND");
  }
  return true;
}

bool Fails(int descriptor) { return descriptor > STDERR_FILENO && Fails(); }

// The function that ours replaces.
template <class Function>
Function* Real(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Makes its system calls directly, so that they are not counted.
__attribute__((destructor)) void WriteCount() {
  const char* const path = std::getenv("FAULT_COUNT_FILE");
  if (path == nullptr) return;
  char text[32];
  const int length = std::snprintf(text, sizeof text, "%ld\n", calls.load());
  const long file =
      syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (syscall(SYS_write, file, text, length) != length) Unusable("FAULT_COUNT_FILE");
  syscall(SYS_close, file);
}

}  // namespace

#define REAL(call) static auto* const real = Real(&(call), #call)

// A call on a descriptor that is its first parameter.
#define ON_DESCRIPTOR(Result, call, parameters, ...)     \
  extern "C" Result call parameters {                    \
    REAL(call);                                          \
    return Fails(file) ? Result{-1} : real(__VA_ARGS__); \
  }

// A call on a path.
#define ON_PATH(call, parameters, ...)       \
  extern "C" int call parameters {           \
    REAL(call);                              \
    return Fails() ? -1 : real(__VA_ARGS__); \
  }

ON_DESCRIPTOR(ssize_t, write, (int file, const void* from, size_t size), file, from, size)
ON_DESCRIPTOR(ssize_t, writev, (int file, const iovec* parts, int count), file, parts, count)
ON_DESCRIPTOR(ssize_t, pwrite, (int file, const void* from, size_t size, off_t at), file, from,
              size, at)
ON_DESCRIPTOR(ssize_t, pwrite64, (int file, const void* from, size_t size, off64_t at), file, from,
              size, at)
ON_DESCRIPTOR(int, fallocate, (int file, int mode, off_t at, off_t size), file, mode, at, size)
ON_DESCRIPTOR(int, fallocate64, (int file, int mode, off64_t at, off64_t size), file, mode, at,
              size)
ON_DESCRIPTOR(int, ftruncate, (int file, off_t size) noexcept, file, size)
ON_DESCRIPTOR(int, ftruncate64, (int file, off64_t size) noexcept, file, size)
ON_DESCRIPTOR(int, fsync, (int file), file)
ON_DESCRIPTOR(int, fdatasync, (int file), file)
ON_DESCRIPTOR(int, fchmod, (int file, mode_t mode) noexcept, file, mode)
ON_DESCRIPTOR(int, fchown, (int file, uid_t user, gid_t group) noexcept, file, user, group)

extern "C" ssize_t copy_file_range(int from, off64_t* fromAt, int file, off64_t* at, size_t size,
                                   unsigned flags) {
  REAL(copy_file_range);
  return Fails(file) ? -1 : real(from, fromAt, file, at, size, flags);
}

ON_PATH(rename, (const char* from, const char* to) noexcept, from, to)
ON_PATH(renameat, (int fromFolder, const char* from, int toFolder, const char* to) noexcept,
        fromFolder, from, toFolder, to)
ON_PATH(renameat2,
        (int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept,
        fromFolder, from, toFolder, to, flags)
ON_PATH(linkat,
        (int fromFolder, const char* from, int toFolder, const char* to, int flags) noexcept,
        fromFolder, from, toFolder, to, flags)

// Whether the call asks for a file without a name, and whether that is to fail; then errno is set.
bool IsUnnamed(int flags) { return (flags & O_TMPFILE) == O_TMPFILE; }
bool IsImpossible(int flags) {
  if (!IsUnnamed(flags) || std::getenv("FAULT_NAMED") == nullptr) return false;
  errno = EOPNOTSUPP;
  return true;
}

// Only a call that may create a file has a mode, and only such a call counts.
#define ON_OPENING(call, parameters, ...)                                      \
  extern "C" int call parameters {                                             \
    REAL(call);                                                                \
    if (IsImpossible(flags)) return -1;                                        \
    if ((flags & O_CREAT) == 0 && !IsUnnamed(flags)) return real(__VA_ARGS__); \
    va_list rest;                                                              \
    va_start(rest, flags);                                                     \
    const auto mode = va_arg(rest, mode_t);                                    \
    va_end(rest);                                                              \
    return Fails() ? -1 : real(__VA_ARGS__, mode);                             \
  }

ON_OPENING(open, (const char* path, int flags, ...), path, flags)
ON_OPENING(open64, (const char* path, int flags, ...), path, flags)
ON_OPENING(openat, (int folder, const char* path, int flags, ...), folder, path, flags)
ON_OPENING(openat64, (int folder, const char* path, int flags, ...), folder, path, flags)
