// Handles: creating, filling and disposing of them.
#include <memory>

#include "toolbox/calls/call.h"
#include "toolbox/refused.h"
#include "toolbox/toolbox.h"

namespace toolbox {

Handle NewHandle(std::int64_t size) {
  return Call("NewHandle", [&] {
    if (size < 0) throw Refused{paramErr};
    auto handle = std::make_unique<HandleRecord>();
    handle->bytes.resize(static_cast<std::size_t>(size));
    return handle.release();
  });
}

// NewHandle fills with zeros too.
Handle NewHandleClear(std::int64_t size) { return NewHandle(size); }

OSErr PtrAndHand(const void* bytes, Handle handle, std::int64_t size) {
  return Call("PtrAndHand", [&] {
    if (handle == nullptr) throw Refused{nilHandleErr};
    if (size < 0 || (bytes == nullptr && size > 0)) throw Refused{paramErr};
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    handle->bytes.insert(handle->bytes.end(), first, first + size);
  });
}

OSErr PtrToHand(const void* bytes, Handle* handle, std::int64_t size) {
  return Call("PtrToHand", [&] {
    if (size < 0 || (bytes == nullptr && size > 0)) throw Refused{paramErr};
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    *handle = std::make_unique<HandleRecord>(HandleRecord{{first, first + size}}).release();
  });
}

std::int64_t GetHandleSize(Handle handle) {
  return Call("GetHandleSize", [&] {
    return handle == nullptr ? std::int64_t{0} : static_cast<std::int64_t>(handle->bytes.size());
  });
}

void DisposeHandle(Handle handle) {
  Call("DisposeHandle", [&] { delete handle; });
}

}  // namespace toolbox
