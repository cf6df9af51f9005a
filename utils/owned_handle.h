// A handle of the toolbox that is disposed of at the end of its scope.
#pragma once

#include "toolbox/toolbox.h"

namespace utils {

// Null if there was no memory; calls that get it then return nilHandleErr.
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
