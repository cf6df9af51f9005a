// Movie files that a caller keeps open, and functions that write a new movie file in one call.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <functional>

#include "toolbox/disk/output_file.h"
#include "toolbox/movie/movie.h"
#include "toolbox/write/write_file.h"

namespace toolbox {

// An open movie file: an existing file to read or update, or a new file. This module owns the
// record until CloseStorage. A new file that is never closed is discarded at the end of the
// process.
struct StorageRecord;

// The use of an existing file.
enum class StorageAccess { kRead, kUpdate };

// Opens the existing file at `path`. kUpdate locks it against other processes until the storage is
// closed. Throws Refused: fBsyErr (locked by another process), and what FileSource throws.
StorageRecord* OpenStorage(const boost::filesystem::path& path, StorageAccess access);
// Starts a new file that gets its name when it is closed. Throws Refused: fBsyErr (a movie of this
// process was opened from the file to be replaced, or has media in it), and what OutputFile throws.
StorageRecord* CreateStorage(const boost::filesystem::path& path, Existing existing);

// Each of the next four throws Refused (fnOpnErr) for a storage that is not open.

// Closes the storage, even if it throws. A new file gets its name now, but an empty one does not
// replace an existing file. Throws Refused: fBsyErr (a file that the movie needs has changed since
// it was opened), and errors of the last writes.
void CloseStorage(StorageRecord* storage);
// Writes the movie as a reference movie to a new file. After a failure the storage accepts nothing
// more, and closing it replaces no file. Throws Refused: dataNotOpenForWrite (not a new file, or
// one that has failed), noMovieFound (a movie without duration would replace a file), and what
// PlanReference and WriteFile throw.
void AddToStorage(const MovieRecord& movie, StorageRecord* storage);
// Writes bytes at `at`, the end of a new file. Throws Refused: dataNotOpenForWrite (not a new file,
// or one that has failed), ioErr (another place), and what OutputFile throws.
void PutInStorage(ByteSpan bytes, std::int64_t at, StorageRecord* storage);
// Replaces the movie in a file opened with kUpdate. Throws Refused: dataNotOpenForWrite (not opened
// to be updated), noMovieFound (the movie has no duration), fBsyErr (the file has been changed or
// replaced since the movie was read, or its media would move and something else refers to them),
// and what UpdateFile throws.
void UpdateStorage(const MovieRecord& movie, StorageRecord* storage);

// Writes a complete new file with media of `movie` and gives it its name. makePlan(unit) returns
// the plan; see FilePlan::unit. Throws Refused: noMovieFound and fBsyErr as the functions above,
// and what makePlan, OutputFile and WriteFile throw; the target is then unchanged.
void WriteNewFile(const MovieRecord& movie, FileLayout layout, const boost::filesystem::path& path,
                  Existing existing, const std::function<FilePlan(std::uint64_t unit)>& makePlan);

// Options of WriteSelfContained.
struct SelfContainedOptions {
  bool onlyEnabled = false;  // leave out disabled tracks
  bool interleave = true;  // otherwise one track after the other
  FileLayout layout;
};

// Writes the movie as a new file with all media that it uses. Throws Refused as PlanFlattened and
// WriteNewFile do.
void WriteSelfContained(const MovieRecord& movie, SelfContainedOptions options,
                        const boost::filesystem::path& path, Existing existing);

}  // namespace toolbox
