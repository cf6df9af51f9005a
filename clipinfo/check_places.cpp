// Whether the bytes of all samples are there: in a file that exists, is long enough, and has media
// data at that place. Only the tables are read.
#include <algorithm>
#include <map>
#include <utility>
#include <variant>

#include "clipinfo/findings.h"
#include "clipinfo/media_files.h"
#include "toolbox/movie/sample_places.h"

namespace clipinfo {
namespace {

using toolbox::MediaTime;
using toolbox::SamplePiece;

// Samples of one track that share a problem.
struct Samples {
  std::uint64_t count = 0, first = 0;
  MediaTime length;
  std::uint64_t end = 0;  // where the last of them ends in the file, in bytes

  // Adds the samples [from, to), `to` > `from`.
  void Add(const toolbox::SampleTable& table, std::uint64_t from, std::uint64_t to) {
    first = count == 0 ? from : std::min(first, from);
    count += to - from;
    length += table.TimeOf(to) - table.TimeOf(from);
  }
  // Whether no other sample comes after them.
  bool AreLast(const toolbox::SampleTable& table) const { return first + count == table.Count(); }
};

// "the last 1.250 s of Video Track"
std::string TextFor(const Samples& samples, const TrackToCheck& track) {
  const toolbox::SampleTable& table = track.track.media->samples;
  const std::string length = SecondsText(samples.length.units, track.track.media->header.scale);
  if (samples.count == table.Count()) return "all of " + track.name + " (" + length + ")";
  if (samples.AreLast(table) && samples.length > MediaTime{}) {
    return "the last " + length + " of " + track.name;
  }
  return Counted(samples.count, "sample") + " of " + track.name + ", the first at " +
         WhenShown(track.track, table.TimeOf(samples.first));
}

// A file, and the samples that it does not have.
struct FileUse {
  MediaFile file;
  const TrackToCheck* track = nullptr;  // the first that uses it
  std::size_t reference = 0;  // its index there
  std::vector<std::pair<const TrackToCheck*, Samples>> missing;
};

// Where the chunks of a track are stated.
std::string OffsetsOf(const TrackToCheck& track) {
  const bool isWide = track.stated != nullptr &&
                      track.stated->media->information.table.chunkOffsets &&
                      std::holds_alternative<toolbox::WideChunkOffsets>(
                          *track.stated->media->information.table.chunkOffsets);
  return std::string("mdia/minf/stbl/") + (isWide ? "co64" : "stco");
}

class PlaceCheck {
 public:
  explicit PlaceCheck(const MovieToCheck& movie) : movie_(movie) {}

  void Check() {
    for (const TrackToCheck& track : movie_.tracks) {
      if (track.track.media) CheckTrack(track);
    }
    for (auto& [name, use] : uses_) ReportFile(use);
  }

 private:
  // What a track takes from one file.
  struct Part {
    FileUse* use = nullptr;  // null until a sample needs the file
    Samples missing, outside;
  };

  void CheckTrack(const TrackToCheck& track) {
    const toolbox::MediaRecord& media = *track.track.media;
    std::vector<Part> parts(media.dataReferences.size());
    ForEachPiece(media.samples, {0, LocatedCount(media.samples)}, [&](const SamplePiece& piece) {
      const std::size_t index = media.descriptions[piece.description].dataReference;
      Part& part = parts[index];
      if (part.use == nullptr) part.use = &UseOf(track, index);
      CheckPiece(media.samples, piece, part);
    });
    for (std::size_t i = 0; i < parts.size(); ++i) {
      const Part& part = parts[i];
      if (part.use == nullptr) {
        ReportUnused(track, i);
      } else if (part.missing.count != 0) {
        part.use->missing.emplace_back(&track, part.missing);
      }
      if (part.outside.count == 0) continue;
      const std::string where = part.use->file.name.empty() ? "" : " in " + part.use->file.name;
      track.Warn(OffsetsOf(track),
                 "no media data" + where + " at the place of " +
                     Counted(part.outside.count, "sample") + ", the first at " +
                     WhenShown(track.track, media.samples.TimeOf(part.outside.first)) +
                     ": other bytes may be shown");
    }
  }

