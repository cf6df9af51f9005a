#include "toolbox/read/read_movie.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <map>
#include <utility>

#include "toolbox/atoms/atom_heads.h"
#include "toolbox/atoms/compressed_movie.h"
#include "toolbox/atoms/container_atoms.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/read/file_atoms.h"
#include "toolbox/read/read_adts.h"
#include "toolbox/read/read_edits.h"
#include "toolbox/read/read_fragments.h"
#include "toolbox/read/read_samples.h"
#include "toolbox/read/top_level.h"
#include "toolbox/references/aliases.h"
#include "toolbox/references/data_references.h"
#include "toolbox/references/sources.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// A movie file that is open.
struct MovieFile {
  const ByteSource& source;
  boost::filesystem::path path;  // where it really is
  bool resolve;  // whether to look for the other files that it refers to
};

// Throws Refused (couldNotResolveDataRef) if a file with samples of the media was not found. A
// missing file that no sample uses does no harm.
void CheckResolved(const MediaRecord& media, const SampleRows& rows) {
  const auto isMissing = [](const DataReference& reference) {
    return std::holds_alternative<Unresolved>(reference);
  };
  if (std::ranges::none_of(media.dataReferences, isMissing) || rows.Located() == 0) return;
  for (ChunkRuns::Walk run = rows.chunkRuns.From(0); !run.IsAtEnd(); run.Next()) {
    const DataReference& reference = media.ReferenceOf(run->description);
    if (!isMissing(reference)) continue;
    const auto path = AbsoluteAliasPath(std::get<Unresolved>(reference).data);
    throw Refused{couldNotResolveDataRef,
                  "media is missing in " + (path ? path->native() : "another file")};
  }
}

// Reads 'minf' into `media` and returns its samples.
std::shared_ptr<SampleRows> ReadMediaInformation(MediaInformation& information, MediaRecord& media,
                                                 const MovieFile& file) {
  if (auto& data = information.data) {
    if (!data->references) data->references.emplace();
    // All entries are kept, in this order, because descriptions use the index.
    for (const Bytes& entry : data->references->entries) {
      media.dataReferences.push_back(
          ReadDataReference(DataReferenceEntry::Decoded(entry), file.path, file.resolve));
    }
    media.dataSiblings = std::move(data->others);
  }
  // Without data references the samples are in the movie file itself.
  if (media.dataReferences.empty()) media.dataReferences.emplace_back(ThisFile{});
  media.infoSiblings = std::move(information.others);
  return InAtom(SampleTableAtoms::kType,
                [&] { return ReadSamples(std::move(information.table), media); });
}

UserDataRecord ReadUserData(std::optional<UserDataAtoms>& data) {
  return data ? UserDataRecord{std::move(data->items)} : UserDataRecord{};
}

// Reads 'mdia' into `media`, except the samples. Returns these, because fragments can add more.
std::shared_ptr<SampleRows> ReadMedia(MediaAtoms& atom, MediaRecord& media, const MovieFile& file) {
  if (atom.header.scale <= 0) throw Malformed("the media has no time scale");
  media.header = atom.header;
  media.handler = std::move(atom.handler);
  media.userData = ReadUserData(atom.userData);
  media.siblings = std::move(atom.others);
  return InAtom(MediaInformation::kType,
                [&] { return ReadMediaInformation(atom.information, media, file); });
}

// Reads 'trak' into `track`, except three parts that are read later: references to other tracks,
// samples, to which fragments can add more, and edits, which depend on the samples. Returns the
// samples read so far; null without media.
std::shared_ptr<SampleRows> ReadTrack(TrackAtoms& atom, TrackRecord& track, const MovieFile& file) {
  track.header = atom.header;
  track.userData = ReadUserData(atom.userData);
  track.siblings = std::move(atom.others);
  if (atom.edits) track.editSiblings = std::move(atom.edits->others);
  if (!atom.media) return nullptr;
  return InAtom(MediaAtoms::kType,
                [&] { return ReadMedia(*atom.media, track.SetMedia({}), file); });
}

// Whether the media is text. During a gap between fragments a picture stays on the screen, but a
// subtitle must not.
bool ShowsText(const TrackRecord& track) {
  static constexpr FourCC kTypes[] = {"text", "sbtl", "subt", "clcp"};
  return std::ranges::find(kTypes, track.media->Type()) != std::end(kTypes);
}

// Reads the fragments, if there are any, and gives the tracks their samples and edits.
void FinishTracks(MovieRecord& movie, const MovieAtoms& atoms, std::vector<FragmentedTrack>& read,
                  const MovieFile& file) {
  if (atoms.extends) ReadFragments(file.source, *atoms.extends, read);
  std::vector<MovieTime> delays;
  for (std::size_t i = 0; i < read.size(); ++i) {
    TrackRecord& track = *movie.tracks[i];
    if (read[i].rows) {
      if (file.resolve) CheckResolved(*track.media, *read[i].rows);
      track.media->samples = SampleTable(read[i].rows);
    }
    const auto& edits = atoms.tracks[i].edits;
    const EditEntries* list = edits && edits->entries ? &*edits->entries : nullptr;
    delays.push_back(ReadEdits(list, atoms.extends ? &read[i].times : nullptr, track));
    if (!read[i].gaps.empty() && ShowsText(track)) HideGaps(read[i].gaps, track);
  }
  DropCommonDelay(movie, delays);
}

