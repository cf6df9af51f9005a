#include "toolbox/read/read_movie.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <map>
#include <utility>

#include "toolbox/atoms/compressed_movie.h"
#include "toolbox/atoms/container_atoms.h"
#include "toolbox/read/file_atoms.h"
#include "toolbox/read/read_adts.h"
#include "toolbox/read/read_edits.h"
#include "toolbox/read/read_fragments.h"
#include "toolbox/read/read_samples.h"
#include "toolbox/read/top_level.h"
#include "toolbox/references/data_references.h"
#include "toolbox/references/sources.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// The entries of 'dref', ISO/IEC 14496-12 8.7.2. Their order is kept: descriptions use the index.
std::vector<DataReference> ReadDataReferences(const DataReferences& list,
                                              const boost::filesystem::path& referrer,
                                              bool resolve) {
  std::vector<DataReference> references;
  for (const Bytes& entry : list.entries) {
    references.push_back(ReadDataReference(DataReferenceEntry::Decoded(entry), referrer, resolve));
  }
  return references;
}

// Throws Refused (couldNotResolveDataRef) if a file with samples of the media was not found. A
// missing file that no sample uses does no harm.
void CheckResolved(const MediaRecord& media, const SampleRows& rows) {
  const auto isMissing = [](const DataReference& reference) {
    return std::holds_alternative<Unresolved>(reference);
  };
  if (std::ranges::none_of(media.dataReferences, isMissing) || rows.Located() == 0) return;
  for (ChunkRuns::Walk run = rows.chunkRuns.From(0); !run.IsAtEnd(); run.Next()) {
    if (isMissing(media.ReferenceOf(run->description))) throw Refused{couldNotResolveDataRef};
  }
}

std::shared_ptr<SampleRows> ReadMediaInformation(MediaInformation information, MediaRecord& media,
                                                 const boost::filesystem::path& referrer,
                                                 bool resolve) {
  if (auto& data = information.data) {
    if (data->references) {
      media.dataReferences = ReadDataReferences(*data->references, referrer, resolve);
    }
    media.dataSiblings = std::move(data->others);
  }
  // Without a list the samples are in the file itself.
  if (media.dataReferences.empty()) media.dataReferences.emplace_back(ThisFile{});
  media.infoSiblings = std::move(information.others);
  return InAtom(SampleTableAtoms::kType,
                [&] { return ReadSamples(std::move(information.table), media); });
}

UserDataRecord ReadUserData(std::optional<UserDataAtoms>& data) {
  return data ? UserDataRecord{std::move(data->items)} : UserDataRecord{};
}

// Reads 'mdia' into `media`, all but the samples. It returns these, because fragments can add more.
std::shared_ptr<SampleRows> ReadMedia(MediaAtoms atom, MediaRecord& media,
                                      const boost::filesystem::path& referrer, bool resolve) {
  if (atom.header.scale <= 0) throw Malformed("the media has no time scale");
  media.header = atom.header;
  media.handler = std::move(atom.handler);
  media.userData = ReadUserData(atom.userData);
  media.siblings = std::move(atom.others);
  return InAtom(MediaInformation::kType, [&] {
    return ReadMediaInformation(std::move(atom.information), media, referrer, resolve);
  });
}

// The parts of a track that are finished after all tracks have been read. More samples can follow
// in fragments, edits depend on the samples, and references on the other tracks.
struct PendingTrack {
  std::shared_ptr<SampleRows> rows;  // null without media
  StatedEdits edits;
  TrackReferenceAtoms references;
};

// Reads 'trak' into `track` and returns the parts that are finished later.
PendingTrack ReadTrack(TrackAtoms atom, TrackRecord& track, const boost::filesystem::path& referrer,
                       bool resolve) {
  PendingTrack pending;
  track.header = atom.header;
  track.userData = ReadUserData(atom.userData);
  track.siblings = std::move(atom.others);
  pending.edits.duration = atom.header.duration;
  if (atom.edits) {
    pending.edits.list = std::move(atom.edits->entries);
    track.editSiblings = std::move(atom.edits->others);
  }
  if (atom.references) pending.references = std::move(*atom.references);
  if (atom.media) {
    pending.rows = InAtom(MediaAtoms::kType, [&] {
      return ReadMedia(std::move(*atom.media), track.SetMedia({}), referrer, resolve);
    });
  }
  return pending;
}

// Whether the media is text. During a gap between fragments a picture stays on the screen, but a
// subtitle must not.
bool ShowsText(const TrackRecord& track) {
  static constexpr FourCC kTypes[] = {"text", "sbtl", "subt", "clcp"};
  return std::ranges::find(kTypes, track.media->Type()) != std::end(kTypes);
}

