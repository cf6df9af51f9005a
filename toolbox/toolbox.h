// The movie toolbox: every call, type and constant that the commands use, in the platform's
// spelling.
//
// Each call leaves its result as the movies error (GetMoviesError); calls that return an OSErr
// return the same. A call that takes a null reference answers with the code for it and changes
// nothing; a failing edit leaves the movie as it was. All calls are made from one thread.
//
// Times are 64-bit counts of a time scale's units (units per second).
#pragma once

#include <cstdint>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"
#include "toolbox/codes.h"

namespace toolbox {

struct MovieRecord;
struct StorageRecord;
struct StringRecord;

// A resizable block of bytes; whoever makes one disposes of it.
struct HandleRecord {
  Bytes bytes;
};

using Movie = MovieRecord*;
using DataHandler = StorageRecord*;
using CFStringRef = const StringRecord*;
using Handle = HandleRecord*;
using TimeValue = std::int64_t;
using TimeScale = std::int32_t;
using CFStringEncoding = std::uint32_t;

// New-movie flags.
inline constexpr std::int16_t newMovieActive = 1;
inline constexpr std::int16_t newMovieDontResolveDataRefs = 2;
inline constexpr std::int16_t newMovieDontAskUnresolvedDataRefs = 4;

// Flatten flags.
inline constexpr std::uint32_t flattenAddMovieToDataFork = 0x1;
inline constexpr std::uint32_t flattenActiveTracksOnly = 0x2;
inline constexpr std::uint32_t flattenDontInterleaveFlatten = 0x4;
inline constexpr std::uint32_t flattenCompressMovieResource = 0x20;
inline constexpr std::uint32_t flattenForceMovieResourceBeforeMovieData = 0x40;

// Storage.
inline constexpr std::uint32_t createMovieFileDeleteCurFile = 0x80000000;
inline constexpr std::uint32_t kDataHCanRead = 1;
inline constexpr std::uint32_t kDataHCanWrite = 8;
inline constexpr std::int16_t smSystemScript = -1;

// Strings and paths.
inline constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;
inline constexpr int kQTPOSIXPathStyle = 0;

// --- Start and errors (calls/movies.cpp)

// Starts the toolbox; may be called again. Always noErr.
[[nodiscard]] OSErr EnterMovies();
// The result of the last call, which it resets to noErr.
[[nodiscard]] OSErr GetMoviesError();

// --- Movies (calls/movies.cpp)

// An empty movie of 600 units per second; the caller disposes of it. Flags are ignored.
[[nodiscard]] Movie NewMovie(std::int32_t flags);
// Releases the movie, its tracks and its media.
void DisposeMovie(Movie movie);
// Units per second; 0 for a null movie.
TimeScale GetMovieTimeScale(Movie movie);
// Re-expresses every time of the movie; boundaries are rounded to the nearest unit. paramErr unless
// scale > 0.
void SetMovieTimeScale(Movie movie, TimeScale scale);
// Where the last track ends, in movie units.
TimeValue GetMovieDuration(Movie movie);

// --- Segments (calls/segments.cpp)

// Lays [sourceIn, sourceIn + sourceDuration) of `source` (its units) into `movie` at `at` (movie
// units): into tracks that fit, else into new ones; media by reference. invalidMovie, invalidTime,
// invalidDuration, couldNotResolveDataRef, invalidSampleTable.
[[nodiscard]] OSErr InsertMovieSegment(Movie source, Movie movie, TimeValue sourceIn,
                                       TimeValue sourceDuration, TimeValue at);

// --- Storage (calls/storage.cpp)

// Opens the movie in the file that `dataRef` (an alias) leads to; the caller disposes of it.
// `resourceId` may be null; it is set to -1. Flags: newMovieDontResolveDataRefs leaves media in
// other files alone. couldNotResolveDataRef (no such file, or media that is not found),
// noMovieFound, badPublicMovieAtom, cantFindHandler, afpAccessDenied, notAFileErr, file errors.
[[nodiscard]] OSErr NewMovieFromDataRef(Movie* movie, std::int16_t flags, std::int16_t* resourceId,
                                        Handle dataRef, FourCC dataRefType);
// Opens a movie file to be updated later (kDataHCanWrite: locked against others) or only read. The
// caller closes it. fBsyErr, afpAccessDenied, file errors.
[[nodiscard]] OSErr OpenMovieStorage(Handle dataRef, FourCC dataRefType, std::uint32_t flags,
                                     DataHandler* handler);
// Closes the storage; one that was created takes its name and place now. Its errors are those of
// the last writes.
[[nodiscard]] OSErr CloseMovieStorage(DataHandler handler);
// A new, empty movie file, written beside its place until it is closed.
// createMovieFileDeleteCurFile replaces a file that is there. Creator, script and movie are
// ignored: pass null for `movie`. dupFNErr, fBsyErr, afpAccessDenied, vLckdErr, dirNFErr,
// notAFileErr, dskFulErr.
[[nodiscard]] OSErr CreateMovieStorage(Handle dataRef, FourCC dataRefType, FourCC creator,
                                       std::int16_t script, std::uint32_t flags,
                                       DataHandler* handler, Movie* movie);
// Writes the movie as a reference movie: no media but what is held in memory. fBsyErr when the file
// it would replace holds some of that media; dskFulErr, ioErr.
[[nodiscard]] OSErr AddMovieToStorage(Movie movie, DataHandler handler);
// Writes a self-contained movie with all media in use, and gives it its name and place. Always
// null: the result is the movies error (couldNotResolveDataRef, eofErr, invalidSampleTable, file
// errors).
Movie FlattenMovieDataToDataRef(Movie movie, std::uint32_t flags, Handle dataRef,
                                FourCC dataRefType, FourCC creator, std::int16_t script,
                                std::uint32_t createFlags);
// Closes a storage like CloseMovieStorage; invalidComponentID for null.
[[nodiscard]] OSErr CloseComponent(DataHandler component);

// --- Memory (calls/memory.cpp)

// `size` zero bytes; null when size < 0 or memory is short.
[[nodiscard]] Handle NewHandle(std::int64_t size);
std::int64_t GetHandleSize(Handle handle);
// Null is allowed.
void DisposeHandle(Handle handle);

// --- Strings and paths (calls/strings.cpp)

// A string of the text, which is UTF-8; a path may hold other bytes, which are kept. Null for any
// other encoding. The caller releases it.
[[nodiscard]] CFStringRef CFStringCreateWithCString(const void* allocator, const char* text,
                                                    CFStringEncoding encoding);
void CFRelease(CFStringRef string);
// An alias data reference to the file at `path`, which is absolute and need not exist; the caller
// disposes of it. paramErr (null, empty or relative path, or a style but kQTPOSIXPathStyle),
// bdNamErr (too long).
[[nodiscard]] OSErr QTNewDataReferenceFromFullPathCFString(CFStringRef path, int style,
                                                           std::uint32_t flags, Handle* dataRef,
                                                           FourCC* dataRefType);

}  // namespace toolbox