// Replaces the track IDs of references ('tref', ISO/IEC 14496-12 8.3.3) by pointers; null if the
// movie has no such track. The position in the list has a meaning, so none is dropped.
void FillReferences(MovieRecord& movie, const MovieAtoms& atoms) {
  std::map<std::uint32_t, TrackRecord*> byId;
  for (const auto& track : movie.tracks) byId.emplace(track->header.id, track.get());
  for (std::size_t i = 0; i < atoms.tracks.size(); ++i) {
    if (!atoms.tracks[i].references) continue;
    for (const auto& [type, ids] : atoms.tracks[i].references->lists) {
      auto& targets = movie.tracks[i]->references.emplace_back(TrackReferences{type, {}}).targets;
      for (const std::uint32_t id : ids) {
        const auto found = byId.find(id);
        targets.push_back(found == byId.end() ? nullptr : found->second);
      }
    }
  }
}

// Reads the content of 'moov'.
std::unique_ptr<MovieRecord> ReadMovie(const HeldBytes& content, const MovieFile& file) {
  auto atoms = Decode<MovieAtoms>(content.Span());
  return InAtom(MovieAtoms::kType, [&] {
    auto movie = std::make_unique<MovieRecord>();
    if (atoms.header.scale <= 0) throw Malformed("the movie has no time scale");
    movie->header = atoms.header;
    movie->header.nextTrackId = std::max(atoms.header.nextTrackId, 1U);
    std::vector<FragmentedTrack> read;
    for (TrackAtoms& trackAtoms : atoms.tracks) {
      TrackRecord& track = *movie->tracks.emplace_back(std::make_unique<TrackRecord>());
      track.movie = movie.get();
      auto rows = InAtom(TrackAtoms::kType, [&] { return ReadTrack(trackAtoms, track, file); });
      // The rows have views of tables in the header, so they keep it in memory.
      if (rows) rows->header = content;
      read.push_back({&track, std::move(rows), {}, {}});
      // In some files the next track ID is in use already.
      std::uint32_t& next = movie->header.nextTrackId;
      next = std::max(next, std::min(track.header.id, MovieHeader::kIdsUsedUp - 1) + 1);
    }
    FinishTracks(*movie, atoms, read, file);
    FillReferences(*movie, atoms);
    movie->userData = ReadUserData(atoms.userData);
    movie->siblings = std::move(atoms.others);
    return movie;
  });
}

// The first movie header of the file; nothing if there is none. Throws Malformed.
std::optional<FileAtom> FindHeader(const ByteSource& source) {
  TopLevelWalk walk(source);
  std::optional<FileAtom> found = walk.Next();
  while (found && found->type != MovieAtoms::kType) found = walk.Next();
  if (!found && FourCCAt(walk.Following(), 4) == MovieAtoms::kType) {
    throw Malformed("the file ends inside 'moov'");
  }
  return found;
}

// The content of that header, inflated if it is compressed. Throws Malformed, and what reading
// throws.
HeldBytes LoadHeader(const ByteSource& source, const FileAtom& found) {
  if (found.ContentSize() == 0) throw Malformed("the movie header is empty");
  HeldBytes held = source.Load(found.ContentAt(), MemorySize(found.ContentSize()));
  auto inflated = InflatedMovie(held.Span());
  return inflated ? HeldBytes(std::move(*inflated)) : held;
}

// Whether samples of the movie are in its own file after the first `size` bytes.
bool HasSamplesAfter(const MovieRecord& movie, std::uint64_t size) {
  bool isFound = false;
  for (const auto& track : movie.tracks) {
    if (!track->media) continue;
    const MediaRecord& media = *track->media;
    ForEachPiece(media.samples, {0, LocatedCount(media.samples)}, [&](const SamplePiece& piece) {
      isFound |= piece.size != 0 && piece.offset + piece.size > size &&
                 std::holds_alternative<ThisFile>(media.ReferenceOf(piece.description));
    });
  }
  return isFound;
}

}  // namespace

HeldBytes ReadMovieHeader(const ByteSource& source) {
  const auto found = FindHeader(source);
  return found ? LoadHeader(source, *found) : HeldBytes();
}

std::unique_ptr<MovieRecord> ReadMovieFile(const boost::filesystem::path& path,
                                           References references) try {
  const FileSource source(path);
  const auto found = FindHeader(source);
  // Relative references start at the folder of the file itself, not at that of a symbolic link to
  // it.
  const boost::filesystem::path real = boost::filesystem::canonical(path);
  auto movie = found ? ReadMovie(LoadHeader(source, *found),
                                 {source, real, references == References::kResolve})
                     : ReadAdtsFile(source);
  if (!movie) throw Refused{noMovieFound, "it has no movie header"};
  movie->file = OtherFile{real, source.State()};
  movie->defaultDataReference = *movie->file;
  if (!found) return movie;
  movie->headerAt = found->at;
  std::vector<FileAtom>& atoms = movie->fileAtoms = FindFileAtoms(source);
  // Bytes after the last atom that are media are copied as media.
  const bool hasTrailer = !atoms.empty() && atoms.back().type == FileAtom::kTrailer;
  if (hasTrailer && HasSamplesAfter(*movie, atoms.back().at)) atoms.pop_back();
  return movie;
} catch (Failure& failure) {
  failure.NameFile(path.native());
  // The caller has opened the movie file by a data reference, so this is the code for one that
  // cannot be resolved.
  if (failure.code == fnfErr) failure.code = couldNotResolveDataRef;
  throw;
}

}  // namespace toolbox
