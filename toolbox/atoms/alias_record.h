// Alias records: how a data reference of kind 'alis' names a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "toolbox/bytes.h"

namespace toolbox {

// The contents of a record. Of its paths, colon paths have ':' between names, and a '/' in a name
// is an ordinary character; in the others it is the other way round.
struct Alias {
  static constexpr std::size_t kShortestSize = 150;  // of a record of version 2

  // Components of the path of the movie and of the file below their common folder; -1: unknown.
  std::int16_t levelsFrom = -1, levelsTo = -1;
  // The name of the file as colon paths have it. The short name is the one in the fixed fields,
  // bytes of some encoding; it is read only: a writer takes it from `name`.
  std::string shortName;
  std::optional<std::u16string> name;
  std::u16string volume;
  std::string folder;  // name
  std::string colonPath;  // "volume:folder:file"
  std::string posixPath;  // below the mount point, without a leading slash
  std::string mountPoint;
};

// Reads a record of version 2 or 3; what is not in it stays empty. Throws Malformed.
Alias ReadAlias(ByteSpan record);

// A record of version 2. Nothing when it would be longer than 64 KiB.
std::optional<Bytes> EncodeAlias(const Alias& alias);

}  // namespace toolbox
