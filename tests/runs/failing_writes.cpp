// System calls that write, for failing_clipjoin. The call that FAULT_AT names fails and prints
// "fault" on standard error. These functions replace those of the C library and of the sanitizers.
//
//   FAULT_AT=n       the n-th call is the one, counted from 1
//   FAULT_ERROR=n    it fails with that errno,
//   FAULT_SIGNAL=n   or the process gets that signal, which must end it, just before the call
//   FAULT_NAMED=1    no file can be created without a name, as on some file systems
//
// It counts the calls below, which change a file or a folder, except those on the standard streams.
// Removing a file does not count, because that is how a command cleans up.

// Both spellings of each call are defined here. With this macro, the headers would merge them.
#undef _FILE_OFFSET_BITS

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kPath = STDERR_FILENO + 1;  // for a call that has a path instead of a descriptor
std::atomic<int> calls{0};

int Setting(const char* name) {
  const char* const text = std::getenv(name);
  return text != nullptr ? std::atoi(text) : 0;
}

// Counts a call. Returns true if it is the one to fail, and sets errno.
bool Fails(int descriptor) {
  static const int at = Setting("FAULT_AT");
  if (descriptor <= STDERR_FILENO || ++calls != at) return false;
  dprintf(STDERR_FILENO, "fault\n");
  if (const int number = Setting("FAULT_SIGNAL")) raise(number);
  errno = Setting("FAULT_ERROR");
  return true;
}

// The function that ours replaces.
template <class Function>
Function* Real(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define ON(Result, call, descriptor, parameters, ...)          \
  extern "C" Result call parameters {                          \
    static auto* const real = Real(&(call), #call);            \
    return Fails(descriptor) ? Result{-1} : real(__VA_ARGS__); \
  }

ON(ssize_t, write, file, (int file, const void* from, size_t size), file, from, size)
ON(ssize_t, pwrite, file, (int file, const void* from, size_t size, off_t at), file, from, size, at)
ON(ssize_t, pwrite64, file, (int file, const void* from, size_t size, off64_t at), file, from, size,
   at)
ON(ssize_t, copy_file_range, file,
   (int from, off64_t* fromAt, int file, off64_t* at, size_t size, unsigned flags), from, fromAt,
   file, at, size, flags)
ON(int, fallocate, file, (int file, int mode, off_t at, off_t size), file, mode, at, size)
ON(int, fallocate64, file, (int file, int mode, off64_t at, off64_t size), file, mode, at, size)
ON(int, ftruncate, file, (int file, off_t size) noexcept, file, size)
ON(int, ftruncate64, file, (int file, off64_t size) noexcept, file, size)
ON(int, fsync, file, (int file), file)
ON(int, fchmod, file, (int file, mode_t mode) noexcept, file, mode)
ON(int, fchown, file, (int file, uid_t user, gid_t group) noexcept, file, user, group)
ON(int, rename, kPath, (const char* from, const char* to) noexcept, from, to)
ON(int, renameat2, kPath,
   (int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept,
   fromFolder, from, toFolder, to, flags)
ON(int, linkat, kPath,
   (int fromFolder, const char* from, int toFolder, const char* to, int flags) noexcept, fromFolder,
   from, toFolder, to, flags)

// Only a call that may create a file has a mode, and only such a call counts.
#define ON_OPENING(call)                                                          \
  extern "C" int call(const char* path, int flags, ...) {                         \
    static auto* const real = Real(&(call), #call);                               \
    const bool isUnnamed = (flags & O_TMPFILE) == O_TMPFILE;                      \
    if ((flags & O_CREAT) == 0 && !isUnnamed) return real(path, flags);           \
    va_list rest;                                                                 \
    va_start(rest, flags);                                                        \
    const auto mode = va_arg(rest, mode_t);                                       \
    va_end(rest);                                                                 \
    const bool isImpossible = isUnnamed && std::getenv("FAULT_NAMED") != nullptr; \
    if (isImpossible) errno = EOPNOTSUPP;                                         \
    return isImpossible || Fails(kPath) ? -1 : real(path, flags, mode);           \
  }

ON_OPENING(open)
ON_OPENING(open64)
