// The entries of 'dref' as data references of a movie, and back.
#pragma once

#include <boost/filesystem/path.hpp>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/movie/data_reference.h"

namespace toolbox {

// What an entry of a movie read from `referrer` refers to. With `resolve` off nothing outside the
// file is looked at: a reference to another file stays Unresolved. Never throws for bad data: what
// cannot be understood is Unresolved too.
DataReference ReadDataReference(const DataReferenceEntry& entry,
                                const boost::filesystem::path& referrer, bool resolve);

// The entry for `reference` in a QuickTime movie file at `referrer`, which need not exist yet.
// Throws Refused: invalidDataRef for InMemory (no reader could follow it; the samples have to move
// into the file first), bdNamErr as AliasRecord does.
DataReferenceEntry WriteDataReference(const DataReference& reference,
                                      const boost::filesystem::path& referrer);

}  // namespace toolbox
