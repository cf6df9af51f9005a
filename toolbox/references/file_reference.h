// Data references as files hold them ('alis', 'url ', 'hndl'), to paths and back.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <optional>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/bytes.h"
#include "toolbox/movie/data_reference.h"

namespace toolbox {

// An alias record of version 2 for the file `target`, as seen from the movie file `referrer`. Both
// paths are absolute and free of symbolic links. An empty `referrer` leaves the relative way
// unknown. Throws Refused: bdNamErr when `target` has no name or is too long for a record (64 KiB).
Bytes AliasRecord(const boost::filesystem::path& target, const boost::filesystem::path& referrer);

// The path that an alias record (version 2 or 3) leads to, seen from the movie file `referrer`: the
// first way of relative, absolute, by the colon path, by name in the same folder, that ends at a
// regular file. A way with a component ".." is not taken. Relative ways start in the folder where
// `referrer` really lies; an empty `referrer` has none. Nothing when no way leads to a file or the
// record is malformed; otherwise the path is absolute.
std::optional<boost::filesystem::path> ResolveAlias(ByteSpan record,
                                                    const boost::filesystem::path& referrer);

// The path that a URL (file: on this host, or relative; percent-decoded) leads to, whether or not
// the file exists: absolute and without "." and "..". '?' and '#' count as parts of the name, for
// writers often leave them unescaped. Nothing for any other scheme or host, or without a path.
std::optional<boost::filesystem::path> ResolveUrl(ByteSpan url,
                                                  const boost::filesystem::path& referrer);

// The path that a record made by AliasRecord names, whether or not the file exists; nothing when
// the record is malformed or names none.
std::optional<boost::filesystem::path> AbsoluteAliasPath(ByteSpan record);

// What an entry of a movie read from `referrer` refers to. With `resolve` off nothing outside the
// file is looked at: a reference to another file stays Unresolved. Never throws for bad data: what
// cannot be understood is Unresolved too.
DataReference ReadDataReference(const DataReferenceEntry& entry,
                                const boost::filesystem::path& referrer, bool resolve);

// The entry that stands for `reference` in a QuickTime movie file at `referrer`, which need not
// exist yet. Throws Refused: invalidDataRef for InMemory (no reader could follow it; the samples
// have to move into the file first), bdNamErr as AliasRecord does.
DataReferenceEntry WriteDataReference(const DataReference& reference,
                                      const boost::filesystem::path& referrer);

}  // namespace toolbox
