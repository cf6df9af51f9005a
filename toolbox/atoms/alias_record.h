// Alias records: how a data reference of kind 'alis' names a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "toolbox/bytes.h"

namespace toolbox {

// The contents of a record. Colon paths separate names with ':', and their names may contain '/'.
// POSIX paths separate names with '/', and their names may contain ':'.
struct Alias {
  static constexpr std::size_t kShortestSize = 150;  // of a record of version 2

  // How deep the movie (from) and the file (to) are below the deepest folder that contains both, in
  // path components; -1 if unknown.
  std::int16_t levelsFrom = -1, levelsTo = -1;
  // The name of the file, written as in colon paths. `shortName` comes from the fixed fields and
  // has an unknown encoding. Only ReadAlias sets it; EncodeAlias makes the field from `name`.
  std::string shortName;
  std::optional<std::u16string> name;
  std::u16string volume;
  std::string folder;  // only the name of the folder that contains the file
  std::string colonPath;  // "volume:folder:file"
  std::string posixPath;  // relative to the mount point, without a leading slash
  std::string mountPoint;  // POSIX path of the volume
};

// Reads a record of version 2 or 3. Values that the record does not have keep their defaults.
// Throws Malformed if the version is unknown or the record is cut short.
Alias ReadAlias(ByteSpan record);

// Makes a record of version 2. Returns nothing if it would be longer than 65,535 bytes, the most
// that its size field can hold.
std::optional<Bytes> EncodeAlias(const Alias& alias);

}  // namespace toolbox
