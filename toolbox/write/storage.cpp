#include "toolbox/write/storage.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

#include "toolbox/disk/descriptor.h"
#include "toolbox/disk/system_error.h"
#include "toolbox/plan/flatten.h"
#include "toolbox/plan/reference.h"
#include "toolbox/references/sources.h"
#include "toolbox/refused.h"
#include "toolbox/write/update_file.h"

namespace toolbox {
namespace {

// The properties of a file that change when somebody writes to it or replaces it.
struct FileState {
  FileIdentity identity;
  off_t size = 0;
  timespec modified = {};
  friend bool operator==(const FileState& a, const FileState& b) {
    return a.identity == b.identity && a.size == b.size && a.modified.tv_sec == b.modified.tv_sec &&
           a.modified.tv_nsec == b.modified.tv_nsec;
  }
};

// Throws Refused (fBsyErr) if there is no file any more.
FileState StateOf(const boost::filesystem::path& path) {
  const auto status = StatusOf(path);
  if (!status) throw Refused{fBsyErr};
  return {{status->st_dev, status->st_ino}, status->st_size, status->st_mtim};
}

}  // namespace

struct StorageRecord {
  boost::filesystem::path path;
  Descriptor existing;
  bool isToBeUpdated = false;
  FileState state;  // of the existing file when it was opened or last updated
  std::unique_ptr<OutputFile> output;  // null: an existing file, or writing has failed
};

namespace {

// All open storages. A caller may close one twice or pass a closed one, so every pointer is looked
// up here before it is used.
std::vector<std::unique_ptr<StorageRecord>>& OpenStorages() {
  static std::vector<std::unique_ptr<StorageRecord>> storages;
  return storages;
}

// Throws Refused (fnOpnErr) if the storage is not open.
auto Find(StorageRecord* storage) {
  auto& storages = OpenStorages();
  const auto found = std::ranges::find(storages, storage, &std::unique_ptr<StorageRecord>::get);
  if (found == storages.end()) throw Refused{fnOpnErr};
  return found;
}

// Adds a storage to the open ones.
StorageRecord* Keep(std::unique_ptr<StorageRecord> storage) {
  return OpenStorages().emplace_back(std::move(storage)).get();
}

// Throws Refused (fBsyErr) if the file at `target` has media of the movie: replacing it would lose
// them.
void CheckNotItsMedia(const MovieRecord& movie, const boost::filesystem::path& target) {
  const auto replaced = IdentityOf(target);
  if (!replaced) return;
  for (const auto& track : movie.tracks) {
    if (!track->media) continue;
    for (const DataReference& reference : track->media->dataReferences) {
      const auto* file = std::get_if<OtherFile>(&reference);
      if (std::holds_alternative<ThisFile>(reference) && movie.file) file = &*movie.file;
      if (file != nullptr && IdentityOf(file->path) == replaced) throw Refused{fBsyErr};
    }
  }
}

}  // namespace

StorageRecord* OpenStorage(const boost::filesystem::path& path, StorageAccess access) {
  auto storage = std::make_unique<StorageRecord>();
  storage->path = path;
  storage->isToBeUpdated = access == StorageAccess::kUpdate;
  storage->existing = Descriptor(path, storage->isToBeUpdated ? O_RDWR : O_RDONLY);
  if (!storage->existing.IsOpen()) throw RefusedBy(errno);
  storage->state = StateOf(path);
  if (storage->isToBeUpdated && flock(storage->existing.Number(), LOCK_EX | LOCK_NB) != 0) {
    throw RefusedBy(errno);
  }
  return Keep(std::move(storage));
}

StorageRecord* CreateStorage(const boost::filesystem::path& path, Existing existing) {
  auto storage = std::make_unique<StorageRecord>();
  storage->path = path;
  storage->output = std::make_unique<OutputFile>(path, existing);
  return Keep(std::move(storage));
}

void CloseStorage(StorageRecord* storage) {
  const auto found = Find(storage);
  const std::unique_ptr<StorageRecord> closed = std::move(*found);
  OpenStorages().erase(found);
  if (!closed->output) return;
  const bool isEmpty = closed->output->Position() == 0;
  if (!isEmpty || !IdentityOf(closed->path)) closed->output->Commit();
}

void AddToStorage(const MovieRecord& movie, StorageRecord* storage) {
  StorageRecord& record = **Find(storage);
  // The output is put back only if everything was written. So an incomplete file never gets its
  // name.
  std::unique_ptr<OutputFile> output = std::move(record.output);
  if (!output) throw Refused{dataNotOpenForWrite};
  CheckNotItsMedia(movie, record.path);
  const FileLayout layout{.movieFirst = false, .compress = false};
  WriteFile(PlanReference(movie), layout, record.path, *output);
  record.output = std::move(output);
}

void UpdateStorage(const MovieRecord& movie, StorageRecord* storage) {
  StorageRecord& record = **Find(storage);
  if (!record.isToBeUpdated) throw Refused{dataNotOpenForWrite};
  // A program that ignores locks may have changed the file, or replaced it by another.
  if (StateOf(record.path) != record.state) throw Refused{fBsyErr};
  UpdateFile(movie, record.path, record.existing);
  record.state = StateOf(record.path);
}

void WriteNewFile(const FilePlan& plan, FileLayout layout, const boost::filesystem::path& path,
                  Existing existing) {
  OutputFile output(path, existing);
  WriteFile(plan, layout, path, output);
  output.Commit();
}

void WriteSelfContained(const MovieRecord& movie, SelfContainedOptions options,
                        const boost::filesystem::path& path, Existing existing) {
  // With more chunks than this, compressing the header takes longer than cutting the samples into
  // fewer chunks.
  constexpr std::uint64_t kMostCompressedChunks = 300'000;
  const std::uint64_t mostChunks = options.layout.compress ? kMostCompressedChunks : UINT64_MAX;
  const FilePlan plan =
      PlanFlattened(movie, {.onlyEnabled = options.onlyEnabled,
                            .interleave = options.interleave,
                            .mostChunksKept = options.interleave ? mostChunks : 0});
  WriteNewFile(plan, options.layout, path, existing);
}

}  // namespace toolbox
