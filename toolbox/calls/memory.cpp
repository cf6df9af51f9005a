// Handles: creating, filling and disposing of them.
#include <iterator>
#include <memory>
#include <utility>

#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

// A new handle, which the caller disposes of.
Handle NewRecord(Bytes bytes) {
  return std::make_unique<HandleRecord>(HandleRecord{std::move(bytes), nullptr}).release();
}

}  // namespace

Handle NewHandle(std::int64_t size) {
  return Call(__func__, [&] {
    if (size < 0) throw Refused{paramErr};
    return NewRecord(Bytes(static_cast<std::size_t>(size)));
  });
}

// NewHandle fills with zeros too.
Handle NewHandleClear(std::int64_t size) { return NewHandle(size); }

OSErr PtrAndHand(const void* bytes, Handle handle, std::int64_t size) {
  return Call(__func__, [&] {
    Bytes& all = Valid(handle).bytes;
    const ByteSpan added = BytesAt(bytes, size);
    all.insert(all.end(), added.begin(), added.end());
  });
}

OSErr PtrToHand(const void* bytes, Handle* handle, std::int64_t size) {
  return Call(__func__, [&] {
    const ByteSpan copied = BytesAt(bytes, size);
    *handle = NewRecord({copied.begin(), copied.end()});
  });
}

std::int64_t GetHandleSize(Handle handle) {
  return Call(__func__, [&] { return handle == nullptr ? 0 : std::ssize(handle->bytes); });
}

void DisposeHandle(Handle handle) {
  Call(__func__, [&] { delete handle; });
}

}  // namespace toolbox
