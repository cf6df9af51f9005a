// The facts about a movie that the summary and the JSON both print.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "clipinfo/chapters.h"
#include "clipinfo/open.h"
#include "clipinfo/tags.h"
#include "toolbox/atoms/header_atoms.h"
#include "toolbox/atoms/sound_format.h"
#include "toolbox/movie/time.h"
#include "toolbox/movie/track.h"

namespace clipinfo {

// The first movie header of a file. Places and sizes are in bytes.
struct HeaderFacts {
  std::uint64_t at = 0, size = 0;
  bool isCompressed = false;
  bool isBeforeMedia = false;  // the file can be played while it is being received
};

// What the file has beside the movie.
struct FileFacts {
  std::string kind;  // such as "QuickTime"
  std::uint64_t size = 0;
  std::optional<toolbox::FileType> type;
  std::optional<HeaderFacts> header;  // nothing for raw AAC
  bool isFragmented = false;
  bool hasMedia = false;
};

// A data reference of a track.
struct ReferenceFacts {
  enum class Kind { kSelf, kFile, kMemory };
  Kind kind = Kind::kSelf;
  // Of kFile. The path where the file is or, if it is missing, where it was. An address that is no
  // path is there as it is, and what has none has an empty path.
  std::string path;
  bool isFound = true;

  friend bool operator==(const ReferenceFacts&, const ReferenceFacts&) = default;
};

// In pixels.
struct Extent {
  double width = 0, height = 0;
  friend bool operator==(const Extent&, const Extent&) = default;
};

// Pictures a second. The duration of the last picture does not count, because it often differs.
struct FrameRates {
  double lowest = 0, highest = 0, average = 0;
  bool IsConstant() const { return lowest == highest; }
};

struct TrackFacts {
  const toolbox::TrackRecord* track = nullptr;
  std::string name;  // as -track takes it
  std::string kind;  // such as "Video"
  std::vector<std::string> codecs;  // each once
  std::string language;  // a code of ISO 639-2
  // Of the first sample description, before the matrix, and of the track on the screen. Nothing if
  // it is not seen.
  std::optional<Extent> coded, shown;
  std::optional<FrameRates> frameRates;  // only of video with two pictures or more
  std::optional<toolbox::SoundFormat> sound;  // of the first sample description
  std::uint64_t samples = 0, syncSamples = 0;
  std::uint64_t bytes = 0;  // of samples that have a place in a file
  std::vector<ReferenceFacts> references;  // in the order of the data references
};

struct Facts {
  FileFacts file;
  std::vector<TrackFacts> tracks;
  std::optional<std::vector<chapter::Chapter>> chapters;  // nothing if there are too many
  std::vector<TagFacts> tags;  // of the movie
};

// The major brand of a file, then the compatible brands in file order.
std::vector<std::string> BrandsOf(const toolbox::FileType& type);

// Gathers the facts, and resolves the data references of `opened`, which must outlive them. Throws
// what reading throws.
Facts GatherFacts(OpenedMovie& opened);

// The format of a sound entry of a media with that time scale, which is also its rate if the entry
// does not state one.
toolbox::SoundFormat SoundOf(toolbox::ByteSpan entry, std::int32_t scale);

// Seconds. `scale` is above 0.
double Seconds(std::int64_t units, std::int32_t scale);
// A date of a header as in ISO 8601, such as "2001-09-09T01:46:40Z". Empty if it is 0 or has no
// year of four digits.
std::string DateText(std::uint64_t date);

}  // namespace clipinfo
