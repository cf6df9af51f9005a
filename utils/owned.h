// Objects of the toolbox that are disposed of at the end of their scope.
#pragma once

#include <memory>

#include "toolbox/toolbox.h"

namespace utils {

// Calls a function of the toolbox. If it returns a code, the code is ignored: the owner is gone, so
// nobody could act on it.
template <auto kDispose>
struct Disposer {
  void operator()(auto* object) const { static_cast<void>(kDispose(object)); }
};

template <class Object, auto kDispose>
using Owned = std::unique_ptr<Object, Disposer<kDispose>>;

using OwnedMovie = Owned<toolbox::MovieRecord, toolbox::DisposeMovie>;
using OwnedStorage = Owned<toolbox::StorageRecord, toolbox::CloseMovieStorage>;
using OwnedString = Owned<const toolbox::StringRecord, toolbox::CFRelease>;

// A handle. Null if there was no memory; calls that get it then return nilHandleErr.
class OwnedHandle {
 public:
  // A new handle of `size` zero bytes.
  explicit OwnedHandle(std::int64_t size = 0) : handle_(toolbox::NewHandleClear(size)) {}
  ~OwnedHandle() { toolbox::DisposeHandle(handle_); }
  OwnedHandle(const OwnedHandle&) = delete;
  OwnedHandle& operator=(const OwnedHandle&) = delete;

  operator toolbox::Handle() const { return handle_; }  // NOLINT: implicit, to pass it to calls
  toolbox::Handle operator->() const { return handle_; }

 private:
  toolbox::Handle handle_;
};

}  // namespace utils
