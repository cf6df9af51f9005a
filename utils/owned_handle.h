// A handle of the toolbox that is disposed of with its owner.
#pragma once

#include "toolbox/toolbox.h"

namespace utils {

// Null when there was no memory for it, which every call that is given it will say.
class OwnedHandle {
 public:
  explicit OwnedHandle(std::int64_t size = 0) : handle_(toolbox::NewHandleClear(size)) {}
  ~OwnedHandle() { toolbox::DisposeHandle(handle_); }
  OwnedHandle(const OwnedHandle&) = delete;
  OwnedHandle& operator=(const OwnedHandle&) = delete;

  operator toolbox::Handle() const { return handle_; }  // NOLINT: it stands for the handle
  toolbox::Handle operator->() const { return handle_; }

 private:
  toolbox::Handle handle_;
};

}  // namespace utils
