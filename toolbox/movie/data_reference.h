// Where the samples of a media are: a data reference is one of four cases.
// ISO/IEC 14496-12 8.7.2.
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <optional>
#include <variant>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/bytes.h"
#include "toolbox/file_state.h"
#include "toolbox/refused.h"

namespace toolbox {

// The file that the movie itself was read from.
struct ThisFile {
  friend bool operator==(const ThisFile&, const ThisFile&) = default;
};
// Another file; the path is absolute. Two references are equal if they lead to the same file. If
// the state of one is not known, their paths are compared instead.
struct OtherFile {
  boost::filesystem::path path;
  // Noted when the reference was read. A different state later means that the file was changed or
  // replaced meanwhile. Nothing if there was no file.
  std::optional<FileState> state;
  // Throws Refused (fBsyErr) if `now` is another state than the one that was noted.
  void CheckUnchanged(const std::optional<FileState>& now) const {
    if (!state || now == state) return;
    throw Refused{fBsyErr, "it has changed since it was opened", path.native()};
  }
  bool Is(const FileIdentity& file) const { return state && state->identity == file; }
  friend bool operator==(const OtherFile& a, const OtherFile& b) {
    if (a.state && b.state) return a.state->identity == b.state->identity;
    return a.path.native() == b.path.native();
  }
};
// A block of memory, shared by every media that carries the reference; equal only to itself.
struct InMemory {
  std::shared_ptr<Bytes> data;
  friend bool operator==(const InMemory&, const InMemory&) = default;
};
// A reference that the toolbox cannot resolve. The entry is written back unchanged.
using Unresolved = DataReferenceEntry;
using DataReference = std::variant<ThisFile, OtherFile, InMemory, Unresolved>;

}  // namespace toolbox
