// The movie toolbox: every call that the commands use, in the platform's spelling.
//
// Each call leaves its result as the movies error (GetMoviesError); calls that return an OSErr
// return the same. A call that takes a null reference answers with the code for it (invalidMovie,
// invalidTrack, invalidMedia, nilHandleErr, invalidComponentID, fnOpnErr for a storage, else
// paramErr), gives 0 or null and changes nothing; a failing edit leaves the movie as it was, and
// what a failing call was to give is null or left alone. Any call may answer memFullErr. "File
// errors" are what the system says of a file: fnfErr, ioErr, dskFulErr, tmfoErr, opWrErr, bdNamErr.
// All calls are made from one thread.
//
// Movies, storages, exporters, sample tables, handles and strings are the caller's to dispose of.
// Tracks, media and user data belong to their movie and last as long as they are part of it. A
// handle given for a result is resized to it; what is passed to a call is copied, not kept. Other
// pointers may be null only where a call says so. `allocator` and `hints` are ignored: pass null.
//
// Times are 64-bit counts of a time scale's units (units per second): those of movies and tracks in
// the movie's, those of media in their own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "toolbox/types.h"

namespace toolbox {

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
// The matrix that all tracks go through behind their own. SetMovieMatrix copies it.
void GetMovieMatrix(Movie movie, MatrixRecord* matrix);
void SetMovieMatrix(Movie movie, const MatrixRecord* matrix);

// The movie selection; it may reach past the end. invalidTime (start < 0: nothing changes),
// invalidDuration (duration < 0: the selection becomes empty at `start`).
void SetMovieSelection(Movie movie, TimeValue start, TimeValue duration);
// Overwrites the destination's preferred rate and volume, clipping region, matrix and user data.
// invalidMovie.
[[nodiscard]] OSErr CopyMovieSettings(Movie source, Movie destination);
// Has `progress` told, while media of the movie are copied, how many bytes of how many are done.
// Empty: nobody.
void SetMovieProgressProc(Movie movie,
                          std::function<void(std::uint64_t done, std::uint64_t all)> progress);
// A copy of the data reference of media that are made without one; the caller disposes of it.
// noDefaultDataRef, and null, when there is none.
[[nodiscard]] OSErr GetMovieDefaultDataRef(Movie movie, Handle* dataRef, FourCC* dataRefType);
// Takes a copy: 'alis', a file, or 'hndl', a block of memory (a new one for a handle of zeros; the
// same each time for the same handle). nilHandleErr, invalidDataRef, noDataHandler.
[[nodiscard]] OSErr SetMovieDefaultDataRef(Movie movie, Handle dataRef, FourCC dataRefType);
// The movie's user data; valid as long as the movie. Null only for a null movie.
UserData GetMovieUserData(Movie movie);

// --- Tracks (calls/tracks.cpp)

// Number of tracks.
std::int32_t GetMovieTrackCount(Movie movie);
// The track at that number, the first being 1; badTrackIndex and null when there is none.
Track GetMovieIndTrack(Movie movie, std::int32_t number);
// Counts only tracks of the media type or characteristic ('eyes', 'ears') `what`, as `flags` say;
// null without an error when there is none. paramErr unless exactly one of the two kinds is asked
// for.
Track GetMovieIndTrackType(Movie movie, std::int32_t number, FourCC what, std::int32_t flags);
// Where the track ends, in movie units from movie time 0.
TimeValue GetTrackDuration(Track track);
// The length of the empty stretch in front, in movie units.
TimeValue GetTrackOffset(Track track);
// ... which is given that length; the rest of the track moves with it. invalidTime (offset < 0).
void SetTrackOffset(Track track, TimeValue offset);
// A track that is not enabled is there but neither shown nor heard.
void SetTrackEnabled(Track track, bool isEnabled);
// The matrix that the track's pictures go through before the movie's.
void GetTrackMatrix(Track track, MatrixRecord* matrix);
void SetTrackMatrix(Track track, const MatrixRecord* matrix);
// The track's user data; valid as long as the track. Null only for a null track.
UserData GetTrackUserData(Track track);
// Null for a track without media.
Media GetTrackMedia(Track track);
// Removes the track, its media and every reference to it.
void DisposeMovieTrack(Track track);
// A new track in `destination` with the media type and settings of `source` and no samples. The
// media refers to what `dataRef`, an alias, leads to; null: to nothing yet. invalidTrack,
// invalidMovie, noDataHandler, invalidDataRef; `*track` is then null.
[[nodiscard]] OSErr AddEmptyTrackToMovie(Track source, Movie destination, Handle dataRef,
                                         FourCC dataRefType, Track* track);
// A new track without media behind all others, enabled. Width and height are Fixed; full volume is
// 0x100.
Track NewMovieTrack(Movie movie, Fixed width, Fixed height, std::int16_t volume);
// Gives the track an empty media of that type, its data in `dataRef` or, when that is null, in the
// movie's default. noDefaultDataRef (there is none), paramErr (scale <= 0), invalidDataRef.
Media NewTrackMedia(Track track, FourCC type, TimeScale scale, Handle dataRef, FourCC dataRefType);

// --- Track references (calls/track_references.cpp): to other tracks, by type, numbered from 1

// How many references of the type the track has.
std::int32_t GetTrackReferenceCount(Track track, FourCC type);
// The track referred to; null without an error where there is none.
Track GetTrackReference(Track track, FourCC type, std::int32_t number);
// Appends a reference to `target`, be there one already or not; its number goes to `number`, which
// may be null. trackNotInMovie (a target in another movie).
[[nodiscard]] OSErr AddTrackReference(Track track, Track target, FourCC type, std::int32_t* number);
// Removes one; later ones of the type move down. badTrackIndex (there is none of that number).
[[nodiscard]] OSErr DeleteTrackReference(Track track, FourCC type, std::int32_t number);

// --- Media (calls/media.cpp); a media handler is the media itself

// Sum of the decode durations of all samples, in media units.
TimeValue GetMediaDuration(Media media);
// The same by the name that tells it from the time for which the samples are shown.
TimeValue GetMediaDecodeDuration(Media media);
// Units per second; 0 for a null media.
TimeScale GetMediaTimeScale(Media media);
// Null only for a null media.
MediaHandler GetMediaHandler(Media media);
// Any result may be null. `creatorName` is left alone.
void GetMediaHandlerDescription(Media media, FourCC* type, char* creatorName, FourCC* manufacturer);
// The display name of the kind of media, in English whatever is wanted: its length in the first
// byte of `name`, which has room for 256. `actualLanguage` may be null. invalidMedia.
[[nodiscard]] OSErr MediaGetName(MediaHandler handler, unsigned char* name,
                                 std::int32_t wantedLanguage, std::int32_t* actualLanguage);
// How pictures are laid over what is below them, and the colour that some modes need.
// badComponentSelector (media that are not seen), invalidMedia.
[[nodiscard]] OSErr MediaSetGraphicsMode(MediaHandler handler, std::int32_t mode,
                                         const RGBColor* opColor);
// Number of sample descriptions.
std::int32_t GetMediaSampleDescriptionCount(Media media);
// The whole description, the first being number 1: 32-bit size, format, six zero bytes,
// data-reference number, then the format's own. invalidSampleDescIndex.
void GetMediaSampleDescription(Media media, std::int32_t number, Handle description);

// How many data references (files and blocks of memory) the samples may lie in; they are numbered
// from 1.
[[nodiscard]] OSErr GetMediaDataRefCount(Media media, std::int16_t* count);
// One of them, the movie's own file too, as anybody can follow it; the caller disposes of it.
// `type` and `attributes` may be null. badDataRefIndex, couldNotResolveDataRef (the movie has no
// file).
[[nodiscard]] OSErr GetMediaDataRef(Media media, std::int16_t number, Handle* dataRef, FourCC* type,
                                    std::int32_t* attributes);
// Adds a data reference behind the last, in any case; `number` may be null. nilHandleErr,
// invalidDataRef (a damaged one; one that nobody here can follow is kept as it is).
[[nodiscard]] OSErr AddMediaDataRef(Media media, std::int16_t* number, Handle dataRef, FourCC type);

// --- Sample tables (calls/sample_tables.cpp): samples on their way between media, with the data
// references they are read by; numbered from 1. They need no media opened for editing

// An empty table for samples timed in `scale` units per second; the caller releases it. paramErr
// unless scale > 0.
[[nodiscard]] OSErr QTSampleTableCreateMutable(const void* allocator, TimeScale scale,
                                               const void* hints, QTMutableSampleTableRef* table);
// Of sound in packets, all that the packets hold are counted.
std::int64_t QTSampleTableGetNumberOfSamples(QTMutableSampleTableRef table);
// Writes a property into the `room` bytes at `value`: the total decode duration, a TimeValue.
// `used`, which may be null, gets its size. paramErr (too little room), featureUnsupported (another
// property).
[[nodiscard]] OSErr QTSampleTableGetProperty(QTMutableSampleTableRef table, FourCC propertyClass,
                                             FourCC property, std::size_t room, void* value,
                                             std::size_t* used);
// Releases the table, not the samples. Null is allowed.
void QTSampleTableRelease(QTMutableSampleTableRef table);
// A new table, the caller's to release, of the samples from the one decoded at `start` (media
// units) to the end; where a limit is above 0, of no more than it allows, but of at least one. What
// stood in `*table` is not released. `actualStart`, which may be null, is when the first of them is
// decoded. invalidTime (outside the media), invalidSampleTable (samples that lie nowhere),
// featureUnsupported (encrypted samples), couldNotResolveDataRef (samples in a file that the movie
// does not have yet).
[[nodiscard]] OSErr CopyMediaMutableSampleTable(Media media, TimeValue start,
                                                TimeValue* actualStart, std::int64_t maxSamples,
                                                TimeValue maxDuration,
                                                QTMutableSampleTableRef* table);
// Adds `count` samples of the table, from number `first` on, at the end of the media, by reference;
// the track does not show them yet. They are shown from where the media ended on, however much
// later their own media showed them. `decodeTime`, which may be null, is where the media ended.
// paramErr (another time scale, count < 0), invalidSampleNum (samples that the table does not
// have), featureUnsupported (the samples there are encrypted), mediaTypesDontMatch (a description
// that cannot name its file).
[[nodiscard]] OSErr AddSampleTableToMedia(Media media, QTMutableSampleTableRef table,
                                          std::int64_t first, std::int64_t count,
                                          TimeValue* decodeTime);

// --- Samples (calls/samples.cpp)

// The next sample that begins to be shown after the movie time `from`, or at it with
// nextTimeEdgeOK: when, rounded up to a movie unit, and for how long; -1 and 0 when there is none.
// `time` and `duration` may be null. Only nextTimeMediaSample can be asked for, and only forwards
// (rate > 0): else featureUnsupported; paramErr unless one kind is asked for.
void GetTrackNextInterestingTime(Track track, std::int16_t flags, TimeValue from, Fixed rate,
                                 TimeValue* time, TimeValue* duration);
// What of the media is shown at a movie time, rounded down to a media unit; -1 where nothing is.
TimeValue TrackTimeToMediaTime(TimeValue time, Track track);
// The sample on show at the media time `at`: its bytes into `out`, which is made to fit but not
// longer than `maxGrow` (0: any length). Gives one sample, or one packet, whatever `maxSamples` is;
// `sampleTime`, when it begins to be shown, and `durationPerSample` are in media units. All results
// but `out` may be null. invalidTime (nothing is on show), paramErr (maxGrow < 0),
// maxSizeToGrowTooSmall, couldNotResolveDataRef, invalidSampleTable (it lies nowhere), eofErr (its
// file has become shorter), file errors.
[[nodiscard]] OSErr GetMediaSample(Media media, Handle out, std::int32_t maxGrow,
                                   std::int32_t* size, TimeValue at, TimeValue* sampleTime,
                                   TimeValue* durationPerSample, Handle description,
                                   std::int32_t* descriptionNumber, std::int32_t maxSamples,
                                   std::int32_t* count, std::int16_t* flags);
// Opens the media for new samples. Their data are held in memory until the movie is written, and
// then go into its file. dataAlreadyOpenForWrite, noDefaultDataRef (it has no data reference),
// dataNotOpenForWrite (its first one leads nowhere).
[[nodiscard]] OSErr BeginMediaEdits(Media media);
// Closes it; what was added belongs to the media from now on. dataAlreadyClosed.
[[nodiscard]] OSErr EndMediaEdits(Media media);

// --- Text media (calls/text_media.cpp)

// Says of the text samples added from now on, with 'encd', what a CFStringEncoding at `data` tells:
// how they are encoded. paramErr (another kind).
[[nodiscard]] OSErr TextMediaSetTextSampleData(MediaHandler handler, const void* data, FourCC kind);
// Adds one sample that lasts `duration` media units to a media that is open. Colours and box may be
// null (black, and an empty box), and `sampleTime`, which gets its media time. Font size, scrolling
// and highlights are not kept. A text of over 65535 bytes is cut between two characters of UTF-8.
// dataNotOpenForWrite, invalidDuration (below 0 or over 32 bits), paramErr (no text, yet a size).
[[nodiscard]] OSErr TextMediaAddTextSample(
    MediaHandler handler, const char* text, std::uint32_t size, std::int16_t font,
    std::int16_t fontSize, std::uint8_t face, const RGBColor* textColor, const RGBColor* backColor,
    std::int16_t justification, const Rect* box, std::int32_t displayFlags, TimeValue scrollDelay,
    std::int16_t highlightStart, std::int16_t highlightEnd, const RGBColor* highlightColor,
    TimeValue duration, TimeValue* sampleTime);

// --- Segments (calls/segments.cpp)

// Lays [sourceIn, sourceIn + sourceDuration) of `source` (its units) into `movie` at `at` (movie
// units): into tracks that fit, else into new ones; media by reference. invalidMovie, invalidTime,
// invalidDuration, couldNotResolveDataRef, invalidSampleTable, featureUnsupported (encrypted
// samples).
[[nodiscard]] OSErr InsertMovieSegment(Movie source, Movie movie, TimeValue sourceIn,
                                       TimeValue sourceDuration, TimeValue at);

// Lays the whole of `source` beside the tracks of `movie`, in new ones: from the start of the
// movie's selection, stretched to fill it or, when it is empty, at its own length. Tracks that then
// show no media go. invalidMovie, couldNotResolveDataRef, invalidSampleTable, featureUnsupported
// (encrypted samples).
void AddMovieSelection(Movie movie, Movie source);
// Lays a stretch of one track into another of the same kind at `at`; by reference. invalidTrack,
// noMediaHandler, mediaTypesDontMatch (also for sound of unequal time scales), invalidTime,
// invalidDuration, couldNotResolveDataRef, invalidSampleTable, featureUnsupported.
[[nodiscard]] OSErr InsertTrackSegment(Track source, Track track, TimeValue sourceIn,
                                       TimeValue sourceDuration, TimeValue at);

// Takes a stretch out; what follows moves left. A stretch may reach past the end. invalidTime
// (start < 0; in a movie also behind its end), invalidDuration (duration < 0).
[[nodiscard]] OSErr DeleteTrackSegment(Track track, TimeValue start, TimeValue duration);
[[nodiscard]] OSErr DeleteMovieSegment(Movie movie, TimeValue start, TimeValue duration);
// Makes a stretch last `newDuration`, showing what it showed, slower or faster. invalidTime
// (start < 0), invalidDuration (a duration that is not above 0).
[[nodiscard]] OSErr ScaleTrackSegment(Track track, TimeValue start, TimeValue oldDuration,
                                      TimeValue newDuration);
[[nodiscard]] OSErr ScaleMovieSegment(Movie movie, TimeValue start, TimeValue oldDuration,
                                      TimeValue newDuration);
// Shows media (its units) in the track from `trackStart` (movie units) on, at `rate`; what follows
// moves right. A start of -1 is the end of the track. No duration: nothing changes. noMediaHandler,
// invalidTime, invalidDuration (a duration below 0, a rate that is not above 0).
[[nodiscard]] OSErr InsertMediaIntoTrack(Track track, TimeValue trackStart, TimeValue mediaTime,
                                         TimeValue mediaDuration, Fixed rate);

// --- User data (calls/user_data.cpp); items of one type are numbered from 1

// Number of items of the type.
std::int16_t CountUserDataType(UserData data, FourCC type);
// The type that first appears after `previous` (0: the first); 0 at the end.
FourCC GetNextUserDataType(UserData data, FourCC previous);
// The payload of an item. userDataItemNotFound.
[[nodiscard]] OSErr GetUserData(UserData data, Handle out, FourCC type, std::int32_t number);
// Replaces the payload of an item, or adds one behind the last; 0 means the first. The data are
// copied. paramErr (size < 0), userDataItemNotFound.
[[nodiscard]] OSErr SetUserDataItem(UserData data, const void* bytes, std::int32_t size,
                                    FourCC type, std::int32_t number);
// Later items of the type move down. userDataItemNotFound.
[[nodiscard]] OSErr RemoveUserData(UserData data, FourCC type, std::int32_t number);
// The text of an item in a language, in its encoding. For language 0, which is in Mac Roman, that
// of no stated language or of an ISO one serves where it has none. userDataItemNotFound.
[[nodiscard]] OSErr GetUserDataText(UserData data, Handle out, FourCC type, std::int32_t number,
                                    std::int16_t language);
// Adds the text in a language to an item, or replaces it there; makes the first item. Bytes behind
// 65535 are lost. paramErr (a type without the copyright sign, or an item that is not of texts),
// userDataItemNotFound.
[[nodiscard]] OSErr AddUserDataText(UserData data, Handle text, FourCC type, std::int32_t number,
                                    std::int16_t language);

// --- Matrices (calls/matrices.cpp): pure arithmetic, no movies error; each is done after what the
// matrix did before. Factors, distances, degrees and centres are Fixed

// Makes it the matrix that changes nothing.
void SetIdentityMatrix(MatrixRecord* matrix);
[[nodiscard]] bool EqualMatrix(const MatrixRecord* a, const MatrixRecord* b);
// `matrix` becomes itself followed by `next`.
void ConcatMatrix(const MatrixRecord* next, MatrixRecord* matrix);
void TranslateMatrix(MatrixRecord* matrix, Fixed dx, Fixed dy);
void ScaleMatrix(MatrixRecord* matrix, Fixed sx, Fixed sy, Fixed aboutX, Fixed aboutY);
// Clockwise on the screen.
void RotateMatrix(MatrixRecord* matrix, Fixed degrees, Fixed aboutX, Fixed aboutY);

// --- Storage (calls/storage.cpp); a data reference that is no alias answers noDataHandler or
// invalidDataRef

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
// Closes the storage; one that was created takes its name and place now, but one that nothing was
// added to replaces no other. Its errors are those of the last writes.
[[nodiscard]] OSErr CloseMovieStorage(DataHandler handler);
// A new, empty movie file, written beside its place until it is closed.
// createMovieFileDeleteCurFile replaces a file that is there. Creator, script and movie are
// ignored: pass null for `movie`. dupFNErr, fBsyErr, afpAccessDenied, fLckdErr, vLckdErr, dirNFErr,
// notAFileErr, dskFulErr.
[[nodiscard]] OSErr CreateMovieStorage(Handle dataRef, FourCC dataRefType, FourCC creator,
                                       std::int16_t script, std::uint32_t flags,
                                       DataHandler* handler, Movie* movie);
// Writes the movie as a reference movie: no media but what is held in memory. A storage that this
// failed for takes nothing more and replaces nothing. dataNotOpenForWrite (not a new one), fBsyErr
// (the file it would replace holds some of the movie's media), couldNotResolveDataRef, dskFulErr,
// ioErr.
[[nodiscard]] OSErr AddMovieToStorage(Movie movie, DataHandler handler);
// Replaces the movie in the file that `handler` opened for writing; media data stay where they are.
// At every instant the file holds one whole movie. fBsyErr (the file has changed since it was
// opened), dataNotOpenForWrite, dskFulErr, ioErr, featureUnsupported (the file would have to be
// made anew, and holds what must not move).
[[nodiscard]] OSErr UpdateMovieInStorage(Movie movie, DataHandler handler);
// Writes a self-contained movie with all media in use, and gives it its name and place. Always
// null: the result is the movies error (those of CreateMovieStorage, couldNotResolveDataRef,
// eofErr, invalidSampleTable, featureUnsupported for encrypted samples that were cut, file errors).
Movie FlattenMovieDataToDataRef(Movie movie, std::uint32_t flags, Handle dataRef,
                                FourCC dataRefType, FourCC creator, std::int16_t script,
                                std::uint32_t createFlags);
// Closes a storage like CloseMovieStorage; invalidComponentID for null.
[[nodiscard]] OSErr CloseComponent(DataHandler component);

// --- Export (calls/export.cpp)

// An exporter: ('spit', 'mpg4') writes MPEG-4 files. The caller closes it. cantFindHandler (any
// other).
[[nodiscard]] OSErr OpenADefaultComponent(FourCC type, FourCC subtype,
                                          MovieExportComponent* component);
[[nodiscard]] OSErr CloseComponent(MovieExportComponent component);
// Takes over what a container of settings says of hint tracks and of what is to be kept as it is;
// other settings in it are passed over. paramErr (a damaged container: nothing changes).
[[nodiscard]] OSErr MovieExportSetSettingsFromAtomContainer(MovieExportComponent component,
                                                            Handle settings);
// Writes the enabled pictures and sound of the movie, or `only` one track of them (null: all), as a
// file of another type and gives it its name and place, replacing a file that is there. `flags` and
// `creator` are ignored; without an exporter the settings are the usual ones. featureUnsupported (a
// type other than 'mpg4', no such track, two of a kind, or one that needs conversion),
// invalidSampleDescription (a damaged one), invalidSampleTable, couldNotResolveDataRef, eofErr,
// file errors.
[[nodiscard]] OSErr ConvertMovieToDataRef(Movie movie, Track only, Handle dataRef,
                                          FourCC dataRefType, FourCC fileType, FourCC creator,
                                          std::uint32_t flags, MovieExportComponent component);

// --- Memory (calls/memory.cpp)

// `size` zero bytes; null when size < 0 or memory is short.
[[nodiscard]] Handle NewHandle(std::int64_t size);
[[nodiscard]] Handle NewHandleClear(std::int64_t size);
// Appends a copy of the bytes. nilHandleErr, paramErr (size < 0).
[[nodiscard]] OSErr PtrAndHand(const void* bytes, Handle handle, std::int64_t size);
// A new handle with a copy of the bytes. paramErr (size < 0).
[[nodiscard]] OSErr PtrToHand(const void* bytes, Handle* handle, std::int64_t size);
// In bytes.
std::int64_t GetHandleSize(Handle handle);
// Null is allowed.
void DisposeHandle(Handle handle);

// --- Strings and paths (calls/strings.cpp)

// A string of the text; in UTF-8 a path may hold other bytes, which are kept. Null when it is not
// valid in the encoding or the encoding has no converter. The caller releases it.
[[nodiscard]] CFStringRef CFStringCreateWithCString(const void* allocator, const char* text,
                                                    CFStringEncoding encoding);
// Bytes that are not UTF-8 are not valid here. `markMayLead`: a byte-order mark is not part of the
// text.
[[nodiscard]] CFStringRef CFStringCreateWithBytes(const void* allocator, const std::uint8_t* bytes,
                                                  std::int64_t size, CFStringEncoding encoding,
                                                  bool markMayLead);
// In units of UTF-16; 0 for null.
std::int64_t CFStringGetLength(CFStringRef string);
// Puts the units of the range that convert and fit into `buffer`, and their size into `*used`;
// returns how many they are. A null buffer only counts; `used` may be null. `lossByte` stands in
// for each code point that does not convert; 0: the first of them ends it. UTF-16 is big-endian and
// has no mark. paramErr (a range outside the string).
std::int64_t CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                              std::uint8_t lossByte, bool isExternal, std::uint8_t* buffer,
                              std::int64_t size, std::int64_t* used);
