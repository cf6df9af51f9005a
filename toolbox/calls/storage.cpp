// Movie files: opening, creating, updating and writing them.
#include "toolbox/write/storage.h"

#include "toolbox/calls/call.h"
#include "toolbox/calls/data_references.h"
#include "toolbox/calls/references.h"
#include "toolbox/disk/temporary_file.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

// What to do with a file that already exists, as the caller's flags say.
Existing IfExisting(std::uint32_t createFlags) {
  return (createFlags & createMovieFileDeleteCurFile) != 0 ? Existing::kReplace : Existing::kRefuse;
}

}  // namespace

OSErr NewMovieFromDataRef(Movie* movie, std::int16_t flags, std::int16_t* resourceId,
                          Handle dataRef, FourCC dataRefType) {
  return Call(__func__, [&] {
    const bool leave = (flags & newMovieDontResolveDataRefs) != 0;
    *movie = ReadMovieFile(PathOf(dataRef, dataRefType),
                           leave ? References::kLeave : References::kResolve)
                 .release();
    // The movie is in the data of its file; there are no resources to number.
    SetResult(resourceId, -1);
  });
}

OSErr OpenMovieStorage(Handle dataRef, FourCC dataRefType, std::uint32_t flags,
                       DataHandler* handler) {
  return Call(__func__, [&] {
    const bool isForUpdate = (flags & kDataHCanWrite) != 0;
    *handler = OpenStorage(PathOf(dataRef, dataRefType),
                           isForUpdate ? StorageAccess::kUpdate : StorageAccess::kRead);
  });
}

// A null or closed storage is refused in write/, which has the list of the open ones.
OSErr CloseMovieStorage(DataHandler handler) {
  return Call(__func__, [&] { CloseStorage(handler); });
}

OSErr CloseComponent(DataHandler component) {
  return Call(__func__, [&] { CloseStorage(&Valid(component)); });
}

void RemoveUnfinishedFiles() { RemoveTemporaryFiles(); }

OSErr CreateMovieStorage(Handle dataRef, FourCC dataRefType, FourCC, std::int16_t,
                         std::uint32_t flags, DataHandler* handler, Movie*) {
  return Call(__func__,
              [&] { *handler = CreateStorage(PathOf(dataRef, dataRefType), IfExisting(flags)); });
}

OSErr AddMovieToStorage(Movie movie, DataHandler handler) {
  return Call(__func__, [&] { AddToStorage(Valid(movie), handler); });
}

OSErr DataHWrite64(DataHandler handler, const void* bytes, std::int64_t offset,
                   std::uint32_t size) {
  return Call(__func__, [&] { PutInStorage(BytesAt(bytes, size), offset, handler); });
}

OSErr UpdateMovieInStorage(Movie movie, DataHandler handler) {
  return Call(__func__, [&] { UpdateStorage(Valid(movie), handler); });
}

Movie FlattenMovieDataToDataRef(Movie movie, std::uint32_t flags, Handle dataRef,
                                FourCC dataRefType, FourCC, std::int16_t,
                                std::uint32_t createFlags) {
  // Always null: the new file is not opened, and its result is the movies error.
  return Call(__func__, [&]() -> Movie {
    const boost::filesystem::path path = PathOf(dataRef, dataRefType);
    const auto isSet = [flags](std::uint32_t flag) { return (flags & flag) != 0; };
    WriteSelfContained(Valid(movie),
                       {.onlyEnabled = isSet(flattenActiveTracksOnly),
                        .interleave = !isSet(flattenDontInterleaveFlatten),
                        .layout = {.movieFirst = isSet(flattenForceMovieResourceBeforeMovieData),
                                   .compress = isSet(flattenCompressMovieResource)}},
                       path, IfExisting(createFlags));
    return nullptr;
  });
}

}  // namespace toolbox
