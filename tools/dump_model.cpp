#include "tools/dump_model.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <string>

#include "toolbox/atoms/fields.h"
#include "toolbox/files/file_reference.h"

namespace tools {
namespace {

using toolbox::ByteSpan;
using toolbox::MediaRecord;
using toolbox::MovieRecord;
using toolbox::TrackRecord;
using Path = boost::filesystem::path;

double Fixed(std::int32_t value) { return value / 65536.0; }

// Bytes outside printable ASCII as "\xNN".
std::string Readable(ByteSpan bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    const std::string character = toolbox::FourCC(0x20202000U | byte).Text().substr(3);
    text += character == "\"" || character == "\\" ? '\\' + character : character;
  }
  return text;
}

// Three letters, or the number of a language of older systems.
std::string Language(std::uint16_t language) {
  constexpr std::uint16_t kFirstPacked = 0x400, kUnspecified = 0x7FFF;
  if (language < kFirstPacked || language == kUnspecified) return std::to_string(language);
  std::string letters;
  for (const int shift : {10, 5, 0}) {
    letters += static_cast<char>(0x60 + (language >> shift & 0x1F));
  }
  return Readable({reinterpret_cast<const std::uint8_t*>(letters.data()), letters.size()});
}

class Model {
 public:
  Model(const MovieRecord& movie, bool showsDates, std::ostream& out)
      : movie_(movie), showsDates_(showsDates), out_(out) {}

  void Print() {
    out_ << "movie";
    if (movie_.file) out_ << ' ' << movie_.file->path.filename().string();
    out_ << ": scale " << movie_.scale << " duration " << movie_.Duration().units;
    if (movie_.rate != 0x10000) out_ << " rate " << Fixed(movie_.rate);
    PrintMatrix(movie_.matrix);
    PrintDates(movie_);
    out_ << '\n';
    PrintUserData(movie_.userData, "");
    for (std::size_t i = 0; i < movie_.tracks.size(); ++i) PrintTrack(i + 1, *movie_.tracks[i]);
  }

 private:
  void PrintDates(const auto& record) {
    if (showsDates_) out_ << " created " << record.created << " modified " << record.modified;
  }

  void PrintMatrix(const toolbox::Matrix& matrix) {
    if (matrix == toolbox::kIdentityMatrix) return;
    out_ << " matrix [";
    for (std::size_t i = 0; i < matrix.size(); ++i) {
      // The last column is 2.30.
      out_ << (i == 0       ? ""
               : i % 3 == 0 ? "; "
                            : " ")
           << Fixed(matrix[i]) / (i % 3 == 2 ? 16384 : 1);
    }
    out_ << ']';
  }

  void PrintTrack(std::size_t number, const TrackRecord& track) {
    out_ << "track " << number << " id " << track.id;
    if (track.media) out_ << " '" << track.media->Type().Text() << '\'';
    out_ << (track.IsEnabled() ? " enabled" : " disabled");
    if (track.media) out_ << " scale " << track.media->scale;
    out_ << " size " << Fixed(track.width) << 'x' << Fixed(track.height);
    if (track.media) out_ << " language " << Language(track.media->language);
    out_ << " volume " << track.volume / 256.0 << " layer " << track.layer << " group "
         << track.alternateGroup;
    PrintMatrix(track.matrix);
    PrintDates(track);
    out_ << '\n';
    PrintReferences(track);
    PrintEdits(track);
    if (track.media) PrintMedia(*track.media);
    PrintUserData(track.userData, "  ");
  }

  void PrintReferences(const TrackRecord& track) {
    for (const toolbox::TrackReferences& references : track.references) {
      out_ << "  references '" << references.type.Text() << '\'';
      for (const TrackRecord* target : references.targets) {
        const auto found =
            std::ranges::find(movie_.tracks, target, &std::unique_ptr<TrackRecord>::get);
        if (found == movie_.tracks.end()) {
          out_ << " none";
        } else {
          out_ << ' ' << found - movie_.tracks.begin() + 1;
        }
      }
      out_ << '\n';
    }
  }

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

