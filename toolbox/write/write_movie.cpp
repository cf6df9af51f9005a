#include "toolbox/write/write_movie.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "toolbox/atoms/compressed_movie.h"
#include "toolbox/atoms/container_atoms.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/plan/gps_data.h"
#include "toolbox/references/data_references.h"
#include "toolbox/refused.h"
#include "toolbox/write/write_samples.h"

namespace toolbox {
namespace {

// A track that shows its whole media once needs no edit list. It gets a list only if it had one in
// the source, because some players shift the picture if there is a list.
bool NeedsEditList(const TrackRecord& track) {
  const bool hadList =
      std::ranges::find(track.siblings, EditAtoms::kType, &Sibling::type) != track.siblings.end();
  const MediaTime whole = track.media ? track.media->samples.Duration() : MediaTime{};
  const std::vector<Edit>& edits = track.edits.Edits();
  if (edits.empty()) return whole != MediaTime{};
  // A difference of one unit comes from rounding to the time scale of the movie.
  const auto lasts = [&](MediaTime length) {
    const std::int64_t difference =
        edits[0].duration.units - track.TimeClock().Lasting(length, 1.0).units;
    return difference >= -1 && difference <= 1;
  };
  // Without a list, players show the media until its last sample in display order ends.
  const bool isPlain =
      edits.size() == 1 && edits[0].mediaTime == MediaTime{} && edits[0].rate == 1.0 &&
      (lasts(whole) || lasts(track.media ? track.media->samples.ShownUntil() : MediaTime{}));
  return hadList || !isPlain;
}

// The rows of 'elst'. Rates are fixed-point numbers with 16 fraction bits.
EditEntries Edits(const EditList& list) {
  EditEntries edits;
  edits.entries.reserve(std::max<std::size_t>(list.Edits().size(), 1));
  // A track that shows nothing needs an empty edit. Without a list it would show all of its media.
  if (list.Edits().empty()) edits.entries.push_back({0, -1, 0x10000});
  for (const Edit& edit : list.Edits()) {
    const double rate = std::round(edit.rate * 65536);
    edits.entries.push_back({static_cast<std::uint64_t>(edit.duration.units), edit.mediaTime.units,
                             static_cast<std::int32_t>(std::min(rate, double{INT32_MAX}))});
  }
  return edits;
}

std::optional<UserDataAtoms> UserDataOf(const UserDataRecord& data) {
  if (data.items.empty()) return std::nullopt;
  return UserDataAtoms{data.items};
}

TrackReferenceAtoms ReferencesOf(const TrackRecord& track) {
  TrackReferenceAtoms references;
  for (const TrackReferences& list : track.references) {
    auto& ids = references.lists.emplace_back(TrackReferenceAtoms::List{list.type, {}}).tracks;
    for (const TrackRecord* target : list.targets) {
      ids.push_back(target == nullptr ? 0 : target->header.id);
    }
  }
  return references;
}

// Makes the atoms of a planned movie. A FieldSizer measures them, and a FieldWriter writes them.
template <class Io>
class AtomMaker {
 public:
  AtomMaker(Io& io, const FilePlan& plan, ReferenceWriter& references, std::uint64_t dataStart,
            std::uint64_t now)
      : io_(io), plan_(plan), references_(references), dataStart_(dataStart), now_(now) {}

  // The atoms refer to this object.
  MovieToWrite Movie() {
    const MovieRecord& movie = *plan_.movie;
    MovieToWrite atom;
    atom.header = Dated(movie.header, movie.Duration().units);
    atom.tracks = {movie.tracks.size(), [this](std::size_t index) { return Track(index); }};
    atom.userData = UserDataOf(movie.userData);
    atom.others = movie.siblings;
    if (!plan_.gps.empty()) PlaceGps(atom.others);
    return atom;
  }

 private:
  // States where the GPS data is in the output.
  void PlaceGps(Siblings& siblings) const {
    std::vector<std::uint64_t> offsets;
    for (const CopyRange& range : plan_.gps) offsets.push_back(dataStart_ + range.destination);
    if (SetGpsOffsets(siblings, offsets)) return;
    throw Refused{featureUnsupported, "the GPS data would not be in the first 4 GiB"};
  }

  // Returns the header with its computed fields: the duration and the time of the change.
  template <class Header>
  Header Dated(Header header, std::int64_t duration) const {
    header.modified = now_;
    header.duration = static_cast<std::uint64_t>(duration);
    return header;
  }

  TrackAtoms Track(std::size_t index) {
    const TrackRecord& track = *plan_.movie->tracks[index];
    TrackAtoms atom;
    atom.header = Dated(track.header, track.edits.Duration().units);
    if (NeedsEditList(track)) atom.edits = EditAtoms{Edits(track.edits), track.editSiblings};
    if (!track.references.empty()) atom.references = ReferencesOf(track);
    if (track.media) atom.media = Media(index, *track.media);
    atom.userData = UserDataOf(track.userData);
    atom.others = track.siblings;
    return atom;
  }

