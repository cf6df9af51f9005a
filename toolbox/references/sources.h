// Opens the sources of data references.
#pragma once

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <list>
#include <memory>
#include <optional>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/data_reference.h"

namespace toolbox {

// A reference to the file at `path`, which may not exist. Throws as StateOf.
OtherFile FileAt(const boost::filesystem::path& path);

// Opens the file or block of memory of `reference`. ThisFile means `ownFile`. The caller owns the
// source; `reference` must outlive it if it is InMemory. Throws Refused: couldNotResolveDataRef (it
// is Unresolved, or ThisFile of a movie without a file), fBsyErr (the file has changed since the
// reference was read), and what opening a file throws.
std::unique_ptr<ByteSource> OpenSource(const DataReference& reference,
                                       const std::optional<OtherFile>& ownFile);

// Keeps open the 32 sources that were used last, because a movie can refer to more files than a
// process may open.
class OpenSources {
 public:
  // ThisFile means `ownFile`, which must outlive this object. So must every reference that is
  // passed to Open, because references are compared by address.
  explicit OpenSources(const std::optional<OtherFile>& ownFile) : ownFile_(ownFile) {}

  // The source of `reference`, which is valid until it is closed. Calls beforeClosing() before it
  // closes another source to make room; a caller that holds one must stop using it then. Throws as
  // OpenSource.
  template <class BeforeClosing>
  const ByteSource& Open(const DataReference& reference, BeforeClosing&& beforeClosing) {
    const auto found = std::ranges::find(opened_, &reference, &Opened::reference);
    if (found != opened_.end()) {
      opened_.splice(opened_.begin(), opened_, found);
    } else {
      if (opened_.size() == kMaxOpen) {
        beforeClosing();
        opened_.pop_back();
      }
      opened_.push_front({&reference, OpenSource(reference, ownFile_)});
    }
    return *opened_.front().source;
  }

 private:
  static constexpr std::size_t kMaxOpen = 32;
  struct Opened {
    const DataReference* reference;
    std::unique_ptr<ByteSource> source;
  };

  const std::optional<OtherFile>& ownFile_;
  // The source used last is first. The next piece is most often in it too, and then it is found at
  // once.
  std::list<Opened> opened_;
};

}  // namespace toolbox