// Reads the fragments, if there are any, and gives the tracks their samples and edits.
void FinishTracks(MovieRecord& movie, std::vector<PendingTrack>& pending,
                  const std::optional<MovieExtends>& extends, const ByteSource& source,
                  bool resolve) {
  std::vector<std::int64_t> starts(pending.size());
  std::vector<std::vector<MediaStretch>> gaps(pending.size());
  if (extends) {
    std::vector<FragmentedTrack> fragmented;
    std::vector<std::size_t> indexes;
    for (std::size_t i = 0; i < pending.size(); ++i) {
      if (!pending[i].rows) continue;
      const TrackRecord& track = *movie.tracks[i];
      fragmented.push_back(
          {track.header.id, track.media->descriptions.size(), pending[i].rows.get(), 0, {}});
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

// Replaces the track IDs of references ('tref', ISO/IEC 14496-12 8.3.3) by pointers; null if the
// movie has no such track. The position in the list has a meaning, so none is dropped.
void FillReferences(MovieRecord& movie, const std::vector<PendingTrack>& pending) {
  std::map<std::uint32_t, TrackRecord*> byId;
  for (const auto& track : movie.tracks) byId.emplace(track->header.id, track.get());
  for (std::size_t i = 0; i < pending.size(); ++i) {
    for (const auto& [type, ids] : pending[i].references.lists) {
      auto& targets = movie.tracks[i]->references.emplace_back(TrackReferences{type, {}}).targets;
      for (const std::uint32_t id : ids) {
        const auto found = byId.find(id);
        targets.push_back(found == byId.end() ? nullptr : found->second);
      }
    }
  }
}

// Reads the content of 'moov'. `path` is where the file really is.
std::unique_ptr<MovieRecord> ReadMovie(const HeldBytes& content, const ByteSource& source,
                                       const boost::filesystem::path& path, bool resolve) {
  auto atom = Decode<MovieAtoms>(content.Span());
  return InAtom(MovieAtoms::kType, [&] {
    auto movie = std::make_unique<MovieRecord>();
    if (atom.header.scale <= 0) throw Malformed("the movie has no time scale");
    movie->header = atom.header;
    std::vector<PendingTrack> pending;
    for (TrackAtoms& trackAtom : atom.tracks) {
      TrackRecord& track = *movie->tracks.emplace_back(std::make_unique<TrackRecord>());
      track.movie = movie.get();
      pending.push_back(InAtom(TrackAtoms::kType, [&] {
        return ReadTrack(std::move(trackAtom), track, path, resolve);
      }));
      // The rows have views of tables in the header, so they keep it in memory.
      if (pending.back().rows) pending.back().rows->header = content;
      // Some files state an ID that is in use.
      std::uint32_t& next = movie->header.nextTrackId;
      if (track.header.id >= next) next = track.header.id + 1;
    }
    FinishTracks(*movie, pending, atom.extends, source, resolve);
    FillReferences(*movie, pending);
    movie->userData = ReadUserData(atom.userData);
    movie->siblings = std::move(atom.others);
    return movie;
  });
}

}  // namespace

HeldBytes ReadMovieHeader(const ByteSource& source) {
  const auto found = FindTopLevel(source, MovieAtoms::kType);
  if (!found) return {};
  if (found->atom.size == found->atom.headerSize) throw Malformed("the movie header is empty");
  HeldBytes held =
      source.Load(found->at + found->atom.headerSize, found->atom.size - found->atom.headerSize);
  auto inflated = InflatedMovie(held.Span());
  return inflated ? HeldBytes(std::move(*inflated)) : held;
}

std::unique_ptr<MovieRecord> ReadMovieFile(const boost::filesystem::path& path,
                                           References references) try {
  const FileSource source(path);
  const HeldBytes header = ReadMovieHeader(source);
  // Relative references start at the folder of the file itself, not of a symbolic link to it.
  const boost::filesystem::path real = boost::filesystem::canonical(path);
  const bool isSound = header.Span().empty();
  auto movie = isSound ? ReadAdtsFile(source)
                       : ReadMovie(header, source, real, references == References::kResolve);
  if (!movie) throw Refused{noMovieFound};
  movie->file = OtherFile{real, source.State()};
  movie->defaultDataReference = *movie->file;
  if (isSound) return movie;
  movie->headerAt = FindTopLevel(source, MovieAtoms::kType)->at;
  movie->fileAtoms = FindFileAtoms(source);
  return movie;
} catch (const Refused& refused) {
  // For the caller the movie file is itself a reference, which could not be resolved.
  if (refused.code == fnfErr) throw Refused{couldNotResolveDataRef};
  throw;
}

}  // namespace toolbox
