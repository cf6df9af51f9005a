// Movies and the files they are in: paths to data references, opening, writing.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "toolbox/toolbox.h"

namespace utils {

// A data reference of the toolbox; disposed of with its owner.
class DataReference {
 public:
  DataReference() = default;
  ~DataReference() { toolbox::DisposeHandle(handle); }
  DataReference(const DataReference&) = delete;
  DataReference& operator=(const DataReference&) = delete;

  toolbox::Handle handle = nullptr;
  toolbox::FourCC type;
};

// The reference for a path, which is completed against the working directory. Returns a toolbox
// code.
[[nodiscard]] toolbox::OSErr PathToDataRef(const std::string& path, DataReference& reference);

// How a movie is opened: bits.
inline constexpr unsigned kRead = 1, kWrite = 2;

// Opens the movie at `path` and its storage. Throws QTError. The caller owns both.
toolbox::Movie OpenMovie(const std::string& path, unsigned access, std::int16_t newMovieFlags,
                         toolbox::DataHandler* storage);

// Writes the movie to `path`, replacing a file that is there: with all its media, or as a reference
// movie. With `showProgress` a user at a terminal sees how far it is. Failures are printed.
void WriteMovie(toolbox::Movie movie, const std::string& path, bool selfContained,
                std::uint32_t flattenFlags, bool showProgress);

// Runs `write`, which writes the movie and returns a toolbox code. With `showProgress` a user at a
// terminal sees how far it is; the line is gone when this returns.
[[nodiscard]] toolbox::OSErr WithProgress(toolbox::Movie movie, bool showProgress,
                                          const std::function<toolbox::OSErr()>& write);

// Tells the user that the output file is busy.
void ExplainBusy(const std::string& path);

}  // namespace utils
