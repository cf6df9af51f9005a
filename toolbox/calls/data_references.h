// Data references as callers hold them: an alias record or a block of memory in a handle.
#pragma once

#include <boost/filesystem/path.hpp>
#include <utility>
#include <variant>

#include "toolbox/references/aliases.h"
#include "toolbox/references/data_references.h"
#include "toolbox/refused.h"
#include "toolbox/toolbox.h"

namespace toolbox {

// The file that a caller's data reference names, whether it exists or not. Throws Refused:
// nilHandleErr, noDataHandler (another type than 'alis'), invalidDataRef.
inline boost::filesystem::path PathOf(Handle dataRef, FourCC type) {
  if (dataRef == nullptr) throw Refused{nilHandleErr};
  if (type != FourCC{"alis"}) throw Refused{noDataHandler};
  const auto path = AbsoluteAliasPath(dataRef->bytes);
  if (!path) throw Refused{invalidDataRef};
  return *path;
}

// What a caller's data reference stands for in a movie that was read from `ownFile`. Throws Refused
// like PathOf; 'hndl' is understood too.
DataReference ReferenceFrom(Handle dataRef, FourCC type, const std::optional<OtherFile>& ownFile);

// ... or Unresolved, where it leads nowhere. Throws Refused: nilHandleErr, invalidDataRef.
DataReference AnyReferenceFrom(Handle dataRef, FourCC type,
                               const std::optional<OtherFile>& ownFile);

// The same as callers hold it: a new handle, theirs to dispose of. Throws Refused:
// couldNotResolveDataRef (ThisFile, where there is none).
Handle HandleFor(const DataReference& reference, const std::optional<OtherFile>& ownFile,
                 FourCC& type);

}  // namespace toolbox
