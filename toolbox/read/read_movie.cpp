#include "toolbox/read/read_movie.h"

#include <libdeflate.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <map>
#include <utility>

#include "toolbox/atoms/framing.h"
#include "toolbox/atoms/header_atoms.h"
#include "toolbox/read/file_atoms.h"
#include "toolbox/read/read_adts.h"
#include "toolbox/read/read_edits.h"
#include "toolbox/read/read_fragments.h"
#include "toolbox/read/read_samples.h"
#include "toolbox/read/top_level.h"
#include "toolbox/references/file_reference.h"
#include "toolbox/references/sources.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// deflate cannot shrink anything further than this.
constexpr std::uint64_t kMostInflation = 1032;

// QuickTime: 'cmov' holds the method in 'dcom' and in 'cmvd' the size and bytes of a whole 'moov'.
Bytes Inflate(ByteSpan compressed) {
  return InAtom(FourCC{"cmov"}, [&] {
    Children parts(compressed);
    FieldReader method(parts.One(FourCC{"dcom"}));
    FourCC name;
    method("method", name);
    if (name != FourCC{"zlib"}) throw Refused{cantFindHandler};
    FieldReader data(parts.One(FourCC{"cmvd"}));
    std::uint32_t size = 0;
    data("size", size);
    const ByteSpan stream = data.Remaining();
    if (size > stream.size() * kMostInflation + kMostInflation) {
      throw Malformed("the compressed movie header cannot be as long as it claims");
    }
    Bytes inflated(size);
    const std::unique_ptr<libdeflate_decompressor, void (*)(libdeflate_decompressor*)> inflater(
        libdeflate_alloc_decompressor(), libdeflate_free_decompressor);
    std::size_t used = 0;
    if (!inflater ||
        libdeflate_zlib_decompress(inflater.get(), stream.data(), stream.size(), inflated.data(),
                                   size, &used) != LIBDEFLATE_SUCCESS) {
      throw Malformed("the compressed movie header is damaged");
    }
    inflated.resize(used);
    const auto frame = ReadFrame(inflated, inflated.size());
    if (!frame || frame->type != FourCC{"moov"}) {
      throw Malformed("the compressed movie header holds no movie");
    }
    inflated.resize(frame->size);
    inflated.erase(inflated.begin(),
                   inflated.begin() + static_cast<std::ptrdiff_t>(frame->headerSize));
    return inflated;
  });
}

UserDataRecord ReadUserData(ByteSpan content) {
  constexpr FourCC kMeta{"meta"};
  UserDataRecord data;
  ByteSpan tail;
  for (const AtomView& atom : SplitAtoms(content, &tail)) {
    // Four zero bytes may end the list.
    if (FromBigEndian<std::uint32_t>(atom.whole.data()) == 0) break;
    UserDataItem item{atom.type, {atom.content.begin(), atom.content.end()}};
    // QuickTime writers leave out the version word; readers of the item count on it.
    const auto frame = ReadFrame(atom.content, atom.content.size());
    if (atom.type == kMeta && frame && frame->type == Handler::kType) {
      item.payload.insert(item.payload.begin(), 4, 0);
    }
    data.items.push_back(std::move(item));
  }
  return data;
}

UserDataRecord TakeUserData(Children& parent) {
  const auto content = parent.Maybe(FourCC{"udta"});
  return content ? ReadUserData(*content) : UserDataRecord{};
}

std::vector<DataReference> ReadDataReferences(ByteSpan dinf, MediaRecord& media,
                                              const boost::filesystem::path& referrer,
                                              bool resolve) {
  std::vector<DataReference> references;
  Children parts(dinf);
  if (const auto list = parts.Maybe<DataReferences>()) {
    for (const Bytes& bytes : list->entries) {
      DataReferenceEntry entry;
      FieldReader reader(ByteSpan(bytes).subspan(4));
      reader("kind", entry.kind);
      reader("flags", entry.versionAndFlags);
      reader.Rest("data", entry.data);
      references.push_back(ReadDataReference(entry, referrer, resolve));
    }
  }
  media.dataSiblings = parts.Others();
  return references;
}

// Refuses a media that has samples in a file that is not there.
void CheckResolved(const MediaRecord& media, const SampleRows& rows) {
  const auto isMissing = [](const DataReference& reference) {
    return std::holds_alternative<Unresolved>(reference);
  };
  if (std::ranges::none_of(media.dataReferences, isMissing) || rows.Located() == 0) return;
  for (ChunkRuns::Walk run = rows.chunkRuns.From(0); !run.IsBehindLast(); run.Next()) {
    if (isMissing(media.ReferenceOf(run->description))) throw Refused{couldNotResolveDataRef};
  }
}

std::shared_ptr<SampleRows> ReadMediaInformation(ByteSpan content, MediaRecord& media,
                                                 const boost::filesystem::path& referrer,
                                                 bool resolve) {
  Children parts(content);
  if (const auto dinf = parts.Maybe(FourCC{"dinf"})) {
    media.dataReferences = ReadDataReferences(*dinf, media, referrer, resolve);
  }
  // Without a list the samples are in the file itself.
  if (media.dataReferences.empty()) media.dataReferences.emplace_back(ThisFile{});
  const ByteSpan table = parts.One(FourCC{"stbl"});
  auto rows = InAtom(FourCC{"stbl"}, [&] { return ReadSamples(table, media); });
  media.infoSiblings = parts.Others();
  return rows;
}

