// The movie toolbox: all calls that programs make. Their names are those of the platform.
//
// Errors. Every call sets the movies error, which GetMoviesError returns: noErr, or the code of the
// failure. A call that returns an OSErr returns the same code. A null movie, track, media or handle
// gives invalidMovie, invalidTrack, invalidMedia or nilHandleErr. A null storage gives fnOpnErr, a
// null exporter invalidComponentID, and any other null paramErr. A call that fails changes nothing
// and returns 0 or null, and its results are null or unchanged, unless its text says otherwise. Any
// call may fail with memFullErr. Each call lists its other codes; "file errors" are the errors of
// the system for a file: fnfErr, ioErr, dskFulErr, tmfoErr, bdNamErr.
//
// Ownership. The caller disposes of the movies, storages, exporters, sample tables, handles and
// strings that it gets. Tracks, media and user data belong to their movie and are valid as long as
// they are part of it. A handle that receives a result is resized to fit. Calls copy what is passed
// to them and keep no pointers. A pointer may be null only if its call says so. `allocator` and
// `hints` are ignored; pass null.
//
// Units. Times are 64-bit numbers of units of a time scale, which is the number of units in a
// second. Movie times and track times have the time scale of the movie ("movie units"); media times
// have that of their media ("media units"). A Fixed is a 16.16 number.
//
// Threads. Make all calls from one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "toolbox/types.h"

