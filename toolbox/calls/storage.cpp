// Movie files: opening, creating, writing.
#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "toolbox/calls/call.h"
#include "toolbox/calls/data_references.h"
#include "toolbox/calls/references.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/disk/system_error.h"
#include "toolbox/plan/flatten.h"
#include "toolbox/plan/reference.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/references/sources.h"
#include "toolbox/toolbox.h"
#include "toolbox/write/update_file.h"
#include "toolbox/write/write_file.h"

namespace toolbox {

// What changes when somebody writes to a file or replaces it.
struct FileState {
  FileIdentity identity;
  off_t size = 0;
  timespec modified = {};
  friend bool operator==(const FileState& a, const FileState& b) {
    return a.identity == b.identity && a.size == b.size && a.modified.tv_sec == b.modified.tv_sec &&
           a.modified.tv_nsec == b.modified.tv_nsec;
  }
};

// An opened movie file: one to be read or updated, or a new one that is being written.
struct StorageRecord {
  boost::filesystem::path path;
  Descriptor existing;
  bool isToBeUpdated = false;
  FileState state;  // as the existing file was when it was opened
  std::unique_ptr<OutputFile> output;
};

namespace {

FileState StateOf(const boost::filesystem::path& path) {
  const auto status = StatusOf(path);
  if (!status) throw Refused{fBsyErr};
  return {{status->st_dev, status->st_ino}, status->st_size, status->st_mtim};
}

Existing IfExisting(std::uint32_t createFlags) {
  return (createFlags & createMovieFileDeleteCurFile) != 0 ? Existing::kReplace : Existing::kRefuse;
}

// Refuses to write a movie over a file that it will still need.
void CheckNotItsMedia(const MovieRecord& movie, const boost::filesystem::path& target) {
  const auto written = IdentityOf(target);
  if (!written) return;
  for (const auto& track : movie.tracks) {
    if (!track->media) continue;
    for (const DataReference& reference : track->media->dataReferences) {
      const auto* file = std::get_if<OtherFile>(&reference);
      if (std::holds_alternative<ThisFile>(reference) && movie.file) file = &*movie.file;
      if (file != nullptr && IdentityOf(file->path) == written) throw Refused{fBsyErr};
    }
  }
}

// Every storage that is open. One that nobody closes is discarded when the process ends.
std::vector<std::unique_ptr<StorageRecord>>& OpenStorages() {
  static std::vector<std::unique_ptr<StorageRecord>> storages;
  return storages;
}

auto Find(DataHandler handler) {
  auto& storages = OpenStorages();
  const auto found = std::ranges::find(storages, handler, &std::unique_ptr<StorageRecord>::get);
  if (found == storages.end()) throw Refused{fnOpnErr};
  return found;
}

DataHandler Keep(std::unique_ptr<StorageRecord> storage) {
  return OpenStorages().emplace_back(std::move(storage)).get();
}

void Close(DataHandler handler) {
  const auto found = Find(handler);
  const std::unique_ptr<StorageRecord> storage = std::move(*found);
  OpenStorages().erase(found);
  if (!storage->output) return;
  // With nothing in it, it would take a file away and give nothing for it: perhaps one that a movie
  // is still to be read from.
  const bool isEmpty = storage->output->Position() == 0;
  if (!isEmpty || !IdentityOf(storage->path)) storage->output->Commit();
}

}  // namespace

OSErr NewMovieFromDataRef(Movie* movie, std::int16_t flags, std::int16_t* resourceId,
                          Handle dataRef, FourCC dataRefType) {
  return Call("NewMovieFromDataRef", [&] {
    const bool leave = (flags & newMovieDontResolveDataRefs) != 0;
    *movie = ReadMovieFile(PathOf(dataRef, dataRefType),
                           leave ? References::kLeave : References::kResolve)
                 .release();
    if (resourceId != nullptr) *resourceId = -1;
  });
}

OSErr OpenMovieStorage(Handle dataRef, FourCC dataRefType, std::uint32_t flags,
                       DataHandler* handler) {
  return Call("OpenMovieStorage", [&] {
    auto storage = std::make_unique<StorageRecord>();
    storage->path = PathOf(dataRef, dataRefType);
    storage->isToBeUpdated = (flags & kDataHCanWrite) != 0;
    storage->existing = Descriptor(storage->path, storage->isToBeUpdated ? O_RDWR : O_RDONLY);
    if (!storage->existing.IsOpen()) throw RefusedBy(errno);
    storage->state = StateOf(storage->path);
    if (storage->isToBeUpdated && flock(storage->existing.Number(), LOCK_EX | LOCK_NB) != 0) {
      throw RefusedBy(errno);
    }
    *handler = Keep(std::move(storage));
  });
}

OSErr CloseMovieStorage(DataHandler handler) {
  return Call("CloseMovieStorage", [&] { Close(handler); });
}

OSErr CloseComponent(DataHandler component) {
  return Call("CloseComponent", [&] {
    if (component == nullptr) throw Refused{invalidComponentID};
    Close(component);
  });
}

OSErr CreateMovieStorage(Handle dataRef, FourCC dataRefType, FourCC, std::int16_t,
                         std::uint32_t flags, DataHandler* handler, Movie*) {
  return Call("CreateMovieStorage", [&] {
    auto storage = std::make_unique<StorageRecord>();
    storage->path = PathOf(dataRef, dataRefType);
    storage->output = std::make_unique<OutputFile>(storage->path, IfExisting(flags));
    *handler = Keep(std::move(storage));
  });
}

OSErr AddMovieToStorage(Movie movie, DataHandler handler) {
  return Call("AddMovieToStorage", [&] {
    const MovieRecord& record = Valid(movie);
    StorageRecord& storage = **Find(handler);
    // Out of the storage while it has a part missing: nobody gives it its name then.
    std::unique_ptr<OutputFile> output = std::move(storage.output);
    if (!output) throw Refused{dataNotOpenForWrite};
    CheckNotItsMedia(record, storage.path);
    const FileLayout layout{.movieFirst = false, .compress = false};
    WriteFile(PlanReference(record), layout, storage.path, *output);
    storage.output = std::move(output);
  });
}

OSErr UpdateMovieInStorage(Movie movie, DataHandler handler) {
  return Call("UpdateMovieInStorage", [&] {
    const MovieRecord& record = Valid(movie);
    StorageRecord& storage = **Find(handler);
    if (!storage.isToBeUpdated) throw Refused{dataNotOpenForWrite};
    // Somebody who keeps to no lock may have changed the file, or put another in its place.
    if (StateOf(storage.path) != storage.state) throw Refused{fBsyErr};
    UpdateFile(record, storage.path, storage.existing);
    storage.state = StateOf(storage.path);
  });
}

Movie FlattenMovieDataToDataRef(Movie movie, std::uint32_t flags, Handle dataRef,
                                FourCC dataRefType, FourCC, std::int16_t,
                                std::uint32_t createFlags) {
  return Call("FlattenMovieDataToDataRef", [&]() -> Movie {
    const boost::filesystem::path path = PathOf(dataRef, dataRefType);
    const auto isSet = [flags](std::uint32_t flag) { return (flags & flag) != 0; };
    // A header of many chunks costs more to compress than it costs to pack the samples.
    const bool isCompressed = isSet(flattenCompressMovieResource);
    const bool interleave = !isSet(flattenDontInterleaveFlatten);
    const std::uint64_t mostChunks = isCompressed ? 300'000 : UINT64_MAX;
    const FilePlan plan =
        PlanFlattened(Valid(movie), {.onlyEnabled = isSet(flattenActiveTracksOnly),
                                     .interleave = interleave,
                                     .mostChunksKept = interleave ? mostChunks : 0});
    const FileLayout layout{.movieFirst = isSet(flattenForceMovieResourceBeforeMovieData),
                            .compress = isCompressed};
    OutputFile output(path, IfExisting(createFlags));
    WriteFile(plan, layout, path, output);
    output.Commit();
    return nullptr;
  });
}

}  // namespace toolbox
