#include "clipinfo/media_files.h"

#include <algorithm>
#include <variant>

#include "clipinfo/open.h"
#include "toolbox/atoms/atom_heads.h"
#include "toolbox/atoms/container_atoms.h"
#include "toolbox/disk/byte_source.h"
#include "toolbox/read/top_level.h"

namespace clipinfo {
namespace {

using toolbox::FourCC;

constexpr FourCC kMediaData{"mdat"};

}  // namespace

void MediaFile::Open() try {
  if (path.empty()) return;
  const toolbox::FileSource source(path);
  size = source.Size();
  toolbox::TopLevelWalk walk(source);
  const auto add = [this](std::uint64_t from, std::uint64_t to) {
    if (from < to) mediaData_.push_back({from, to});
  };
  while (const auto atom = walk.Next()) {
    if (atom->type == kMediaData) add(atom->ContentAt(), atom->at + atom->size);
    isMovie_ |= atom->type == kMediaData || atom->type == toolbox::MovieAtoms::kType;
  }
  // The last one can be cut off.
  if (toolbox::FourCCAt(walk.Following(), 4) == kMediaData) add(walk.End() + 8, size);
} catch (const toolbox::Failure& failure) {
  size = 0;
  problem = "cannot be read: " + ReasonOf(failure);
}

bool MediaFile::IsMediaData(std::uint64_t at, std::uint64_t length) const {
  if (!isMovie_) return true;
  const auto next = std::ranges::upper_bound(mediaData_, at, {}, &Range::from);
  return next != mediaData_.begin() && at + length <= std::prev(next)->to;
}

MediaFile FileOf(const toolbox::DataReference& reference, const toolbox::MovieRecord& movie) {
  MediaFile file;
  const auto* other = std::get_if<toolbox::OtherFile>(&reference);
  if (const auto* memory = std::get_if<toolbox::InMemory>(&reference)) {
    file.name = "the data in the header";
    file.size = memory->data->size();
  } else if (const auto* entry = std::get_if<toolbox::Unresolved>(&reference)) {
    file.name = StatedPlace(*entry, movie.file ? movie.file->path : boost::filesystem::path());
    if (file.name.empty()) {
      file.name = "a reference of kind '" + entry->kind.Text() + "' without a path";
    }
    file.problem = "is not there";
  } else if (other != nullptr && *other != movie.file) {
    file.name = other->path.native();
    file.path = other->path;
    file.isNewer = movie.file && other->state && movie.file->state &&
                   other->state->modified > movie.file->state->modified;
  } else if (movie.file) {
    file.path = movie.file->path;
  }
  return file;
}

}  // namespace clipinfo