namespace toolbox {

// --- Start and errors (calls/movies.cpp)

// Starts the toolbox. May be called again. Always returns noErr.
[[nodiscard]] OSErr EnterMovies();
// Returns the code of the last call and resets it to noErr.
[[nodiscard]] OSErr GetMoviesError();

// --- Movies (calls/movies.cpp)

// Returns a new, empty movie with a time scale of 600. `flags` is ignored.
[[nodiscard]] Movie NewMovie(std::int32_t flags);
// Disposes of the movie with its tracks and media. invalidMovie.
void DisposeMovie(Movie movie);
// The number of time units in a second; 0 for a null movie.
TimeScale GetMovieTimeScale(Movie movie);
// Changes the time scale and converts all times of the movie. They are rounded to the nearest unit.
// paramErr (scale <= 0).
void SetMovieTimeScale(Movie movie, TimeScale scale);
// The end of the last track, in movie units. Hint tracks of other tracks do not count, because they
// are not played.
TimeValue GetMovieDuration(Movie movie);
// The matrix that is applied to all tracks after their own.
void GetMovieMatrix(Movie movie, MatrixRecord* matrix);
void SetMovieMatrix(Movie movie, const MatrixRecord* matrix);

// Sets the selection, in movie units; it may extend past the end of the movie. invalidTime (start <
// 0), invalidDuration (duration < 0; the selection then becomes empty at `start`).
void SetMovieSelection(Movie movie, TimeValue start, TimeValue duration);
// Replaces the destination's preferred rate and volume, clipping region, matrix and user data by
// those of the source. invalidMovie.
[[nodiscard]] OSErr CopyMovieSettings(Movie source, Movie destination);
// Sets the function that is called while media of the movie are copied, with the number of bytes
// done and the total. An empty function removes it.
void SetMovieProgressProc(Movie movie,
                          std::function<void(std::uint64_t done, std::uint64_t all)> progress);
// Sets the function that is called before FlattenMovieDataToDataRef and ConvertMovieToDataRef copy
// media of the movie, with the path of each file that they copy from. An empty function removes it.
void SetMovieSourceProc(Movie movie, std::function<void(const std::string& path)> copiesFrom);
// Gets a new handle with the data reference for media that are created without one. The caller
// disposes of it. noDefaultDataRef (there is none; the handle is then null).
[[nodiscard]] OSErr GetMovieDefaultDataRef(Movie movie, Handle* dataRef, FourCC* dataRefType);
// Sets that data reference to a copy of `dataRef`. Its type is 'alis' (a file) or 'hndl' (a block
// of memory). If a 'hndl' handle has only zeros, the call makes a new block. If the same handle is
// passed again, its block is used again. nilHandleErr, invalidDataRef, noDataHandler (any other
// type).
[[nodiscard]] OSErr SetMovieDefaultDataRef(Movie movie, Handle dataRef, FourCC dataRefType);
// The movie's user data, valid as long as the movie. Null only for a null movie.
UserData GetMovieUserData(Movie movie);

// --- Tracks (calls/tracks.cpp)

// The number of tracks.
std::int32_t GetMovieTrackCount(Movie movie);
// The track with that number, counted from 1. badTrackIndex (no such track).
Track GetMovieIndTrack(Movie movie, std::int32_t number);
// The track with that number among those that have the media type `what` (movieTrackMediaType) or
// the characteristic `what` (movieTrackCharacteristic): 'eyes' (visual) or 'ears' (audible). With
// movieTrackEnabledOnly, disabled tracks do not count. Returns null without an error if there is no
// such track. paramErr (flags with both kinds or none).
Track GetMovieIndTrackType(Movie movie, std::int32_t number, FourCC what, std::int32_t flags);
// The end of the track, in movie units from the start of the movie.
TimeValue GetTrackDuration(Track track);
// The length of the empty time before the first media, in movie units.
TimeValue GetTrackOffset(Track track);
// Changes that length, which moves the rest of the track. invalidTime (offset < 0).
void SetTrackOffset(Track track, TimeValue offset);
// Enables or disables the track. A disabled track is neither shown nor heard.
void SetTrackEnabled(Track track, bool isEnabled);
bool GetTrackEnabled(Track track);
// The matrix that is applied to the track's pictures before the movie's.
void GetTrackMatrix(Track track, MatrixRecord* matrix);
void SetTrackMatrix(Track track, const MatrixRecord* matrix);
// The track's user data, valid as long as the track. Null only for a null track.
UserData GetTrackUserData(Track track);
// The track's media. Null, without an error, if it has none.
Media GetTrackMedia(Track track);
// Removes the track with its media and all references to it. invalidTrack.
void DisposeMovieTrack(Track track);
// Adds a track to `destination` with the media type and settings of `source`, but without samples.
// The new media gets the data reference `dataRef`, which must be an alias, or none if it is null.
// invalidTrack, invalidMovie, noDataHandler, invalidDataRef; `*track` is then null.
[[nodiscard]] OSErr AddEmptyTrackToMovie(Track source, Movie destination, Handle dataRef,
                                         FourCC dataRefType, Track* track);
// Adds an enabled track without media after all others. Width and height are in pixels (Fixed). A
// volume of 0x100 is full volume. invalidMovie.
Track NewMovieTrack(Movie movie, Fixed width, Fixed height, std::int16_t volume);
// Gives the track an empty media, with its data in `dataRef` or, if that is null, in the movie's
// default data reference. noDefaultDataRef (there is none), paramErr (scale <= 0), invalidDataRef.
Media NewTrackMedia(Track track, FourCC type, TimeScale scale, Handle dataRef, FourCC dataRefType);

// --- Track references (calls/track_references.cpp): from track to track. References of one type
// are numbered from 1.

// Returns the type that follows `previous`, or the first type if `previous` is 0. The types are in
// the order of their first references. Returns 0 after the last type.
FourCC GetNextTrackReferenceType(Track track, FourCC previous);
// The number of references of the type.
std::int32_t GetTrackReferenceCount(Track track, FourCC type);
// The track that the reference refers to. Null, without an error, if there is no such reference.
Track GetTrackReference(Track track, FourCC type, std::int32_t number);
// Adds a reference to `target` after the others, even if there is one already. `number` receives
// its number and may be null. trackNotInMovie (the target is in another movie).
[[nodiscard]] OSErr AddTrackReference(Track track, Track target, FourCC type, std::int32_t* number);
// Removes a reference; the following ones of the type are renumbered. badTrackIndex (no such
// reference).
[[nodiscard]] OSErr DeleteTrackReference(Track track, FourCC type, std::int32_t number);

// --- Media (calls/media.cpp). The media handler of a media is the media itself.

// The sum of the decode durations of all samples, in media units.
TimeValue GetMediaDuration(Media media);
// Does the same as GetMediaDuration. Only its name says that this is decode time: samples may be
// shown later than they are decoded.
TimeValue GetMediaDecodeDuration(Media media);
// The number of time units in a second; 0 for a null media.
TimeScale GetMediaTimeScale(Media media);
// The media handler. Null only for a null media.
MediaHandler GetMediaHandler(Media media);
// The media type and the manufacturer of the handler. Any result may be null. `creatorName` is left
// unchanged.
void GetMediaHandlerDescription(Media media, FourCC* type, char* creatorName, FourCC* manufacturer);
// The display name of the media type, always in English, such as "Sound". `name` must have room for
// 256 bytes; its first byte receives the length. `actualLanguage` may be null. invalidMedia.
[[nodiscard]] OSErr MediaGetName(MediaHandler handler, unsigned char* name,
                                 std::int32_t wantedLanguage, std::int32_t* actualLanguage);
// Sets how the pictures are drawn over those below, and the color that some modes need.
// badComponentSelector (the media is not visual), invalidMedia.
[[nodiscard]] OSErr MediaSetGraphicsMode(MediaHandler handler, std::int32_t mode,
                                         const RGBColor* opColor);
// The number of sample descriptions.
std::int32_t GetMediaSampleDescriptionCount(Media media);
// Copies a sample description, counted from 1, to the handle: 32-bit size, 32-bit data format, six
// zero bytes, 16-bit data reference number, then fields of the format; all big-endian.
// invalidSampleDescIndex (no such description), nilHandleErr.
void GetMediaSampleDescription(Media media, std::int32_t number, Handle description);

// The number of data references: the files and blocks of memory that samples may be in. They are
// numbered from 1.
[[nodiscard]] OSErr GetMediaDataRefCount(Media media, std::int16_t* count);
// Gets a new handle with a data reference; the caller disposes of it. A reference to the movie's
// own file becomes an alias, so that it is valid elsewhere. `type` and `attributes` may be null.
// badDataRefIndex (no such reference), couldNotResolveDataRef (it is the movie's own file, and the
// movie has none).
[[nodiscard]] OSErr GetMediaDataRef(Media media, std::int16_t number, Handle* dataRef, FourCC* type,
                                    std::int32_t* attributes);
// Adds a data reference after the others, even if there is one like it. `number` receives its
// number and may be null. A reference that this toolbox cannot resolve is kept as it is.
// nilHandleErr, invalidDataRef (damaged).
[[nodiscard]] OSErr AddMediaDataRef(Media media, std::int16_t* number, Handle dataRef, FourCC type);

// --- Sample tables (calls/sample_tables.cpp): copies of the samples of a media, with their data
// references, that can be added to another media. Samples are numbered from 1. The media need not
// be open for editing.

// Gets a new, empty table for samples timed in `scale` units per second. The caller releases it.
// paramErr (scale <= 0).
[[nodiscard]] OSErr QTSampleTableCreateMutable(const void* allocator, TimeScale scale,
                                               const void* hints, QTMutableSampleTableRef* table);
// The number of samples. Sound in packets is counted in samples, not in packets.
std::int64_t QTSampleTableGetNumberOfSamples(QTMutableSampleTableRef table);
// Copies a property to the `room` bytes at `value`. The only property is the total decode duration,
// a TimeValue. `used` receives its size in bytes and may be null. paramErr (too little room),
// featureUnsupported (another property).
[[nodiscard]] OSErr QTSampleTableGetProperty(QTMutableSampleTableRef table, FourCC propertyClass,
                                             FourCC property, std::size_t room, void* value,
                                             std::size_t* used);
// Releases the table. The samples themselves stay where they are. Null is allowed.
void QTSampleTableRelease(QTMutableSampleTableRef table);
// Gets a new table with the samples from the one decoded at `start` (media units) to the end; the
// caller releases it. `maxSamples` and `maxDuration` (media units) limit it if they are above 0,
// but it has at least one sample. A table that `*table` held before is not released. `actualStart`
// receives the decode time of the first sample and may be null. invalidTime (outside the media),
// invalidSampleTable (samples without a location), featureUnsupported (encrypted samples),
// couldNotResolveDataRef (samples in the file of a movie that has none yet).
[[nodiscard]] OSErr CopyMediaMutableSampleTable(Media media, TimeValue start,
                                                TimeValue* actualStart, std::int64_t maxSamples,
                                                TimeValue maxDuration,
                                                QTMutableSampleTableRef* table);
// Appends `count` samples of the table, from number `first` on, to the media, by reference. No
// track shows them yet. They are decoded and shown from the old end of the media on. If their own
// media delays reordered pictures, that delay is removed. `decodeTime` receives the old end, in
// media units, and may be null. paramErr (another time scale, count < 0), invalidSampleNum (samples
// that the table does not have), featureUnsupported (the media has encrypted samples),
// mediaTypesDontMatch (a sample description that cannot refer to a file).
[[nodiscard]] OSErr AddSampleTableToMedia(Media media, QTMutableSampleTableRef table,
                                          std::int64_t first, std::int64_t count,
                                          TimeValue* decodeTime);

// --- Samples (calls/samples.cpp)

// Finds the next sample that starts to be shown after the movie time `from`, or also at it with
// nextTimeEdgeOK. `time` receives the start, rounded up to a movie unit, and `duration` how long it
// is shown. They receive -1 and 0 if there is no such sample or the call fails. Both may be null.
// featureUnsupported (anything but nextTimeMediaSample, or rate <= 0), paramErr (flags that do not
// ask for exactly one thing).
void GetTrackNextInterestingTime(Track track, std::int16_t flags, TimeValue from, Fixed rate,
                                 TimeValue* time, TimeValue* duration);
// The media time that is shown at a movie time, rounded down to a media unit. -1 if nothing is
// shown or the call fails.
TimeValue TrackTimeToMediaTime(TimeValue time, Track track);
// Copies the bytes of the sample that is shown at the media time `at` to `out`, which may grow up
// to `maxGrow` bytes (0: any size). Always copies one sample or one packet of sound; `maxSamples`
// is ignored. `sampleTime` receives the time at which the sample starts to be shown. It and
// `durationPerSample` are in media units. Every result but `out` may be null. invalidTime (nothing
// is shown), paramErr (maxGrow < 0), maxSizeToGrowTooSmall, couldNotResolveDataRef,
// invalidSampleTable (a sample without a location), eofErr (its file is too short), file errors.
[[nodiscard]] OSErr GetMediaSample(Media media, Handle out, std::int32_t maxGrow,
                                   std::int32_t* size, TimeValue at, TimeValue* sampleTime,
                                   TimeValue* durationPerSample, Handle description,
                                   std::int32_t* descriptionNumber, std::int32_t maxSamples,
                                   std::int32_t* count, std::int16_t* flags);
// Opens the media for new samples. They are kept in memory until the movie is written, and then go
// into its file. dataAlreadyOpenForWrite, noDefaultDataRef (the media has no data reference),
// dataNotOpenForWrite (its first data reference cannot be resolved).
[[nodiscard]] OSErr BeginMediaEdits(Media media);
// Closes the media; the new samples belong to it from now on. dataAlreadyClosed.
[[nodiscard]] OSErr EndMediaEdits(Media media);

// --- Text media (calls/text_media.cpp)

// Sets the encoding of the text samples that are added from now on. `kind` must be 'encd', and
// `data` must point to a CFStringEncoding. paramErr (another kind).
[[nodiscard]] OSErr TextMediaSetTextSampleData(MediaHandler handler, const void* data, FourCC kind);
// Adds a sample of `duration` media units to a media that is open for new samples. Null colors are
// black, a null box is empty. `sampleTime` receives its media time and may be null. Font size,
// scrolling and highlights are ignored. A text of more than 65535 bytes is cut between two UTF-8
// characters. dataNotOpenForWrite, invalidDuration (below 0 or more than 32 bits), paramErr (a size
// without a text).
[[nodiscard]] OSErr TextMediaAddTextSample(
    MediaHandler handler, const char* text, std::uint32_t size, std::int16_t font,
    std::int16_t fontSize, std::uint8_t face, const RGBColor* textColor, const RGBColor* backColor,
    std::int16_t justification, const Rect* box, std::int32_t displayFlags, TimeValue scrollDelay,
    std::int16_t highlightStart, std::int16_t highlightEnd, const RGBColor* highlightColor,
    TimeValue duration, TimeValue* sampleTime);

// --- Segments (calls/segments.cpp)

// Inserts [sourceIn, sourceIn + sourceDuration) of `source`, in units of `source`, into `movie` at
// `at`, in units of `movie`. Uses tracks of `movie` that fit, else new ones. Media are referred to,
// not copied. invalidMovie, invalidTime, invalidDuration, couldNotResolveDataRef,
// invalidSampleTable, featureUnsupported (encrypted samples).
[[nodiscard]] OSErr InsertMovieSegment(Movie source, Movie movie, TimeValue sourceIn,
                                       TimeValue sourceDuration, TimeValue at);

// Adds all of `source` to `movie` in new tracks, starting at the movie's selection: scaled to the
// length of the selection or, if that is empty, at its own length. Tracks that then show no media
// are removed. invalidMovie, couldNotResolveDataRef, invalidSampleTable, featureUnsupported
// (encrypted samples).
void AddMovieSelection(Movie movie, Movie source);
// Inserts a segment of a track into another track of the same media type at `at`. Media are
// referred to, not copied. `sourceIn` and `sourceDuration` are in movie units of `source`, `at` in
// those of `track`. invalidTrack, noMediaHandler (a track without media), mediaTypesDontMatch (also
// sound with different time scales, or samples that cannot be in one track), invalidTime,
// invalidDuration, couldNotResolveDataRef, invalidSampleTable, featureUnsupported (encrypted
// samples).
[[nodiscard]] OSErr InsertTrackSegment(Track source, Track track, TimeValue sourceIn,
                                       TimeValue sourceDuration, TimeValue at);

// Removes a segment, in movie units; what follows moves to its start. The segment may extend past
// the end. invalidTime (start < 0, or after the end of a movie), invalidDuration (duration < 0).
[[nodiscard]] OSErr DeleteTrackSegment(Track track, TimeValue start, TimeValue duration);
[[nodiscard]] OSErr DeleteMovieSegment(Movie movie, TimeValue start, TimeValue duration);
// Changes the length of a segment to `newDuration`, in movie units; it shows the same media, slower
// or faster. invalidTime (start < 0), invalidDuration (a duration <= 0).
[[nodiscard]] OSErr ScaleTrackSegment(Track track, TimeValue start, TimeValue oldDuration,
                                      TimeValue newDuration);
[[nodiscard]] OSErr ScaleMovieSegment(Movie movie, TimeValue start, TimeValue oldDuration,
                                      TimeValue newDuration);
// Shows a segment of the media (media units) in the track from `trackStart` (movie units) on, at
// `rate`; what follows moves right. A `trackStart` of -1 is the end of the track. A duration of 0
// changes nothing. If a track that shows nothing gets all of its media, reordered pictures lose
// their delay: every picture is shown, and the first one at media time 0. noMediaHandler (a track
// without media), invalidTime, invalidDuration (duration < 0 or rate <= 0).
[[nodiscard]] OSErr InsertMediaIntoTrack(Track track, TimeValue trackStart, TimeValue mediaTime,
                                         TimeValue mediaDuration, Fixed rate);

// --- User data (calls/user_data.cpp). Items of one type are numbered from 1.

// The number of items of the type.
std::int16_t CountUserDataType(UserData data, FourCC type);
// Returns the type that follows `previous`, or the first type if `previous` is 0. The types are in
// the order of their first items. Returns 0 after the last type.
FourCC GetNextUserDataType(UserData data, FourCC previous);
// Copies the payload of an item to the handle. userDataItemNotFound, nilHandleErr.
[[nodiscard]] OSErr GetUserData(UserData data, Handle out, FourCC type, std::int32_t number);
// Replaces the payload of an item by a copy of `size` bytes, or adds an item after the last. 0
// means the first item. paramErr (size < 0), userDataItemNotFound.
[[nodiscard]] OSErr SetUserDataItem(UserData data, const void* bytes, std::int32_t size,
                                    FourCC type, std::int32_t number);
// Removes an item; the following ones of the type are renumbered. userDataItemNotFound.
[[nodiscard]] OSErr RemoveUserData(UserData data, FourCC type, std::int32_t number);
// Copies the text that an item has in a language, in the encoding of that language. If there is
// none for language 0 (Mac Roman), a text without a language or with an ISO language is used.
// userDataItemNotFound, nilHandleErr.
[[nodiscard]] OSErr GetUserDataText(UserData data, Handle out, FourCC type, std::int32_t number,
                                    std::int16_t language);
// Adds the text in a language to an item, or replaces it. Creates the first item. Bytes after the
// first 65535 are cut off. paramErr (a type that does not start with the copyright sign, or an item
// that holds no texts), userDataItemNotFound, nilHandleErr.
[[nodiscard]] OSErr AddUserDataText(UserData data, Handle text, FourCC type, std::int32_t number,
                                    std::int16_t language);

// --- Matrices (calls/matrices.cpp). These calls do not set the movies error. Each appends a
// transformation to what the matrix does already. Factors, distances (pixels), angles (degrees) and
// centers (pixels) are Fixed.

// Sets the matrix that changes nothing.
void SetIdentityMatrix(MatrixRecord* matrix);
// Whether all values are equal.
[[nodiscard]] bool EqualMatrix(const MatrixRecord* a, const MatrixRecord* b);
// Applies `next` after `matrix`.
void ConcatMatrix(const MatrixRecord* next, MatrixRecord* matrix);
// Moves right by `dx` and down by `dy`.
void TranslateMatrix(MatrixRecord* matrix, Fixed dx, Fixed dy);
// Scales about a center.
void ScaleMatrix(MatrixRecord* matrix, Fixed sx, Fixed sy, Fixed aboutX, Fixed aboutY);
// Rotates about a center, clockwise on the screen.
void RotateMatrix(MatrixRecord* matrix, Fixed degrees, Fixed aboutX, Fixed aboutY);

// --- Movie files (calls/storage.cpp). A data reference must be an alias to a file: any other type
// gives noDataHandler, a damaged alias gives invalidDataRef.

// Opens the movie in a file. The caller disposes of it. With newMovieDontResolveDataRefs, it does
// not look for media in other files; other flags are ignored. `resourceId` is set to -1 and may be
// null. couldNotResolveDataRef (no such file, or media that cannot be found), noMovieFound,
// badPublicMovieAtom (a damaged movie), cantFindHandler (a movie header compressed in an unknown
// way), afpAccessDenied, notAFileErr, file errors.
[[nodiscard]] OSErr NewMovieFromDataRef(Movie* movie, std::int16_t flags, std::int16_t* resourceId,
                                        Handle dataRef, FourCC dataRefType);
// Opens a movie file to read it or, with kDataHCanWrite, to update it later; that locks it against
// others. The caller closes it. fBsyErr, afpAccessDenied, file errors.
[[nodiscard]] OSErr OpenMovieStorage(Handle dataRef, FourCC dataRefType, std::uint32_t flags,
                                     DataHandler* handler);
// Closes the storage, even if it returns an error. A new file gets its name now; an empty one does
// not replace an existing file. fBsyErr (a file that the movie refers to has changed), errors of
// the last writes.
[[nodiscard]] OSErr CloseMovieStorage(DataHandler handler);
// Creates a new, empty movie file, which gets its name when it is closed. With
// createMovieFileDeleteCurFile it then replaces an existing file. `creator`, `script` and `movie`
// are ignored; pass null as `movie`. dupFNErr, fBsyErr (somebody has the file open, or a movie of
// this process was opened from it or has media in it), afpAccessDenied, fLckdErr, vLckdErr,
// dirNFErr, notAFileErr, dskFulErr.
[[nodiscard]] OSErr CreateMovieStorage(Handle dataRef, FourCC dataRefType, FourCC creator,
                                       std::int16_t script, std::uint32_t flags,
                                       DataHandler* handler, Movie* movie);
// Writes the movie as a reference movie: without media, except for media in memory. After a failure
// the storage accepts nothing more and replaces no file. dataNotOpenForWrite (not a new file),
// noMovieFound (a movie without duration would replace a file), couldNotResolveDataRef, dskFulErr,
// ioErr.
[[nodiscard]] OSErr AddMovieToStorage(Movie movie, DataHandler handler);
// Replaces the movie in a file that was opened for writing; media data stay where they are. The
// file contains a complete movie at every moment. fBsyErr (somebody has changed the file since it
// was opened, or media that something else refers to would move), noMovieFound (the movie has no
// duration), dataNotOpenForWrite, dskFulErr, ioErr, featureUnsupported (the file has to be
// written anew, and has data that must not move).
[[nodiscard]] OSErr UpdateMovieInStorage(Movie movie, DataHandler handler);
// Appends bytes to a new file that is not a movie. `offset` is their position, which must be the
// current end of the file. dataNotOpenForWrite (not a new file), dskFulErr, ioErr.
[[nodiscard]] OSErr DataHWrite64(DataHandler handler, const void* bytes, std::int64_t offset,
                                 std::uint32_t size);
// Writes a self-contained movie, with all media that it uses, to a new file. Always returns null:
// the result is the movies error. The codes of CreateMovieStorage, noMovieFound (a movie without
// duration would replace a file), couldNotResolveDataRef, eofErr (a media file is too short),
// invalidSampleTable, featureUnsupported (encrypted samples that were cut), file errors.
Movie FlattenMovieDataToDataRef(Movie movie, std::uint32_t flags, Handle dataRef,
                                FourCC dataRefType, FourCC creator, std::int16_t script,
                                std::uint32_t createFlags);
// Closes a storage, as CloseMovieStorage does. invalidComponentID (null).
[[nodiscard]] OSErr CloseComponent(DataHandler component);
// Removes the temporary files of new storages that are not closed yet. Only file systems that
// cannot create a file without a name have such files. This call is safe in a signal handler and
// does not set the movies error.
void RemoveUnfinishedFiles();

// --- Export (calls/export.cpp)

// Opens an exporter; the caller closes it. The only one is ('spit', 'mpg4'), which writes MPEG-4
// files. cantFindHandler (any other).
[[nodiscard]] OSErr OpenADefaultComponent(FourCC type, FourCC subtype,
                                          MovieExportComponent* component);
// Closes an exporter. invalidComponentID (null).
[[nodiscard]] OSErr CloseComponent(MovieExportComponent component);
// Replaces the settings of the exporter: those for hint tracks, and whether samples are copied or
// encoded again. A setting that is missing gets its default. Other settings are ignored. paramErr
// (a damaged container; nothing changes), nilHandleErr.
[[nodiscard]] OSErr MovieExportSetSettingsFromAtomContainer(MovieExportComponent component,
                                                            Handle settings);
// Exports the enabled video track and the enabled sound track of the movie, and the text tracks
// that are its chapters, to a new file. Replaces an existing file. If `only` is not null, no other
// video or sound track is exported. Without an exporter, the settings are the defaults. `flags` and
// `creator` are ignored. featureUnsupported (a file type other than 'mpg4', no track to export, two
// tracks of one type, or samples that would have to be encoded again), invalidSampleDescription
// (damaged), invalidSampleTable, couldNotResolveDataRef, eofErr, file errors.
[[nodiscard]] OSErr ConvertMovieToDataRef(Movie movie, Track only, Handle dataRef,
                                          FourCC dataRefType, FourCC fileType, FourCC creator,
                                          std::uint32_t flags, MovieExportComponent component);

// --- Memory (calls/memory.cpp)

// Both return a new handle of `size` zero bytes. paramErr (size < 0).
[[nodiscard]] Handle NewHandle(std::int64_t size);
[[nodiscard]] Handle NewHandleClear(std::int64_t size);
// Appends a copy of `size` bytes to the handle. nilHandleErr, paramErr (size < 0).
[[nodiscard]] OSErr PtrAndHand(const void* bytes, Handle handle, std::int64_t size);
// Gets a new handle with a copy of `size` bytes. paramErr (size < 0).
[[nodiscard]] OSErr PtrToHand(const void* bytes, Handle* handle, std::int64_t size);
// The size in bytes; 0 for null.
std::int64_t GetHandleSize(Handle handle);
// Disposes of the handle. Null is allowed.
void DisposeHandle(Handle handle);

// --- Strings, paths and preferences (calls/strings.cpp)

// Returns a new string, which the caller releases. A text in UTF-8 may be a path with bytes that
// are not valid UTF-8; they are kept. paramErr (not valid in another encoding, or an encoding that
// has no converter).
[[nodiscard]] CFStringRef CFStringCreateWithCString(const void* allocator, const char* text,
                                                    CFStringEncoding encoding);
// Does the same, but bytes that are not valid UTF-8 are an error too. With `markMayLead`, a
// byte-order mark is not part of the text.
[[nodiscard]] CFStringRef CFStringCreateWithBytes(const void* allocator, const std::uint8_t* bytes,
                                                  std::int64_t size, CFStringEncoding encoding,
                                                  bool markMayLead);
// The length in UTF-16 units; 0 for null.
std::int64_t CFStringGetLength(CFStringRef string);
// Converts the range and copies what fits to the `size` bytes at `buffer`. Returns the number of
// UTF-16 units that were converted; `used` receives the number of bytes and may be null. A null
// buffer only counts. `lossByte` replaces each code point that cannot be converted; with 0, the
// conversion stops there. UTF-16 is big-endian without a mark. `isExternal` is ignored. paramErr (a
// range outside the string).
std::int64_t CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                              std::uint8_t lossByte, bool isExternal, std::uint8_t* buffer,
                              std::int64_t size, std::int64_t* used);
