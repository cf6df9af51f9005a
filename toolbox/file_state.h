// Which file a path leads to, and how to see that it has changed.
#pragma once

#include <cstdint>

namespace toolbox {

// Identifies a file, however its path is spelled.
struct FileIdentity {
  std::uint64_t device = 0, inode = 0;
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

// The properties of a file that change when somebody writes to it or replaces it.
struct FileState {
  FileIdentity identity;
  std::uint64_t size = 0;  // bytes
  std::int64_t modified = 0;  // nanoseconds since 1970-01-01 UTC
  friend bool operator==(const FileState&, const FileState&) = default;
};

}  // namespace toolbox