// The whole string with a 0 behind it; false when it does not convert or does not fit.
[[nodiscard]] bool CFStringGetCString(CFStringRef string, char* buffer, std::int64_t size,
                                      CFStringEncoding encoding);
// The encoding of a language or, where that does not matter, of a script. paramErr (none, or one
// without a converter).
[[nodiscard]] OSErr GetTextEncodingFromScriptInfo(std::int16_t script, std::int16_t language,
                                                  std::int16_t region, CFStringEncoding* encoding);
void CFRelease(CFStringRef string);
// An alias data reference to the file at `path`, which is absolute and need not exist; the caller
// disposes of it. paramErr (null, empty or relative path, or a style but kQTPOSIXPathStyle),
// bdNamErr (too long).
[[nodiscard]] OSErr QTNewDataReferenceFromFullPathCFString(CFStringRef path, int style,
                                                           std::uint32_t flags, Handle* dataRef,
                                                           FourCC* dataRefType);

// A boolean of the user's settings file of `application`. `*valid`: the key is there and is one.
[[nodiscard]] bool CFPreferencesGetAppBooleanValue(CFStringRef key, CFStringRef application,
                                                   bool* valid);

// --- Folders (calls/folders.cpp)

// The user's desktop folder (kUserDomain, kDesktopFolderType), made when it is missing and `create`
// is set. fnfErr, paramErr (another folder), file errors.
[[nodiscard]] OSErr FSFindFolder(std::int16_t domain, FourCC type, bool create, FSRef* folder);
// The path as UTF-8 with a 0 behind it. pathTooLongErr when it does not fit into `size` bytes;
// errFSBadFSRef for an empty reference.
[[nodiscard]] OSErr FSRefMakePath(const FSRef* reference, unsigned char* path, std::uint32_t size);

}  // namespace toolbox
