// The types, flags and constants of the toolbox calls.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"
#include "toolbox/codes.h"

namespace toolbox {

struct MovieRecord;
struct TrackRecord;
struct MediaRecord;
struct UserDataRecord;
struct SampleTableRecord;
struct StorageRecord;
struct StringRecord;
struct Mpeg4Settings;

// A resizable block of bytes. The caller that gets one disposes of it.
struct HandleRecord {
  Bytes bytes;
  // The block of memory that the handle refers to, once it has been used as a 'hndl' data
  // reference.
  std::shared_ptr<Bytes> block;
};

// The folder found by FSFindFolder; empty until then.
struct FSRef {
  std::string path;
};

// In pixels.
struct Rect {
  std::int16_t top = 0, left = 0, bottom = 0, right = 0;
};

// Each component from 0 to 65535.
struct RGBColor {
  std::uint16_t red = 0, green = 0, blue = 0;
};

// A range of a string, in UTF-16 units.
struct CFRange {
  std::int64_t location = 0, length = 0;
};

// A transformation, row by row: a b u, c d v, tx ty w. u, v and w are 2.30 numbers, the others
// Fixed. A point (x, y) moves to (a x + c y + tx, b x + d y + ty); y points down.
using MatrixRecord = std::array<std::int32_t, 9>;

using Movie = MovieRecord*;
using Track = TrackRecord*;
using Media = MediaRecord*;
using MediaHandler = MediaRecord*;
using UserData = UserDataRecord*;
using DataHandler = StorageRecord*;
using QTMutableSampleTableRef = SampleTableRecord*;
using MovieExportComponent = Mpeg4Settings*;
using CFStringRef = const StringRecord*;
using Handle = HandleRecord*;
using TimeValue = std::int64_t;  // in units of a time scale
using TimeScale = std::int32_t;  // units per second
using Fixed = std::int32_t;  // 16.16
using CFStringEncoding = std::uint32_t;

// Flags for opening a movie. Only newMovieDontResolveDataRefs has an effect: this toolbox has no
// dialogs and plays nothing.
inline constexpr std::int16_t newMovieActive = 1;
inline constexpr std::int16_t newMovieDontResolveDataRefs = 2;  // look for no other files
inline constexpr std::int16_t newMovieDontAskUnresolvedDataRefs = 4;

// Flatten flags. flattenAddMovieToDataFork is always in force.
inline constexpr std::uint32_t flattenAddMovieToDataFork = 0x1;
inline constexpr std::uint32_t flattenActiveTracksOnly = 0x2;  // enabled tracks only
inline constexpr std::uint32_t flattenDontInterleaveFlatten = 0x4;
inline constexpr std::uint32_t flattenCompressMovieResource = 0x20;
inline constexpr std::uint32_t flattenForceMovieResourceBeforeMovieData = 0x40;

// Flags for finding tracks.
inline constexpr std::int32_t movieTrackMediaType = 1;
inline constexpr std::int32_t movieTrackCharacteristic = 2;
inline constexpr std::int32_t movieTrackEnabledOnly = 4;

inline constexpr Fixed fixedOne = 0x10000;

// Flags for finding times.
inline constexpr std::int16_t nextTimeMediaSample = 0x0001;
inline constexpr std::int16_t nextTimeEdgeOK = 0x4000;  // the start itself counts

// Sample flags.
inline constexpr std::int16_t mediaSampleNotSync = 1;  // needs other samples to be decoded

// Text media: justification and display flags.
inline constexpr std::int16_t teJustCenter = 1;
inline constexpr std::int32_t dfClipToTextBox = 4;

// Attributes of a data reference.
inline constexpr std::int32_t dataRefSelfReference = 1;
inline constexpr std::int32_t dataRefWasNotResolved = 2;

// Properties of a sample table.
inline constexpr FourCC kQTPropertyClass_SampleTable{"qtst"};
inline constexpr FourCC kQTSampleTablePropertyID_TotalDecodeDuration{"tded"};  // a TimeValue

// Folders.
inline constexpr std::int16_t kUserDomain = -32763;
inline constexpr FourCC kDesktopFolderType{"desk"};

// Storage.
inline constexpr std::uint32_t createMovieFileDeleteCurFile = 0x80000000;
inline constexpr std::uint32_t kDataHCanRead = 1;
inline constexpr std::uint32_t kDataHCanWrite = 8;
inline constexpr std::int16_t smSystemScript = -1;

// Strings and paths.
inline constexpr CFStringEncoding kCFStringEncodingMacRoman = 0;
inline constexpr CFStringEncoding kCFStringEncodingUnicode = 0x100;  // UTF-16
inline constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;
inline constexpr int kQTPOSIXPathStyle = 0;

// Any script, any region.
inline constexpr std::int16_t kTextScriptDontCare = -128;
inline constexpr std::int16_t kTextRegionDontCare = -128;

}  // namespace toolbox