// Copies the whole string with a final zero to `buffer`. Returns false if it cannot be converted or
// does not fit.
[[nodiscard]] bool CFStringGetCString(CFStringRef string, char* buffer, std::int64_t size,
                                      CFStringEncoding encoding);
// The encoding of a language or, if `language` is -128, of a script. `region` is ignored. paramErr
// (none, or one without a converter).
[[nodiscard]] OSErr GetTextEncodingFromScriptInfo(std::int16_t script, std::int16_t language,
                                                  std::int16_t region, CFStringEncoding* encoding);
// Releases the string. Null is allowed.
void CFRelease(CFStringRef string);
// Gets a new alias to the file at `path`, which must be absolute but need not exist. The caller
// disposes of the handle. paramErr (a null, empty or relative path, or a style other than
// kQTPOSIXPathStyle), bdNamErr (too long).
[[nodiscard]] OSErr QTNewDataReferenceFromFullPathCFString(CFStringRef path, int style,
                                                           std::uint32_t flags, Handle* dataRef,
                                                           FourCC* dataRefType);

// Returns a boolean from the user's settings of `application`. `*valid` is true if the key exists
// and has a boolean value.
[[nodiscard]] bool CFPreferencesGetAppBooleanValue(CFStringRef key, CFStringRef application,
                                                   bool* valid);

// --- Folders (calls/folders.cpp)

// Finds the user's desktop folder (kUserDomain, kDesktopFolderType). With `create`, creates it if
// it is missing. fnfErr, paramErr (another folder), file errors.
[[nodiscard]] OSErr FSFindFolder(std::int16_t domain, FourCC type, bool create, FSRef* folder);
// Copies the path in UTF-8 with a final zero to the `size` bytes at `path`. pathTooLongErr (it does
// not fit), errFSBadFSRef (an empty reference).
[[nodiscard]] OSErr FSRefMakePath(const FSRef* reference, unsigned char* path, std::uint32_t size);

}  // namespace toolbox
