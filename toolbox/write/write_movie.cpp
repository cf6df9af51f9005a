#include "toolbox/write/write_movie.h"

#include <libdeflate.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

#include "toolbox/atoms/framing.h"
#include "toolbox/atoms/header_atoms.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/references/file_reference.h"
#include "toolbox/refused.h"
#include "toolbox/write/write_samples.h"

namespace toolbox {
namespace {

std::uint64_t Unsigned(MovieTime time) { return static_cast<std::uint64_t>(time.units); }

// A time that has 32 bits in every file; one that does not fit is not stated.
std::uint32_t Narrow(MovieTime time) {
  return time.units < 0 || time.units > UINT32_MAX ? 0 : static_cast<std::uint32_t>(time.units);
}

// QuickTime counts the characters of a name, ISO ends them with a 0 byte; the characters are kept.
Handler HandlerFor(const HandlerRecord& record, FileKind kind) {
  Handler handler;
  handler.versionAndFlags = record.versionAndFlags;
  handler.componentType = record.componentType;
  handler.subtype = record.subtype;
  handler.manufacturer = record.manufacturer;
  handler.componentFlags = record.componentFlags;
  handler.componentFlagsMask = record.componentFlagsMask;
  handler.name = record.name;
  if (kind != FileKind::kQuickTime || record.componentType != FourCC()) return handler;
  handler.componentType = FourCC{"mhlr"};
  const auto end = std::ranges::find(handler.name, std::uint8_t{0});
  handler.name.erase(end, handler.name.end());
  if (handler.name.size() > 255) handler.name.resize(255);
  handler.name.insert(handler.name.begin(), static_cast<std::uint8_t>(handler.name.size()));
  return handler;
}

// A track that shows its whole media once needs no list, and gets none where it had none: some
// players take any list for a reason to move the picture.
bool NeedsEditList(const TrackRecord& track) {
  const bool hadList =
      std::ranges::find(track.siblings, FourCC{"edts"}, &Sibling::type) != track.siblings.end();
  const MediaTime whole = track.media ? track.media->samples.Duration() : MediaTime{};
  const std::vector<Edit>& edits = track.edits.Edits();
  if (edits.empty()) return whole != MediaTime{};
  const auto lasts = [&](MediaTime length) {
    const std::int64_t difference =
        edits[0].duration.units - track.TimeClock().Lasting(length, 1.0).units;
    return difference >= -1 && difference <= 1;
  };
  // Without a list a media is shown up to the last of its samples to be seen.
  const bool isPlain =
      edits.size() == 1 && edits[0].mediaTime == MediaTime{} && edits[0].rate == 1.0 &&
      (lasts(whole) || lasts(track.media ? track.media->samples.ShownUntil() : MediaTime{}));
  return hadList || !isPlain;
}

EditEntries Edits(const EditList& list) {
  EditEntries edits;
  // A track that shows nothing of its media says so; without a list it would show all.
  if (list.Edits().empty()) edits.entries.push_back({0, -1, 0x10000});
  for (const Edit& edit : list.Edits()) {
    const double rate = std::round(edit.rate * 65536);
    edits.entries.push_back({Unsigned(edit.duration), edit.mediaTime.units,
                             static_cast<std::int32_t>(std::min(rate, double{INT32_MAX}))});
  }
  return edits;
}

// Writes (Io = FieldWriter) or measures (Io = FieldSizer) the atoms of a planned movie.
template <class Io>
class MovieAtoms {
 public:
  MovieAtoms(Io& io, const FilePlan& plan, ReferenceWriter& references, std::uint64_t dataStart,
             std::uint64_t now)
      : io_(io), plan_(plan), references_(references), dataStart_(dataStart), now_(now) {}

  void Put() {
    const MovieRecord& movie = *plan_.movie;
    Container(FourCC{"moov"}, movie.siblings, [&](auto& children) {
      children.Add(Header(movie));
      for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
        children.Add(FourCC{"trak"}, [this, i] { Track(i); });
      }
      AddUserData(children, movie.userData);
    });
  }