  void PrintMedia(const MediaRecord& media) {
    for (std::size_t i = 0; i < media.descriptions.size(); ++i) {
      const toolbox::SampleDescription& description = media.descriptions[i];
      out_ << "  description " << i + 1 << " '" << description.Format().Text() << "' in "
           << description.dataReference + 1 << '\n';
    }
    for (std::size_t i = 0; i < media.dataReferences.size(); ++i) {
      out_ << "  data reference " << i + 1 << ' ' << Text(media.dataReferences[i]) << '\n';
    }
    PrintSamples(media.samples);
    PrintUserData(media.userData, "  media ");
  }

  std::string Text(const toolbox::DataReference& reference) const {
    if (std::holds_alternative<toolbox::ThisFile>(reference)) return "this file";
    if (std::holds_alternative<toolbox::InMemory>(reference)) return "memory";
    if (const auto* file = std::get_if<toolbox::OtherFile>(&reference)) {
      return "file " + FromHere(file->path);
    }
    const auto& unresolved = std::get<toolbox::Unresolved>(reference);
    return '\'' + unresolved.kind.Text() + "' " + WhereTo(unresolved);
  }

  std::string WhereTo(const toolbox::Unresolved& unresolved) const {
    const Path here = movie_.file ? movie_.file->path : Path();
    const toolbox::DataReference found = toolbox::ReadDataReference(
        {unresolved.kind, unresolved.versionAndFlags, unresolved.record}, here, true);
    if (const auto* file = std::get_if<toolbox::OtherFile>(&found)) {
      return "file " + FromHere(file->path);
    }
    return "not found, " + std::to_string(unresolved.record.size()) + " bytes";
  }

  // The path as seen from the folder of the movie.
  std::string FromHere(const Path& path) const {
    const Path shown =
        movie_.file ? path.lexically_relative(movie_.file->path.parent_path()) : path;
    const std::string& text = shown.native();
    return Readable({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  }

  void PrintSamples(const toolbox::SampleTable& samples) {
    out_ << "  samples " << samples.Count() << " duration " << samples.Duration();
    if (samples.HasSyncTable()) {
      std::uint64_t sync = 0;
      samples.ForEachSync([&](std::uint64_t) { ++sync; });
      out_ << " sync " << sync;
    }
    if (samples.HasOffsets()) {
      std::int32_t smallest = INT32_MAX, largest = INT32_MIN;
      samples.ForEachOffset([&](std::uint32_t, std::int32_t offset) {
        smallest = std::min(smallest, offset);
        largest = std::max(largest, offset);
      });
      out_ << " offsets " << smallest << ".." << largest;
    }
    std::uint64_t chunks = 0, size = 0;
    const std::uint64_t located = samples.LocatedCount();
    samples.ForEachPiece(0, located, [&](const toolbox::SamplePiece& piece) {
      ++chunks;
      size += piece.size;
    });
    out_ << " chunks " << chunks << " bytes " << size;
    if (located != samples.Count()) out_ << " unlocated " << samples.Count() - located;
    out_ << '\n';
  }

  void PrintUserData(const toolbox::UserDataRecord& data, const char* indent) {
    for (const toolbox::UserDataItem& item : data.items) {
      out_ << indent << "user data '" << item.type.Text() << "' " << item.payload.size();
      PrintTexts(item);
      out_ << '\n';
    }
  }

  // QuickTime: types that start with 0xA9 hold texts, each behind its length and language. Others
  // hold what they like.
  void PrintTexts(const toolbox::UserDataItem& item) {
    ByteSpan rest = item.payload;
    if (item.type.value >> 24 == 0xA9) {
      while (rest.size() >= 4) {
        const std::size_t length = std::min<std::size_t>(
            toolbox::FromBigEndian<std::uint16_t>(rest.data()), rest.size() - 4);
        out_ << ' ' << Language(toolbox::FromBigEndian<std::uint16_t>(&rest[2])) << " \""
             << Readable(rest.subspan(4, length)) << '"';
        rest = rest.subspan(4 + length);
      }
      return;
    }
    while (!rest.empty() && rest.back() == 0) rest = rest.first(rest.size() - 1);
    const auto isPrintable = [](std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F; };
    if (!rest.empty() && std::ranges::all_of(rest, isPrintable)) {
      out_ << " \"" << Readable(rest) << '"';
    }
  }

  const MovieRecord& movie_;
  const bool showsDates_;
  std::ostream& out_;
};

}  // namespace

void DumpModel(const MovieRecord& movie, bool showsDates, std::ostream& out) {
  Model(movie, showsDates, out).Print();
}

}  // namespace tools
