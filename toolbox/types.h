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
struct ExporterRecord;
struct StringRecord;

// A resizable block of bytes; whoever makes one disposes of it.
struct HandleRecord {
  Bytes bytes;
  // Of a data reference to memory: the block that it stands for, once it has been used as one.
  std::shared_ptr<Bytes> block;
};

// A folder or file found by FSFindFolder; empty until then.
struct FSRef {
  std::string path;
};

// Pixels.
struct Rect {
  std::int16_t top = 0, left = 0, bottom = 0, right = 0;
};

struct RGBColor {
  std::uint16_t red = 0, green = 0, blue = 0;
};

// A stretch of a string, in units of UTF-16.
struct CFRange {
  std::int64_t location = 0, length = 0;
};

// a b u / c d v / tx ty w, row by row: u, v and w are 2.30, the others Fixed. A point (x, y) goes
// to (a x + c y + tx, b x + d y + ty); y grows downwards.
using MatrixRecord = std::array<std::int32_t, 9>;

using Movie = MovieRecord*;
using Track = TrackRecord*;
using Media = MediaRecord*;
using MediaHandler = MediaRecord*;
using UserData = UserDataRecord*;
using DataHandler = StorageRecord*;
using QTMutableSampleTableRef = SampleTableRecord*;
using MovieExportComponent = ExporterRecord*;
using CFStringRef = const StringRecord*;
using Handle = HandleRecord*;
using TimeValue = std::int64_t;
using TimeScale = std::int32_t;
using Fixed = std::int32_t;  // 16.16
using CFStringEncoding = std::uint32_t;

// New-movie flags. Only newMovieDontResolveDataRefs means something here: there are no dialogues.
inline constexpr std::int16_t newMovieActive = 1;
inline constexpr std::int16_t newMovieDontResolveDataRefs = 2;
inline constexpr std::int16_t newMovieDontAskUnresolvedDataRefs = 4;

// Flatten flags. The movie always goes into the file itself.
inline constexpr std::uint32_t flattenAddMovieToDataFork = 0x1;
inline constexpr std::uint32_t flattenActiveTracksOnly = 0x2;  // only those that are enabled
inline constexpr std::uint32_t flattenDontInterleaveFlatten = 0x4;
inline constexpr std::uint32_t flattenCompressMovieResource = 0x20;
inline constexpr std::uint32_t flattenForceMovieResourceBeforeMovieData = 0x40;

// Track look-up flags.
inline constexpr std::int32_t movieTrackMediaType = 1;
inline constexpr std::int32_t movieTrackCharacteristic = 2;
inline constexpr std::int32_t movieTrackEnabledOnly = 4;

inline constexpr Fixed fixedOne = 0x10000;

// Interesting-time flags.
inline constexpr std::int16_t nextTimeMediaSample = 0x0001;
inline constexpr std::int16_t nextTimeEdgeOK = 0x4000;

// Sample flags.
inline constexpr std::int16_t mediaSampleNotSync = 1;  // needs others to be decoded

// Text media.
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

// What does not matter of a script, a language and a region.
inline constexpr std::int16_t kTextScriptDontCare = -128;
inline constexpr std::int16_t kTextLanguageDontCare = -128;
inline constexpr std::int16_t kTextRegionDontCare = -128;

}  // namespace toolbox