 private:
  using Writer = ChildWriter<Io>;

  template <class Fill>
  void Container(FourCC type, const Siblings& order, Fill&& fill) {
    io_.Atom(type, [&] {
      Writer children(io_, order);
      fill(children);
      children.Finish();
    });
  }

  void AddUserData(Writer& children, const UserDataRecord& data) {
    if (data.items.empty()) return;
    children.Add(FourCC{"udta"}, [this, &data] {
      io_.Atom(FourCC{"udta"}, [&] {
        for (const UserDataItem& item : data.items) {
          io_.Atom(item.type, [&] { io_.Append(item.payload); });
        }
      });
    });
  }

  MovieHeader Header(const MovieRecord& movie) const {
    MovieHeader header;
    header.flags = movie.flags;
    header.reserved = movie.reserved;
    header.created = movie.created;
    header.modified = now_;
    header.scale = movie.scale;
    header.duration = Unsigned(movie.Duration());
    header.rate = movie.rate;
    header.volume = movie.volume;
    header.matrix = movie.matrix;
    header.previewTime = Narrow(movie.previewTime);
    header.previewDuration = Narrow(movie.previewDuration);
    header.posterTime = Narrow(movie.posterTime);
    header.selectionTime = Narrow(movie.selectionTime);
    header.selectionDuration = Narrow(movie.selectionDuration);
    header.currentTime = Narrow(movie.currentTime);
    header.nextTrackId = movie.nextTrackId;
    return header;
  }

  void Track(std::size_t index) {
    const TrackRecord& track = *plan_.movie->tracks[index];
    TrackHeader header;
    header.flags = track.flags;
    header.reserved = track.reserved;
    header.reserved2 = track.reserved2;
    header.reserved3 = track.reserved3;
    header.created = track.created;
    header.modified = now_;
    header.duration = Unsigned(track.edits.Duration());
    header.id = track.id;
    header.layer = track.layer;
    header.alternateGroup = track.alternateGroup;
    header.volume = track.volume;
    header.matrix = track.matrix;
    header.width = track.width;
    header.height = track.height;
    Container(FourCC{"trak"}, track.siblings, [&](Writer& children) {
      children.Add(header);
      if (NeedsEditList(track)) {
        children.Add(FourCC{"edts"}, [&] {
          Container(FourCC{"edts"}, track.editSiblings,
                    [&](Writer& inner) { inner.Add(Edits(track.edits)); });
        });
      }
      if (!track.references.empty()) children.Add(FourCC{"tref"}, [&] { References(track); });
      if (track.media) children.Add(FourCC{"mdia"}, [&] { Media(index, *track.media); });
      AddUserData(children, track.userData);
    });
  }

  void References(const TrackRecord& track) {
    io_.Atom(FourCC{"tref"}, [&] {
      for (const TrackReferences& list : track.references) {
        io_.Atom(list.type, [&] {
          for (const TrackRecord* target : list.targets) {
            io_("track", target == nullptr ? std::uint32_t{0} : target->id);
          }
        });
      }
    });
  }