  // The file of a data reference, which is opened once.
  FileUse& UseOf(const TrackToCheck& track, std::size_t index) {
    const toolbox::DataReference& reference = track.track.media->dataReferences[index];
    MediaFile found = FileOf(reference, movie_.movie);
    const auto* memory = std::get_if<toolbox::InMemory>(&reference);
    const auto [at, isNew] = uses_.try_emplace({found.name, memory ? memory->data.get() : nullptr});
    if (!isNew) return at->second;
    found.Open();
    at->second = {std::move(found), &track, index, {}};
    return at->second;
  }

  static void CheckPiece(const toolbox::SampleTable& table, const SamplePiece& piece, Part& part) {
    if (piece.size == 0) return;
    const MediaFile& file = part.use->file;
    const std::uint64_t left = file.size - std::min(file.size, piece.offset);
    if (piece.size > left) {
      const std::uint64_t end = piece.sample + piece.count;
      part.missing.Add(table, piece.sample + CountWithin(table, piece, left), end);
      // The offset is at most INT64_MAX, but a hostile size is not limited.
      part.missing.end =
          std::max(part.missing.end, std::max(piece.size, piece.offset + piece.size));
    } else if (!file.IsMediaData(piece.offset, piece.size)) {
      part.outside.Add(table, piece.sample, piece.sample + piece.count);
    }
  }

  // How many samples of the piece are in its first `size` bytes, which is less than all of it.
  static std::uint32_t CountWithin(const toolbox::SampleTable& table, const SamplePiece& piece,
                                   std::uint64_t size) {
    std::uint32_t within = 0, beyond = piece.count;
    while (size != 0 && beyond - within > 1) {
      const std::uint32_t middle = within + (beyond - within) / 2;
      const bool fits = SizeOf(table, piece.sample, middle, piece.description) <= size;
      (fits ? within : beyond) = middle;
    }
    return within;
  }

  void ReportUnused(const TrackToCheck& track, std::size_t index) {
    const auto& reference = track.track.media->dataReferences[index];
    if (!std::holds_alternative<toolbox::Unresolved>(reference)) return;
    track.Warn(PathOfReference(index),
               FileOf(reference, movie_.movie).name + " is not there, but no sample needs it");
  }

  static std::string PathOfReference(std::size_t index) {
    return "mdia/minf/dinf/dref[" + std::to_string(index + 1) + "]";
  }

  // Reports the problems of a file once, whatever number of tracks have samples in it.
  void ReportFile(const FileUse& use) const {
    const MediaFile& file = use.file;
    const bool isOther = !file.name.empty();
    const std::string where =
        use.track->PathOf(isOther ? PathOfReference(use.reference) : OffsetsOf(*use.track));
    if (use.missing.empty()) {
      if (!file.isNewer) return;
      movie_.Warn(where, file.name +
                             " was changed after this movie was saved. If it was "
                             "replaced, the movie shows something else");
      return;
    }
    std::string lost;
    std::uint64_t end = 0;
    bool isCut = true;
    for (const auto& [track, samples] : use.missing) {
      lost += (lost.empty() ? "" : ", ") + TextFor(samples, *track);
      end = std::max(end, samples.end);
      isCut &= samples.AreLast(track->track.media->samples);
    }
    std::string text = "no data for " + lost + ": " + (isOther ? file.name : "the file") + " ";
    if (file.problem.empty()) {
      text += isCut ? "was cut off" : "was cut off, or the offsets of samples are wrong";
      text += " (it has " + std::to_string(file.size) + " of " + std::to_string(end) + " bytes)";
    } else {
      text += file.problem;
    }
    movie_.Fault(where, std::move(text));
  }

  const MovieToCheck& movie_;
  // By name. Blocks of memory have all the same name.
  std::map<std::pair<std::string, const void*>, FileUse> uses_;
};

}  // namespace

void CheckPlaces(const MovieToCheck& movie) { PlaceCheck(movie).Check(); }

}  // namespace clipinfo
