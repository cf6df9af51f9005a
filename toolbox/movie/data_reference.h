// Where the samples of a media lie: one data reference is one of four cases.
#pragma once

#include <boost/filesystem/path.hpp>
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
// Another file; the path is absolute.
struct OtherFile {
  boost::filesystem::path path;
  friend bool operator==(const OtherFile& a, const OtherFile& b) {
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
