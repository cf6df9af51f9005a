#include <algorithm>
#include <string>

#include "toolbox/atoms/field_printer.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/references/data_references.h"
#include "tools/dump.h"

namespace tools {
namespace {

using toolbox::ByteSpan;
using toolbox::MediaRecord;
using toolbox::MovieRecord;
using toolbox::TrackRecord;
using Path = boost::filesystem::path;

// A fixed-point number, 16.16.
double Fixed(std::int32_t value) { return value / 65536.0; }

// The three letters of an ISO 639-2 code, or the number of a Macintosh language.
std::string Language(std::uint16_t language) {
  if (language < 0x400 || language == 0x7FFF) return std::to_string(language);
  std::string letters;
  for (const int shift : {10, 5, 0}) {
    letters += static_cast<char>('`' + (language >> shift & 0x1F));
  }
  return letters;
}

// Prints one movie.
class Model {
 public:
  Model(const MovieRecord& movie, bool showsDates, std::ostream& out)
      : movie_(movie),
        file_(movie.file ? movie.file->path : Path()),
        showsDates_(showsDates),
        out_(out) {}

  void Print() {
    out_ << "movie " << file_.filename().string() << ": scale " << movie_.header.scale
         << " duration " << movie_.Duration().units;
    PrintCommon(movie_);
    PrintUserData(movie_.userData, "  movie");
    std::size_t number = 0;
    for (const auto& track : movie_.tracks) PrintTrack(++number, *track);
  }

 private:
  // Prints what movies and tracks have in common, and ends the line.
  void PrintCommon(const auto& record) {
    if (record.header.matrix != toolbox::kIdentityMatrix) {
      out_ << " matrix";
      for (const std::int32_t number : record.header.matrix) out_ << ' ' << number;
    }
    if (showsDates_)
      out_ << " created " << record.header.created << " modified " << record.header.modified;
    out_ << '\n';
  }

  void PrintTrack(std::size_t number, const TrackRecord& track) {
    out_ << "track " << number << " id " << track.header.id;
    if (track.media) {
      out_ << " '" << track.media->Type().Text() << "' scale " << track.media->header.scale
           << " language " << Language(track.media->header.language);
    }
    out_ << (track.IsEnabled() ? " enabled size " : " disabled size ") << Fixed(track.header.width)
         << 'x' << Fixed(track.header.height) << " volume " << track.header.volume / 256.0
         << " layer " << track.header.layer << " group " << track.header.alternateGroup;
    PrintCommon(track);
    PrintReferences(track);
    PrintEdits(track);
    if (track.media) PrintMedia(*track.media);
    PrintUserData(track.userData, "  track");
  }

  // Prints track references with the numbers of tracks as in this output, from 1 on.
  void PrintReferences(const TrackRecord& track) {
    for (const toolbox::TrackReferences& references : track.references) {
      out_ << "  '" << references.type.Text() << "' to";
      for (const TrackRecord* target : references.targets) {
        const auto found = std::ranges::find_if(
            movie_.tracks, [target](const auto& candidate) { return candidate.get() == target; });
        const auto number = found - movie_.tracks.begin() + 1;
        out_ << ' ' << (target == nullptr ? "none" : std::to_string(number));
      }
      out_ << '\n';
    }
  }

  // Prints each edit: its movie time, the media time that it shows, and its rate.
  void PrintEdits(const TrackRecord& track) {
    const char* separator = "  edits ";
    for (const toolbox::Edit& edit : track.edits.Edits()) {
      out_ << separator << '[' << edit.start.units << ',' << edit.End().units << ") ";
      separator = " · ";
      if (edit.IsEmpty()) {
        out_ << "empty";
        continue;
      }
      const auto end = edit.mediaTime + track.TimeClock().Shown(edit.duration, edit.rate);
      out_ << "media [" << edit.mediaTime.units << ',' << end.units << ") x" << edit.rate;
    }
    out_ << (track.edits.Edits().empty() ? "  no edits\n" : "\n");
  }

  // Prints descriptions and data references with numbers from 1 on, as files count them.
  void PrintMedia(const MediaRecord& media) {
    std::size_t number = 0;
    for (const toolbox::SampleDescription& description : media.descriptions) {
      out_ << "  description " << ++number << " '" << description.Format().Text()
           << "' data reference " << description.dataReference + 1 << '\n';
    }
    number = 0;
    for (const toolbox::DataReference& reference : media.dataReferences) {
      out_ << "  data reference " << ++number << ' ' << Text(reference) << '\n';
    }
    PrintSamples(media.samples);
    PrintUserData(media.userData, "  media");
  }

  // The place that a data reference leads to.
  std::string Text(const toolbox::DataReference& reference) const {
    if (std::holds_alternative<toolbox::ThisFile>(reference)) return "this file";
    if (std::holds_alternative<toolbox::InMemory>(reference)) return "memory";
    if (const auto* file = std::get_if<toolbox::OtherFile>(&reference)) {
      return file->path.lexically_relative(file_.parent_path()).string();
    }
    // moviedump reads movies without resolving data references, because a missing file would make
    // the reader refuse the movie.
    const auto& entry = std::get<toolbox::Unresolved>(reference);
    const auto found = toolbox::ReadDataReference(entry, file_, true);
    const bool isThere = !std::holds_alternative<toolbox::Unresolved>(found);
    return '\'' + entry.kind.Text() + "' " + (isThere ? Text(found) : "unresolved");
  }

  // Prints only sums, so that outputs can be compared even if the rows are split differently.
  void PrintSamples(const toolbox::SampleTable& samples) {
    out_ << "  samples " << samples.Count() << " duration " << samples.Duration().units;
    if (HasSyncTable(samples)) {
      std::uint64_t sync = 0;
      ForEachSync(samples, [&](std::uint64_t) { ++sync; });
      out_ << " sync " << sync;
    }
    if (HasOffsets(samples)) {
      std::int32_t smallest = INT32_MAX, largest = INT32_MIN;
      ForEachOffset(samples, [&](std::uint32_t, std::int32_t offset) {
        smallest = std::min(smallest, offset);
        largest = std::max(largest, offset);
      });
      out_ << " offsets " << smallest << ".." << largest;
    }
    std::uint64_t chunks = 0, size = 0;
    const std::uint64_t located = LocatedCount(samples);
    ForEachPiece(samples, {0, located}, [&](const toolbox::SamplePiece& piece) {
      ++chunks;
      size += piece.size;
    });
    out_ << " chunks " << chunks << " size " << size;
    if (located != samples.Count()) out_ << " without a chunk " << samples.Count() - located;
    out_ << '\n';
  }

  // Prints a line for each item; `owner` is what the items belong to.
  void PrintUserData(const toolbox::UserDataRecord& data, const char* owner) {
    for (const toolbox::UserDataItem& item : data.items) {
      // QuickTime: types that start with 0xA9 have text after a length and a language, 2 bytes
      // each.
      const bool isText = item.type.value >> 24 == 0xA9 && item.payload.size() >= 4;
      out_ << owner << " user data '" << item.type.Text() << "' size " << item.payload.size();
      toolbox::FieldPrinter(out_).Rest("text", ByteSpan(item.payload).subspan(isText ? 4 : 0));
      out_ << '\n';
    }
  }

  const MovieRecord& movie_;
  const Path file_;
  const bool showsDates_;
  std::ostream& out_;
};

}  // namespace

void DumpModel(const MovieRecord& movie, bool showsDates, std::ostream& out) {
  Model(movie, showsDates, out).Print();
}

}  // namespace tools
