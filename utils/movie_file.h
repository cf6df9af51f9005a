// Movie files: data references for paths, opening and writing.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "toolbox/toolbox.h"
#include "utils/owned.h"

namespace utils {

// A data reference of the toolbox. Owns its handle.
class DataReference {
 public:
  DataReference() = default;
  ~DataReference() { toolbox::DisposeHandle(handle); }
  DataReference(const DataReference&) = delete;
  DataReference& operator=(const DataReference&) = delete;

  toolbox::Handle handle = nullptr;
  toolbox::FourCC type;
};

// Makes a data reference for `path`, relative to the working directory. The file need not exist.
// Returns a toolbox code.
[[nodiscard]] toolbox::OSErr PathToDataRef(const std::string& path, DataReference& reference);

inline constexpr toolbox::FourCC kCreator{"TVOD"};  // the creator code of new files

// Creates a new, empty movie file, which replaces an existing one when it is closed. The caller
// closes `*storage`. Returns a toolbox code.
[[nodiscard]] toolbox::OSErr CreateStorage(const DataReference& reference,
                                           toolbox::DataHandler* storage);

// Opens the movie at `path` and its storage. Only with `isWritable` can the movie be saved in
// place. Throws QTError.
std::pair<OwnedMovie, OwnedStorage> OpenMovie(const std::string& path, bool isWritable,
                                              std::int16_t newMovieFlags);

// Writes the movie to `path` and replaces an existing file: either self-contained, with all media,
// or as a reference movie. Failures are printed. With `showProgress`, shows progress if standard
// error is a terminal.
void writeMovie(toolbox::Movie movie, const std::string& path, bool selfContained,
                std::uint32_t flattenFlags, bool showProgress);

// Calls `write`, which writes the movie, and returns its toolbox code. With `showProgress`, and if
// standard error is a terminal, shows the progress there and erases it at the end.
[[nodiscard]] toolbox::OSErr WithProgress(toolbox::Movie movie, bool showProgress,
                                          const std::function<toolbox::OSErr()>& write);

// Prints that the output file at `path` is busy.
void ExplainBusy(const std::string& path);

}  // namespace utils
