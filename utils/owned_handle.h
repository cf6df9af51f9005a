// A handle of the toolbox that is disposed of with its owner.
#pragma once

#include "toolbox/toolbox.h"

namespace utils {

class OwnedHandle {
 public:
  OwnedHandle() : handle_(toolbox::NewHandle(0)) {}
  ~OwnedHandle() { toolbox::DisposeHandle(handle_); }
  OwnedHandle(const OwnedHandle&) = delete;
  OwnedHandle& operator=(const OwnedHandle&) = delete;

  operator toolbox::Handle() const { return handle_; }  // NOLINT: it stands for the handle
  const toolbox::Bytes& Bytes() const { return handle_->bytes; }

 private:
  toolbox::Handle handle_;
};

}  // namespace utils
