#include "toolbox/calls/data_references.h"

#include <algorithm>
#include <memory>

#include "toolbox/atoms/alias_record.h"
#include "toolbox/references/sources.h"

namespace toolbox {
namespace {

constexpr FourCC kAlias{"alis"}, kMemory{"hndl"};

// The block of memory that the handle refers to. The first use of a handle determines its block:
// one with the data in the handle, or a new one for a handle of zeros.
InMemory BlockOf(HandleRecord& handle) {
  if (!handle.block) {
    const DataReference stated = ReadDataReference({kMemory, 0, handle.bytes}, {}, false);
    if (const auto* memory = std::get_if<InMemory>(&stated)) {
      handle.block = memory->data;
    } else if (std::ranges::all_of(handle.bytes, [](std::uint8_t byte) { return byte == 0; })) {
      handle.block = std::make_shared<Bytes>();
    } else {
      throw Refused{invalidDataRef};
    }
  }
  return {handle.block};
}

}  // namespace

DataReference ReferenceFrom(Handle dataRef, FourCC type, const std::optional<OtherFile>& ownFile) {
  if (dataRef != nullptr && type == kMemory) return BlockOf(*dataRef);
  const OtherFile file = FileAt(PathOf(dataRef, type));
  if (file == ownFile) return ThisFile{};
  return file;
}

DataReference AnyReferenceFrom(Handle dataRef, FourCC type,
                               const std::optional<OtherFile>& ownFile) {
  if (dataRef == nullptr) throw Refused{nilHandleErr};
  const bool isAlias = type == kAlias;
  if (isAlias && dataRef->bytes.size() < Alias::kShortestSize) throw Refused{invalidDataRef};
  const bool isFollowed = type == kMemory || (isAlias && AbsoluteAliasPath(dataRef->bytes));
  if (isFollowed) return ReferenceFrom(dataRef, type, ownFile);
  return Unresolved{type, 0, dataRef->bytes};
}

Handle HandleFor(const DataReference& reference, const std::optional<OtherFile>& ownFile,
                 FourCC& type) {
  auto handle = std::make_unique<HandleRecord>();
  const auto* file = std::get_if<OtherFile>(&reference);
  if (std::holds_alternative<ThisFile>(reference) && ownFile) file = &*ownFile;
  if (const auto* memory = std::get_if<InMemory>(&reference)) {
    handle->block = memory->data;
    type = kMemory;
  } else if (const auto* unresolved = std::get_if<Unresolved>(&reference)) {
    handle->bytes = unresolved->data;
    type = unresolved->kind;
  } else if (file != nullptr) {
    handle->bytes = AliasRecord(file->path, {});
    type = kAlias;
  } else {
    throw Refused{couldNotResolveDataRef};
  }
  return handle.release();
}

}  // namespace toolbox
