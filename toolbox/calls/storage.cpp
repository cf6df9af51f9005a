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

Existing IfExisting(std::uint32_t createFlags) {
  return (createFlags & createMovieFileDeleteCurFile) != 0 ? Existing::kReplace : Existing::kRefuse;
}

}  // namespace

OSErr NewMovieFromDataRef(Movie* movie, std::int16_t flags, std::int16_t* resourceId,
                          Handle dataRef, FourCC dataRefType) {
  return Call("NewMovieFromDataRef", [&] {
    const bool leave = (flags & newMovieDontResolveDataRefs) != 0;
    *movie = ReadMovieFile(PathOf(dataRef, dataRefType),
                           leave ? References::kLeave : References::kResolve)
                 .release();
    // The movie is in the data of its file; there are no resources to number.
    if (resourceId != nullptr) *resourceId = -1;
  });
}

OSErr OpenMovieStorage(Handle dataRef, FourCC dataRefType, std::uint32_t flags,
                       DataHandler* handler) {
  return Call("OpenMovieStorage", [&] {
    const bool isToBeUpdated = (flags & kDataHCanWrite) != 0;
    *handler = OpenStorage(PathOf(dataRef, dataRefType),
                           isToBeUpdated ? StorageAccess::kUpdate : StorageAccess::kRead);
  });
}

OSErr CloseMovieStorage(DataHandler handler) {
  return Call("CloseMovieStorage", [&] { CloseStorage(handler); });
}

OSErr CloseComponent(DataHandler component) {
  return Call("CloseComponent", [&] {
    if (component == nullptr) throw Refused{invalidComponentID};
    CloseStorage(component);
  });
}

void RemoveUnfinishedFiles() { RemoveTemporaryFiles(); }

OSErr CreateMovieStorage(Handle dataRef, FourCC dataRefType, FourCC, std::int16_t,
                         std::uint32_t flags, DataHandler* handler, Movie*) {
  return Call("CreateMovieStorage",
              [&] { *handler = CreateStorage(PathOf(dataRef, dataRefType), IfExisting(flags)); });
}

OSErr AddMovieToStorage(Movie movie, DataHandler handler) {
  return Call("AddMovieToStorage", [&] { AddToStorage(Valid(movie), handler); });
}

OSErr UpdateMovieInStorage(Movie movie, DataHandler handler) {
  return Call("UpdateMovieInStorage", [&] { UpdateStorage(Valid(movie), handler); });
}

Movie FlattenMovieDataToDataRef(Movie movie, std::uint32_t flags, Handle dataRef,
                                FourCC dataRefType, FourCC, std::int16_t,
                                std::uint32_t createFlags) {
  return Call("FlattenMovieDataToDataRef", [&]() -> Movie {
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
