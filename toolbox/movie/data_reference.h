// Where the samples of a media lie: one data reference is one of four cases.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <variant>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The file that the movie itself was read from.
struct ThisFile {
  friend bool operator==(const ThisFile&, const ThisFile&) = default;
};
// Which file a path leads to, however the path is spelled.
struct FileIdentity {
  std::uint64_t device = 0, inode = 0;
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};
// Another file; the path is absolute. Two paths to one file are the same reference where it is
// known which file they lead to.
struct OtherFile {
  boost::filesystem::path path;
  std::optional<FileIdentity> identity;  // found when the reference was read
  friend bool operator==(const OtherFile& a, const OtherFile& b) {
    if (a.identity && b.identity) return a.identity == b.identity;
    return a.path.native() == b.path.native();
  }
};
// A block of memory, shared by every media that carries the reference; equal only to itself.
struct InMemory {
  std::shared_ptr<Bytes> data;
  friend bool operator==(const InMemory&, const InMemory&) = default;
};
// A reference that leads nowhere we can read: written back as it came.
struct Unresolved {
  FourCC kind;
  std::uint32_t versionAndFlags = 0;
  Bytes record;
  friend bool operator==(const Unresolved&, const Unresolved&) = default;
};
using DataReference = std::variant<ThisFile, OtherFile, InMemory, Unresolved>;

}  // namespace toolbox