  MediaAtoms Media(std::size_t index, const MediaRecord& media) {
    MediaAtoms atom;
    atom.header = Dated(media.header, media.samples.Duration().units);
    atom.handler =
        plan_.kind == FileKind::kQuickTime ? QuickTimeHandler(media.handler) : media.handler;
    atom.information.data = DataInformation{References(media), media.dataSiblings};
    atom.information.table = SampleTableOf(io_, plan_, index, dataStart_);
    atom.information.others = media.infoSiblings;
    atom.userData = UserDataOf(media.userData);
    atom.others = media.siblings;
    return atom;
  }

  DataReferences References(const MediaRecord& media) {
    DataReferences list;
    for (const DataReference& reference : media.dataReferences) {
      list.entries.push_back(references_.AtomFor(reference));
    }
    return list;
  }

  Io& io_;
  const FilePlan& plan_;
  ReferenceWriter& references_;
  const std::uint64_t dataStart_;
  const std::uint64_t now_;
};

}  // namespace

const Bytes& ReferenceWriter::AtomFor(const DataReference& reference) {
  const auto* other = std::get_if<OtherFile>(&reference);
  Bytes& atom = other != nullptr ? aliases_[other->path.native()] : other_;
  if (other != nullptr && !atom.empty()) return atom;
  atom = WriteDataReference(reference, file_, isIso_).Encoded();
  return atom;
}

MovieWriter::MovieWriter(const FilePlan& plan, const boost::filesystem::path& file)
    : plan_(plan),
      references_(file, plan.kind == FileKind::kMpeg4 ||
                            (plan.kind == FileKind::kUnchanged && plan.movie->IsIso())),
      now_(Now()) {}

template <class Io>
void MovieWriter::Put(Io& io, std::uint64_t dataStart) {
  AtomMaker maker(io, plan_, references_, dataStart, now_);
  PutAtom(io, maker.Movie());
}

std::uint64_t MovieWriter::SizeAt(std::uint64_t dataStart) {
  // The start of the data affects only the chunk offsets, and these become wider only beyond 4 GiB.
  const auto isNear = [this](std::uint64_t start) { return start + plan_.dataSize <= UINT32_MAX; };
  const bool isSame =
      measuredFor_ && (*measuredFor_ == dataStart || (isNear(*measuredFor_) && isNear(dataStart)));
  if (!isSame || plan_.shifts != measuredShifts_) {
    measured_ = {};
    Put(measured_, dataStart);
    measuredFor_ = dataStart;
    measuredShifts_ = plan_.shifts;
  }
  return measured_.Size();
}

void MovieWriter::Write(std::uint64_t dataStart, const std::function<void(ByteSpan)>& take) {
  constexpr std::size_t kBlock = 64 << 10;
  SizeAt(dataStart);
  Bytes block(kBlock);
  FieldWriter writer(measured_.Found(), block, take);
  Put(writer, dataStart);
  writer.Flush();
}

Bytes MovieWriter::Encode(std::uint64_t dataStart) {
  Bytes movie(MemorySize(SizeAt(dataStart)));
  FieldWriter writer(measured_.Found(), movie);
  Put(writer, dataStart);
  return movie;
}

Bytes MovieWriter::Compress(std::uint64_t dataStart) {
  MovieDeflater deflater;
  Write(dataStart, [&deflater](ByteSpan block) { deflater.Append(block); });
  std::optional<Bytes> movie = deflater.Finish();
  return movie ? std::move(*movie) : StoreMovie(Encode(dataStart));
}

Bytes FileTypeOf(const FilePlan& plan) {
  if (plan.kind != FileKind::kMpeg4) {
    // QuickTime: the minor version is the year and the month of the format, here March 2005.
    return Encode(FileType{FourCC{"qt  "}, 0x20050300, {'q', 't', ' ', ' '}});
  }
  std::string brands = "mp42isommp41";
  const auto has = [&plan](auto&& isWanted) {
    return std::ranges::any_of(plan.movie->tracks, [&](const auto& track) {
      return track->media && isWanted(*track->media);
    });
  };
  if (has([](const MediaRecord& media) {
        return std::ranges::any_of(media.descriptions, [](const SampleDescription& description) {
          return description.Format() == FourCC{"avc1"};
        });
      })) {
    brands += "avc1";
  }
  // Readers that support this brand accept negative composition offsets.
  if (has([](const MediaRecord& media) { return HasOffsetsBelowZero(media.samples); })) {
    brands += "iso4";
  }
  return Encode(FileType{FourCC{"mp42"}, 0, {brands.begin(), brands.end()}});
}

}  // namespace toolbox