// All of a media but its samples, which it gives back.
std::shared_ptr<SampleRows> ReadMedia(ByteSpan content, MediaRecord& media,
                                      const boost::filesystem::path& referrer, bool resolve) {
  Children parts(content);
  const auto header = parts.One<MediaHeader>();
  if (header.scale <= 0) throw Malformed("the media has no time scale");
  media.flags = header.flags;
  media.created = header.created;
  media.modified = header.modified;
  media.scale = header.scale;
  media.language = header.language;
  media.quality = header.quality;
  const auto handler = parts.One<Handler>();
  media.handler = {
      handler.versionAndFlags, handler.componentType,      handler.subtype, handler.manufacturer,
      handler.componentFlags,  handler.componentFlagsMask, handler.name};
  media.userData = TakeUserData(parts);
  const ByteSpan information = parts.One(FourCC{"minf"});
  auto rows = InAtom(FourCC{"minf"},
                     [&] { return ReadMediaInformation(information, media, referrer, resolve); });
  media.siblings = parts.Others();
  return rows;
}

using ReferencedIds = std::vector<std::pair<FourCC, std::vector<std::uint32_t>>>;

ReferencedIds ReadReferences(ByteSpan content) {
  ReferencedIds references;
  // One list a type; a second one of a type continues the first.
  std::map<std::uint32_t, std::size_t> places;
  for (const AtomView& atom : SplitAtoms(content)) {
    const auto [place, isNew] = places.try_emplace(atom.type.value, references.size());
    if (isNew) references.emplace_back(atom.type, std::vector<std::uint32_t>{});
    std::vector<std::uint32_t>& ids = references[place->second].second;
    for (std::size_t at = 0; at + 4 <= atom.content.size(); at += 4) {
      ids.push_back(FromBigEndian<std::uint32_t>(&atom.content[at]));
    }
  }
  return references;
}

// What a track still lacks: more samples may follow behind the header, and what its edits show, and
// its references lead to, depends on that and on the other tracks.
struct PendingTrack {
  std::shared_ptr<SampleRows> rows;  // null without media
  StatedEdits edits;
  ReferencedIds references;
};

PendingTrack ReadTrack(ByteSpan content, TrackRecord& track,
                       const boost::filesystem::path& referrer, bool resolve) {
  PendingTrack pending;
  Children parts(content);
  const auto header = parts.One<TrackHeader>();
  track.id = header.id;
  track.flags = header.flags;
  track.reserved = header.reserved;
  track.reserved2 = header.reserved2;
  track.reserved3 = header.reserved3;
  track.created = header.created;
  track.modified = header.modified;
  track.layer = header.layer;
  track.alternateGroup = header.alternateGroup;
  track.volume = header.volume;
  track.matrix = header.matrix;
  track.width = header.width;
  track.height = header.height;
  if (const auto media = parts.Maybe(FourCC{"mdia"})) {
    pending.rows = InAtom(FourCC{"mdia"},
                          [&] { return ReadMedia(*media, track.SetMedia({}), referrer, resolve); });
  }
  pending.edits.duration = header.duration;
  if (const auto container = parts.Maybe(FourCC{"edts"})) {
    InAtom(FourCC{"edts"}, [&] {
      Children inner(*container);
      pending.edits.list = inner.Maybe<EditEntries>();
      track.editSiblings = inner.Others();
    });
  }
  track.userData = TakeUserData(parts);
  if (const auto container = parts.Maybe(FourCC{"tref"})) {
    pending.references = InAtom(FourCC{"tref"}, [&] { return ReadReferences(*container); });
  }
  track.siblings = parts.Others();
  return pending;
}

// A picture is seen until the next; a subtitle is not.
bool ShowsText(const TrackRecord& track) {
  static constexpr FourCC kTypes[] = {"text", "sbtl", "subt", "clcp"};
  return std::ranges::find(kTypes, track.media->Type()) != std::end(kTypes);
}

