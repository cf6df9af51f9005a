// Converts the entries of 'dref' (ISO/IEC 14496-12 8.7.2) to data references of a movie and back.
#pragma once

#include <boost/filesystem/path.hpp>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/movie/data_reference.h"

namespace toolbox {

// The data reference for `entry` of the movie file at `referrer`. If `resolve` is false, no other
// file is looked for, and references to other files become Unresolved. An entry that cannot be
// decoded, or whose file is not found, becomes Unresolved too, so that it can be written back
// unchanged. Throws only what FileAt throws.
DataReference ReadDataReference(const DataReferenceEntry& entry,
                                const boost::filesystem::path& referrer, bool resolve);

// The entry for `reference` in a movie file at `referrer`, which may not exist yet. `isIso`: it is
// an MPEG-4 file, which has URLs instead of aliases.
// Throws Refused: invalidDataRef (InMemory: no reader of the file could find the samples, so they
// must be copied into the file first), bdNamErr as AliasRecord.
DataReferenceEntry WriteDataReference(const DataReference& reference,
                                      const boost::filesystem::path& referrer, bool isIso);

}  // namespace toolbox
