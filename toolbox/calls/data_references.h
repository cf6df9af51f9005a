// Data references in the form that calls take and return: a handle and a type. The handle has an
// alias record ('alis') or refers to a block of memory ('hndl').
#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>

#include "toolbox/movie/data_reference.h"
#include "toolbox/toolbox.h"

namespace toolbox {

// The path of the file that a data reference names. The file need not exist. Throws Refused:
// nilHandleErr, noDataHandler (another type than 'alis'), invalidDataRef.
boost::filesystem::path PathOf(Handle dataRef, FourCC type);

// Converts a data reference for a movie that was read from `ownFile`: a reference to that file
// becomes ThisFile. Throws Refused like PathOf, but accepts 'hndl' too.
DataReference ReferenceFrom(Handle dataRef, FourCC type, const std::optional<OtherFile>& ownFile);

// Does the same, but a reference that cannot be resolved becomes Unresolved. Throws Refused:
// nilHandleErr, invalidDataRef.
DataReference AnyReferenceFrom(Handle dataRef, FourCC type,
                               const std::optional<OtherFile>& ownFile);

// Converts back: returns a new handle, which the caller disposes of, and sets `type` unless that is
// null. Throws Refused: couldNotResolveDataRef (ThisFile, but there is no `ownFile`).
Handle HandleFor(const DataReference& reference, const std::optional<OtherFile>& ownFile,
                 FourCC* type);

}  // namespace toolbox