  void Media(std::size_t index, const MediaRecord& media) {
    MediaHeader header;
    header.flags = media.flags;
    header.created = media.created;
    header.modified = now_;
    header.scale = media.scale;
    header.duration = static_cast<std::uint64_t>(media.samples.Duration().units);
    header.language = media.language;
    header.quality = media.quality;
    Container(FourCC{"mdia"}, media.siblings, [&](Writer& children) {
      children.Add(header);
      children.Add(HandlerFor(media.handler, plan_.kind));
      children.Add(FourCC{"minf"}, [&] {
        Container(FourCC{"minf"}, media.infoSiblings, [&](Writer& inner) {
          inner.Add(FourCC{"dinf"}, [&] {
            Container(FourCC{"dinf"}, media.dataSiblings,
                      [&](Writer& list) { list.Add(References(media)); });
          });
          inner.Add(FourCC{"stbl"}, [&] { PutSamples(io_, plan_, index, dataStart_); });
        });
      });
      AddUserData(children, media.userData);
    });
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
  // ISO knows no aliases, and has another way to say "this file".
  const DataReferenceEntry entry = isIso_ && std::holds_alternative<ThisFile>(reference)
                                       ? DataReferenceEntry{FourCC{"url "}, 1, {}}
                                       : WriteDataReference(reference, file_);
  atom = Encoded([&](auto& io) {
    io.Atom(entry.kind, [&] {
      io("flags", entry.versionAndFlags);
      io.Append(entry.data);
    });
  });
  return atom;
}

MovieWriter::MovieWriter(const FilePlan& plan, const boost::filesystem::path& file)
    : plan_(plan),
      references_(file, plan.kind == FileKind::kMpeg4 ||
                            (plan.kind == FileKind::kUnchanged && plan.movie->IsIso())),
      now_(Now()) {}

std::uint64_t MovieWriter::SizeAt(std::uint64_t dataStart) {
  // Where the data starts shows only in the offsets of its chunks, and these change their width
  // only beyond 4 GiB.
  const auto isNear = [this](std::uint64_t start) { return start + plan_.dataSize <= UINT32_MAX; };
  const bool isSame =
      measuredFor_ && (*measuredFor_ == dataStart || (isNear(*measuredFor_) && isNear(dataStart)));
  if (!isSame || plan_.shifts != measuredShifts_) {
    measured_ = {};
    MovieAtoms(measured_, plan_, references_, dataStart, now_).Put();
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
  MovieAtoms(writer, plan_, references_, dataStart, now_).Put();
  writer.Flush();
}

Bytes MovieWriter::Encode(std::uint64_t dataStart) {
  Bytes movie(SizeAt(dataStart));
  FieldWriter writer(measured_.Found(), movie);
  MovieAtoms(writer, plan_, references_, dataStart, now_).Put();
  return movie;
}

Bytes MovieWriter::Compress(std::uint64_t dataStart) { return CompressMovie(Encode(dataStart)); }

Bytes CompressMovie(ByteSpan movie) {
  // The fastest level: a header of 100 MB shrinks by a few percent more with the next, in twice the
  // time.
  constexpr int kLevel = 1;
  const std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)> compressor(
      libdeflate_alloc_compressor(kLevel), libdeflate_free_compressor);
  if (!compressor) throw std::bad_alloc();
  // Left uninitialized: most of the room is never touched.
  const std::size_t room = libdeflate_zlib_compress_bound(compressor.get(), movie.size());
  const auto stream = std::make_unique_for_overwrite<std::uint8_t[]>(room);
  const std::size_t size =
      libdeflate_zlib_compress(compressor.get(), movie.data(), movie.size(), stream.get(), room);
  return Encoded([&](auto& io) {
    io.Atom(FourCC{"moov"}, [&] {
      io.Atom(FourCC{"cmov"}, [&] {
        io.Atom(FourCC{"dcom"}, [&] { io("method", FourCC{"zlib"}); });
        io.Atom(FourCC{"cmvd"}, [&] {
          io("size", static_cast<std::uint32_t>(movie.size()));
          io.Append(ByteSpan(stream.get(), size));
        });
      });
    });
  });
}

Bytes FileTypeOf(const FilePlan& plan) {
  if (plan.kind != FileKind::kMpeg4) {
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
  // Who knows this brand knows that offsets can be below 0.
  if (has([](const MediaRecord& media) { return HasOffsetsBelowZero(media.samples); })) {
    brands += "iso4";
  }
  return Encode(FileType{FourCC{"mp42"}, 0, {brands.begin(), brands.end()}});
}

}  // namespace toolbox
