#include "toolbox/write/storage.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <memory>
#include <set>
#include <utility>
#include <variant>
#include <vector>

#include "toolbox/disk/byte_source.h"
#include "toolbox/disk/descriptor.h"
#include "toolbox/disk/system_error.h"
#include "toolbox/plan/flatten.h"
#include "toolbox/plan/reference.h"
#include "toolbox/references/real_path.h"
#include "toolbox/refused.h"
#include "toolbox/write/update_file.h"

namespace toolbox {
namespace {

// The files that reference movies of this process refer to. The reference movies are valid only as
// long as the media in these files do not move.
std::vector<FileIdentity>& ReferredTo() {
  static std::vector<FileIdentity> files;
  return files;
}

// The files that `plan` needs, the file of its own movie among them.
std::vector<OtherFile> SourcesOf(const FilePlan& plan) {
  std::vector<OtherFile> sources;
  if (plan.ownFile) sources.push_back(*plan.ownFile);
  for (const TrackPlan& track : plan.tracks) {
    if (!track.source->media) continue;
    for (const DataReference& reference : track.source->media->dataReferences) {
      if (const auto* file = std::get_if<OtherFile>(&reference)) sources.push_back(*file);
    }
  }
  return sources;
}

// Throws Refused (fBsyErr) if a file was changed or replaced since it was opened. Otherwise the new
// file might have the wrong bytes, or refer to them.
void CheckUnchanged(const std::vector<OtherFile>& files) {
  for (const OtherFile& file : files) file.CheckUnchanged(StateOf(file.path));
}

// Opens a new file. Throws Refused (fBsyErr) if it would replace a file that a movie was opened
// from or has media in, because that would lose them.
std::unique_ptr<OutputFile> OpenOutput(const boost::filesystem::path& path, Existing existing) {
  const auto replaced = StateOf(path);
  const auto uses = [&](const MovieRecord* movie) { return movie->Uses(replaced->identity); };
  if (replaced && std::ranges::any_of(MovieRecord::All(), uses)) {
    throw Refused{fBsyErr, "an open movie uses it", path.native()};
  }
  return std::make_unique<OutputFile>(path, existing);
}

// Returns the size of the blocks that `output` can share with a source of the movie; 1 if it can
// share none. One large file of each file system is tried.
std::uint64_t FindSharing(const MovieRecord& movie, OutputFile& output) {
  constexpr std::uint64_t kLarge = 1 << 20;
  std::set<std::uint64_t> devices;
  std::uint64_t unit = 1;
  const auto tryFile = [&](const OtherFile& file) {
    if (unit != 1 || !file.state || file.state->size < kLarge) return;
    if (devices.contains(file.state->identity.device)) return;
    try {
      unit = output.FindSharing(FileSource(file.path));
      devices.insert(file.state->identity.device);
    } catch (const Failure&) {
      // The plan or the copy reports a source that cannot be opened.
    }
  };
  if (movie.file) tryFile(*movie.file);
  for (const auto& track : movie.tracks) {
    if (!track->media) continue;
    for (const DataReference& reference : track->media->dataReferences) {
      if (const auto* file = std::get_if<OtherFile>(&reference)) tryFile(*file);
    }
  }
  return unit;
}

// Throws Refused (noMovieFound) if a movie without duration would replace a file. Such a movie may
// come from a mistake, and the old file must not be lost.
void CheckMayReplace(const MovieRecord& movie, const boost::filesystem::path& target) {
  const auto replaced = StatusOf(target);
  if (replaced && S_ISREG(replaced->st_mode) && movie.Duration() <= MovieTime{}) {
    throw Refused{noMovieFound, "the movie has no duration and would replace it", target.native()};
  }
}

}  // namespace

struct StorageRecord {
  boost::filesystem::path path;  // of an existing file: without links
  std::unique_ptr<FileSource> existing;  // null: a new file
  bool isForUpdate = false;  // then the file is locked
  std::unique_ptr<OutputFile> output;  // null: an existing file, or writing has failed
  std::vector<OtherFile> sources;  // what the new file refers to
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

// Throws Refused (fBsyErr) unless the open file is still the one at its path, unchanged, and the
// one that `movie` was read from, if it was read from that path. A program that ignores locks may
// have changed or replaced it. So may another save that ended before this one took the lock.
void CheckSame(const StorageRecord& storage, const MovieRecord& movie) {
  const FileState& state = storage.existing->State();
  OtherFile{storage.path, state}.CheckUnchanged(StateOf(storage.path));
  if (movie.file && (movie.file->Is(state.identity) || movie.file->path == storage.path)) {
    movie.file->CheckUnchanged(state);
  }
}

}  // namespace

StorageRecord* OpenStorage(const boost::filesystem::path& path, StorageAccess access) try {
  auto storage = std::make_unique<StorageRecord>();
  storage->path = RealPath(path);
  storage->isForUpdate = access == StorageAccess::kUpdate;
  storage->existing = std::make_unique<FileSource>(path, storage->isForUpdate ? O_RDWR : O_RDONLY);
  const int file = storage->existing->Descriptor();
  if (storage->isForUpdate) Required([file] { return flock(file, LOCK_EX | LOCK_NB); });
  storage->existing->Renew();
  return Keep(std::move(storage));
} catch (Failure& failure) {
  failure.NameFile(path.native());
  throw;
}

StorageRecord* CreateStorage(const boost::filesystem::path& path, Existing existing) {
  auto storage = std::make_unique<StorageRecord>();
  storage->path = path;
  storage->output = OpenOutput(path, existing);
  return Keep(std::move(storage));
}

void CloseStorage(StorageRecord* storage) {
  const auto found = Find(storage);
  const std::unique_ptr<StorageRecord> closed = std::move(*found);
  OpenStorages().erase(found);
  if (!closed->output) return;
  const bool isEmpty = closed->output->Position() == 0;
  if (isEmpty && StateOf(closed->path)) return;
  CheckUnchanged(closed->sources);
  closed->output->Commit();
  for (const OtherFile& source : closed->sources) {
    if (source.state) ReferredTo().push_back(source.state->identity);
  }
}

void AddToStorage(const MovieRecord& movie, StorageRecord* storage) {
  StorageRecord& record = **Find(storage);
  // The output is put back only after everything was written, so an incomplete file never gets its
  // name.
  std::unique_ptr<OutputFile> output = std::move(record.output);
  if (!output) throw Refused{dataNotOpenForWrite};
  CheckMayReplace(movie, record.path);
  const FileLayout layout{.movieFirst = false, .compress = false};
  const FilePlan plan = PlanReference(movie);
  WriteFile(plan, layout, record.path, *output);
  record.sources = SourcesOf(plan);
  record.output = std::move(output);
}

void PutInStorage(ByteSpan bytes, std::int64_t at, StorageRecord* storage) {
  StorageRecord& record = **Find(storage);
  if (!record.output) throw Refused{dataNotOpenForWrite};
  record.output->Write(static_cast<std::uint64_t>(at), bytes);
}

void UpdateStorage(const MovieRecord& movie, StorageRecord* storage) {
  StorageRecord& record = **Find(storage);
  if (!record.isForUpdate) throw Refused{dataNotOpenForWrite};
  CheckMayReplace(movie, record.path);
  CheckSame(record, movie);
  const FileIdentity file = record.existing->State().identity;
  const auto needsFile = [&](const MovieRecord* other) {
    return other != &movie && other->Uses(file);
  };
  const bool mediaMayMove = std::ranges::none_of(MovieRecord::All(), needsFile) &&
                            std::ranges::find(ReferredTo(), file) == ReferredTo().end();
  UpdateFile(movie, record.path, *record.existing, mediaMayMove);
  record.existing->Renew();
  // This process has changed the file itself, so the movies that use it may go on using it.
  for (MovieRecord* other : MovieRecord::All()) other->Renew(record.existing->State());
}

void WriteNewFile(const MovieRecord& movie, FileLayout layout, const boost::filesystem::path& path,
                  Existing existing, const std::function<FilePlan(std::uint64_t unit)>& makePlan) {
  const std::unique_ptr<OutputFile> output = OpenOutput(path, existing);
  const FilePlan plan = makePlan(FindSharing(movie, *output));
  CheckMayReplace(*plan.movie, path);
  if (const auto& tell = plan.movie->copiesFrom) {
    for (const auto& [file, size] : plan.files) tell(file);
  }
  WriteFile(plan, layout, path, *output);
  CheckUnchanged(SourcesOf(plan));
  output->Commit();
}

void WriteSelfContained(const MovieRecord& movie, SelfContainedOptions options,
                        const boost::filesystem::path& path, Existing existing) {
  // With more chunks than this, compressing the header takes longer than cutting the samples into
  // fewer chunks.
  constexpr std::uint64_t kMaxCompressedChunks = 300'000;
  const std::uint64_t maxChunks = options.layout.compress ? kMaxCompressedChunks : UINT64_MAX;
  WriteNewFile(movie, options.layout, path, existing, [&](std::uint64_t unit) {
    return PlanFlattened(movie, {.onlyEnabled = options.onlyEnabled,
                                 .interleave = options.interleave,
                                 .maxChunksKept = options.interleave ? maxChunks : 0,
                                 .unit = unit});
  });
}

}  // namespace toolbox
