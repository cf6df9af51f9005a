// Converts alias records (QuickTime: the data of an 'alis' entry in 'dref') to paths and back.
#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>

#include "toolbox/bytes.h"

namespace toolbox {

// Makes an alias record of version 2 for the file `target`. The record has the absolute path, and
// also the path relative to the movie file `referrer` unless that is empty. Both paths must be
// absolute and without symbolic links. Throws Refused: bdNamErr (`target` has no name, or needs a
// record of 64 KiB or more).
Bytes AliasRecord(const boost::filesystem::path& target, const boost::filesystem::path& referrer);

// Finds the file of an alias record (version 2 or 3) in the movie file `referrer`. Returns the
// first of these paths that is a regular file:
//
//   1. the relative path, from the folder where `referrer` really is
//   2. the absolute path
//   3. the colon path, from the root
//   4. the name alone, in the folder of `referrer`
//
// An empty `referrer` leaves out 1 and 4. A path with a component ".." is never tried, so that a
// damaged record cannot lead to an unrelated folder. The result is absolute. Nothing if there is no
// such file or the record is malformed.
std::optional<boost::filesystem::path> ResolveAlias(ByteSpan record,
                                                    const boost::filesystem::path& referrer);

// The absolute path in a record, whether or not the file exists. Nothing if the record is malformed
// or has no POSIX path; AliasRecord always writes one.
std::optional<boost::filesystem::path> AbsoluteAliasPath(ByteSpan record);

}  // namespace toolbox
