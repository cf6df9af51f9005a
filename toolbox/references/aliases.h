// Alias records to paths and back.
#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>

#include "toolbox/bytes.h"

namespace toolbox {

// An alias record of version 2 for the file `target`, as seen from the movie file `referrer`. Both
// paths are absolute and free of symbolic links. An empty `referrer` leaves the relative way
// unknown. Throws Refused: bdNamErr when `target` has no name or is too long for a record (64 KiB).
Bytes AliasRecord(const boost::filesystem::path& target, const boost::filesystem::path& referrer);

// The path that an alias record (version 2 or 3) leads to, seen from the movie file `referrer`. Of
// these ways it is the first that ends at a regular file: relative, absolute, by the colon path, by
// name in the same folder. A way with a component ".." is not taken. Relative ways start in the
// folder where `referrer` really is; an empty `referrer` has none. Nothing when no way leads to a
// file or the record is malformed; otherwise the path is absolute.
std::optional<boost::filesystem::path> ResolveAlias(ByteSpan record,
                                                    const boost::filesystem::path& referrer);

// The path in a record that AliasRecord made, whether or not the file exists; nothing when the
// record is malformed or has none.
std::optional<boost::filesystem::path> AbsoluteAliasPath(ByteSpan record);

}  // namespace toolbox
