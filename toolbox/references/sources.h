// Data references as open sources.
#pragma once

#include <boost/filesystem/path.hpp>
#include <list>
#include <memory>
#include <optional>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/data_reference.h"

namespace toolbox {

// Which file `path` leads to; nothing when there is none. Throws Refused when that is unknown.
std::optional<FileIdentity> IdentityOf(const boost::filesystem::path& path);

// The reference to the file at `path`, which may not exist. Throws as IdentityOf.
OtherFile FileAt(const boost::filesystem::path& path);

// The file or block of memory that `reference` leads to; `ownFile` is what ThisFile means. Throws
// Refused: couldNotResolveDataRef, and what opening a file throws.
std::unique_ptr<ByteSource> OpenSource(const DataReference& reference,
                                       const std::optional<OtherFile>& ownFile);

// Keeps a few sources open at a time, however many references there are.
class OpenSources {
 public:
  // `ownFile` is what ThisFile means. It must outlive this object, and so must every reference that
  // is looked up: references are known by their address.
  explicit OpenSources(const std::optional<OtherFile>& ownFile) : ownFile_(ownFile) {}

  // The source of `reference`. Calls beforeClosing() when another one has to be closed for it.
  // Throws as OpenSource.
  template <class BeforeClosing>
  const ByteSource& Open(const DataReference& reference, BeforeClosing&& beforeClosing) {
    if (&reference == last_) return *opened_.front().source;
    if (!MoveToFront(reference)) {
      if (opened_.size() == kMost) {
        beforeClosing();
        opened_.pop_back();
      }
      opened_.push_front({&reference, OpenSource(reference, ownFile_)});
    }
    last_ = &reference;
    return *opened_.front().source;
  }

 private:
  static constexpr std::size_t kMost = 32;
  struct Opened {
    const DataReference* reference;
    std::unique_ptr<ByteSource> source;
  };

  bool MoveToFront(const DataReference& reference);

  const std::optional<OtherFile>& ownFile_;
  std::list<Opened> opened_;  // the one used last is first
  const DataReference* last_ = nullptr;
};

}  // namespace toolbox
