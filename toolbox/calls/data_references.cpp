#include "toolbox/calls/data_references.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "toolbox/atoms/alias_record.h"
#include "toolbox/atoms/header_atoms.h"
#include "toolbox/calls/references.h"
#include "toolbox/references/aliases.h"
#include "toolbox/references/sources.h"

namespace toolbox {
namespace {

constexpr FourCC kAlias{"alis"}, kMemory{"hndl"};

// The block of memory that the handle refers to. The first use of a handle determines its block:
// one with the data in the handle, or a new one for a handle of zeros. Later uses get the same
// block, so that two media can share it.
InMemory BlockOf(HandleRecord& handle) {
  if (!handle.block) {
    std::optional<Bytes> data = InitialData(handle.bytes);
    const auto isZero = [](std::uint8_t byte) { return byte == 0; };
    if (!data && !std::ranges::all_of(handle.bytes, isZero)) throw Refused{invalidDataRef};
    handle.block = std::make_shared<Bytes>(std::move(data).value_or(Bytes()));
  }
  return {handle.block};
}

}  // namespace

boost::filesystem::path PathOf(Handle dataRef, FourCC type) {
  const Bytes& record = Valid(dataRef).bytes;
  if (type != kAlias) throw Refused{noDataHandler};
  const auto path = AbsoluteAliasPath(record);
  if (!path) throw Refused{invalidDataRef};
  return *path;
}

// The movie's own file becomes ThisFile, so that the reference stays right if the file is renamed.
DataReference ReferenceFrom(Handle dataRef, FourCC type, const std::optional<OtherFile>& ownFile) {
  if (type == kMemory) return BlockOf(Valid(dataRef));
  OtherFile file = FileAt(PathOf(dataRef, type));
  if (file == ownFile) return ThisFile{};
  return file;
}

DataReference AnyReferenceFrom(Handle dataRef, FourCC type,
                               const std::optional<OtherFile>& ownFile) {
  const Bytes& record = Valid(dataRef).bytes;
  const bool isAlias = type == kAlias;
  if (isAlias && record.size() < Alias::kShortestSize) throw Refused{invalidDataRef};
  // An alias without a POSIX path is well-formed, but nothing here could follow it.
  if (type != kMemory && !(isAlias && AbsoluteAliasPath(record)))
    return Unresolved{type, 0, record};
  return ReferenceFrom(dataRef, type, ownFile);
}

Handle HandleFor(const DataReference& reference, const std::optional<OtherFile>& ownFile,
                 FourCC* type) {
  auto handle = std::make_unique<HandleRecord>();
  FourCC kind = kAlias;
  if (const auto* memory = std::get_if<InMemory>(&reference)) {
    handle->block = memory->data;
    kind = kMemory;
  } else if (const auto* unresolved = std::get_if<Unresolved>(&reference)) {
    handle->bytes = unresolved->data;
    kind = unresolved->kind;
  } else {
    const auto* file = std::get_if<OtherFile>(&reference);
    if (file == nullptr && !ownFile) throw Refused{couldNotResolveDataRef};
    // The alias has no relative path: it is not known yet which movie file will have it.
    handle->bytes = AliasRecord((file != nullptr ? *file : *ownFile).path, {});
  }
  SetResult(type, kind);
  return handle.release();
}

}  // namespace toolbox