// Gives the tracks their samples, those in fragments included, and their edits.
void FinishTracks(MovieRecord& movie, std::vector<PendingTrack>& pending,
                  std::optional<ByteSpan> extends, const ByteSource& source, bool resolve) {
  std::vector<std::int64_t> starts(pending.size());
  std::vector<std::vector<MediaStretch>> gaps(pending.size());
  if (extends) {
    std::vector<FragmentedTrack> fragmented;
    std::vector<std::size_t> indexes;
    for (std::size_t i = 0; i < pending.size(); ++i) {
      if (!pending[i].rows) continue;
      const TrackRecord& track = *movie.tracks[i];
      fragmented.push_back(
          {track.id, track.media->descriptions.size(), pending[i].rows.get(), 0, {}});
      indexes.push_back(i);
    }
    ReadFragments(source, *extends, fragmented);
    for (std::size_t i = 0; i < fragmented.size(); ++i) {
      starts[indexes[i]] = fragmented[i].start;
      if (ShowsText(*movie.tracks[indexes[i]])) gaps[indexes[i]] = std::move(fragmented[i].gaps);
    }
  }
  std::vector<MovieTime> waits;
  for (std::size_t i = 0; i < pending.size(); ++i) {
    TrackRecord& track = *movie.tracks[i];
    if (const auto rows = std::move(pending[i].rows)) {
      if (resolve) CheckResolved(*track.media, *rows);
      track.media->samples = SampleTable(rows);
    }
    pending[i].edits.isOpenEnded = extends.has_value();
    waits.push_back(ReadEdits(pending[i].edits, starts[i], track));
    if (!gaps[i].empty()) HideGaps(gaps[i], track);
  }
  DropCommonWait(movie, waits);
}

void FillReferences(MovieRecord& movie, const std::vector<PendingTrack>& pending) {
  std::map<std::uint32_t, TrackRecord*> byId;
  for (const auto& track : movie.tracks) byId.emplace(track->id, track.get());
  for (std::size_t i = 0; i < pending.size(); ++i) {
    for (const auto& [type, ids] : pending[i].references) {
      auto& targets = movie.tracks[i]->references.emplace_back(TrackReferences{type, {}}).targets;
      for (const std::uint32_t id : ids) {
        const auto found = byId.find(id);
        targets.push_back(found == byId.end() ? nullptr : found->second);
      }
    }
  }
}

std::unique_ptr<MovieRecord> ReadMovie(const HeldBytes& content, const ByteSource& source,
                                       const boost::filesystem::path& path, bool resolve) {
  auto movie = std::make_unique<MovieRecord>();
  Children parts(content.Span());
  const auto header = parts.One<MovieHeader>();
  if (header.scale <= 0) throw Malformed("the movie has no time scale");
  movie->flags = header.flags;
  movie->reserved = header.reserved;
  movie->scale = header.scale;
  movie->created = header.created;
  movie->modified = header.modified;
  movie->rate = header.rate;
  movie->volume = header.volume;
  movie->matrix = header.matrix;
  movie->previewTime = {header.previewTime};
  movie->previewDuration = {header.previewDuration};
  movie->posterTime = {header.posterTime};
  movie->selectionTime = {header.selectionTime};
  movie->selectionDuration = {header.selectionDuration};
  movie->currentTime = {header.currentTime};
  movie->nextTrackId = header.nextTrackId;

  std::vector<PendingTrack> pending;
  for (const ByteSpan trak : parts.Each(FourCC{"trak"})) {
    TrackRecord& track = *movie->tracks.emplace_back(std::make_unique<TrackRecord>());
    track.movie = movie.get();
    pending.push_back(
        InAtom(FourCC{"trak"}, [&] { return ReadTrack(trak, track, path, resolve); }));
    if (pending.back().rows) pending.back().rows->header = content;
    if (track.id >= movie->nextTrackId) movie->nextTrackId = track.id + 1;
  }
  FinishTracks(*movie, pending, parts.Maybe(FourCC{"mvex"}), source, resolve);
  FillReferences(*movie, pending);
  movie->userData = TakeUserData(parts);
  movie->siblings = parts.Others();
  movie->file = FileAt(path);
  movie->defaultDataReference = *movie->file;
  return movie;
}

}  // namespace

HeldBytes ReadMovieHeader(const ByteSource& source) {
  const auto found = FindTopLevel(source, FourCC{"moov"});
  if (!found) return {};
  if (found->atom.size == found->atom.headerSize) throw Malformed("the movie header is empty");
  HeldBytes held =
      source.Load(found->at + found->atom.headerSize, found->atom.size - found->atom.headerSize);
  const ByteSpan content = held.Span();
  const auto first = ReadFrame(content, content.size());
  if (!first || first->type != FourCC{"cmov"}) return held;
  return InAtom(FourCC{"moov"}, [&] {
    return HeldBytes(Inflate(content.subspan(first->headerSize, first->size - first->headerSize)));
  });
}

std::unique_ptr<MovieRecord> ReadMovieFile(const boost::filesystem::path& path,
                                           References references) try {
  const FileSource source(path);
  const HeldBytes header = ReadMovieHeader(source);
  // Movies refer to one another by where they really are.
  const boost::filesystem::path real = boost::filesystem::canonical(path);
  if (header.Span().empty()) {
    auto sound = ReadAdtsFile(source, real);
    if (!sound) throw Refused{noMovieFound};
    return sound;
  }
  auto movie = InAtom(FourCC{"moov"}, [&] {
    return ReadMovie(header, source, real, references == References::kResolve);
  });
  movie->fileAtoms = FindFileAtoms(source);
  return movie;
} catch (const Refused& refused) {
  // The movie file itself is what the caller's reference did not lead to.
  if (refused.code == fnfErr) throw Refused{couldNotResolveDataRef};
  throw;
}

}  // namespace toolbox
