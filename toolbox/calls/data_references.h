// Data references as callers hold them: an alias record in a handle.
#pragma once

#include <boost/filesystem/path.hpp>

#include "toolbox/files/file_reference.h"
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

}  // namespace toolbox
