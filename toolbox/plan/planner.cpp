#include "toolbox/plan/planner.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <iterator>
#include <span>
#include <tuple>
#include <variant>

#include "toolbox/atoms/gps_locations.h"
#include "toolbox/disk/side_by_side.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/auxiliary_data.h"
#include "toolbox/plan/chunk_cutter.h"
#include "toolbox/plan/gps_data.h"
#include "toolbox/plan/kept_places.h"

namespace toolbox {
namespace {

// The order of chunks that are shown at the same time: sound, then pictures, then everything else.
int Rank(FourCC type) { return type == FourCC{"soun"} ? 0 : type == FourCC{"vide"} ? 1 : 2; }

// The samples of `parts` as one table. Their description indexes are those of `media`.
SampleTable SamplesOf(const MediaRecord& media, std::span<const UsedSamples> parts) {
  SampleTable samples;
  for (const UsedSamples& part : parts) samples.AppendSlice(media.samples, part.samples);
  return samples;
}

}  // namespace

SourceEnd SourceEnds::Of(const DataReference& reference) {
  if (const auto* memory = std::get_if<InMemory>(&reference)) return {memory->data->size(), {}};
  const OtherFile* file = std::get_if<OtherFile>(&reference);
  if (std::holds_alternative<ThisFile>(reference) && ownFile_) file = &*ownFile_;
  if (file == nullptr) throw Refused{couldNotResolveDataRef, "its media cannot be found"};
  const auto [known, isNew] = sizes_.try_emplace(file->path.native(), 0);
  if (isNew) {
    boost::system::error_code failed;
    known->second = boost::filesystem::file_size(file->path, failed);
    if (failed) throw Refused{couldNotResolveDataRef, failed.message(), known->first};
  }
  return {known->second, known->first};
}

Planner::Planner(const MovieRecord& movie, FilePlan& plan)
    : plan_(plan), ends_(movie.file, plan.files) {
  plan.movie = movie.Clone();
  plan.ownFile = movie.file;
  for (const auto& track : movie.tracks) plan.tracks.push_back({.source = track.get()});
}

void Planner::AddGps() {
  MovieRecord& movie = *plan_.movie;
  if (!movie.file || FindSibling(movie.siblings, GpsLocations::kType) == nullptr) return;
  for (CopyRange range : FindGpsData(movie, ends_.Of(ThisFile{}).size)) {
    range.destination = plan_.dataSize;
    plan_.dataSize += range.length;
    plan_.gps.push_back(range);
    // An atom next to the movie that is a block would be in the output twice.
    std::erase_if(movie.fileAtoms, [&range](const FileAtom& atom) {
      return atom.at >= range.at && atom.at + atom.size <= range.at + range.length;
    });
  }
}

void Planner::Drop(std::size_t index) {
  plan_.movie->RemoveTrack(*plan_.movie->tracks[index]);
  plan_.tracks.erase(plan_.tracks.begin() + static_cast<std::ptrdiff_t>(index));
}

void Planner::DropSystems() {
  static constexpr FourCC kSystems[] = {"odsm", "sdsm", "ocsm", "ipsm", "mjsm", "m7sm"};
  std::erase_if(plan_.movie->siblings,
                [](const Sibling& sibling) { return sibling.type == FourCC{"iods"}; });
  for (std::size_t i = plan_.tracks.size(); i-- > 0;) {
    const auto& media = plan_.tracks[i].source->media;
    if (media && std::ranges::find(kSystems, media->Type()) != std::end(kSystems)) Drop(i);
  }
}

void Planner::MergeDescriptions(std::size_t index) {
  const MediaRecord& source = *plan_.tracks[index].source->media;
  MediaRecord& media = *plan_.movie->tracks[index]->media;
  Prepared& prepared = prepared_[index];
  std::vector<std::uint32_t>& map = plan_.tracks[index].descriptions;
  std::vector<bool> isUsed(source.descriptions.size());
  for (const UsedSamples& part : prepared.used) {
    MarkDescriptions(source.samples, part.samples, isUsed);
  }
  media.descriptions.clear();
  map.assign(isUsed.size(), 0);
  prepared.ends.assign(isUsed.size(), {});
  for (std::uint32_t i = 0; i < isUsed.size(); ++i) {
    // A media without used samples keeps all its descriptions.
    if (!isUsed[i] && !prepared.used.empty()) continue;
    if (isUsed[i]) prepared.ends[i] = ends_.Of(source.ReferenceOf(i));
    SampleDescription description = source.descriptions[i];
    description.dataReference = 0;  // the output has one data reference: its own file
    map[i] = media.FindOrAdd(description);
  }
}

void Planner::Prepare(std::size_t index) {
  TrackPlan& track = plan_.tracks[index];
  TrackRecord& output = *plan_.movie->tracks[index];
  const MediaRecord& source = *track.source->media;
  std::vector<UsedSamples>& used = prepared_[index].used = SamplesInUse(*track.source);
  for (const UsedSamples& part : used) CheckLocated(source.samples, part.samples);
  MergeDescriptions(index);
  output.media->dataReferences = {ThisFile{}};

  // Only the used samples are kept, so their media times change. `moved` has this change for each
  // part, by the first sample of the part.
  if (source.samples.Count() != 0) output.media->samples = {};
  std::map<std::uint64_t, MediaTime> moved;
  for (const UsedSamples& part : used) {
    const MediaTime now =
        output.media->samples.AppendSlice(source.samples, part.samples, track.descriptions);
    moved[part.samples.from] = now - source.samples.TimeOf(part.samples.from);
  }
  // The encryption tables of a protected track are valid only for all of its samples.
  if (source.IsProtected() && output.media->samples.WholeRows() == nullptr) {
    throw Refused{featureUnsupported, "encrypted samples cannot be cut"};
  }
  output.edits = {};
  for (const Edit& edit : track.source->edits.Edits()) {
    const UsedSamples needs = SamplesFor(*track.source, edit);
    MediaTime mediaTime = Edit::kNothing;  // an edit without samples becomes empty
    if (!needs.samples.IsEmpty()) {
      mediaTime = edit.mediaTime + std::prev(moved.upper_bound(needs.samples.from))->second;
    }
    output.edits.Append(edit.duration, mediaTime, edit.rate, output.TimeClock());
  }
  output.edits.TrimEnd();
}

void Planner::Cut(const std::vector<std::size_t>& indexes) {
  // Cutting fewer samples than this takes less time than starting a thread.
  constexpr std::uint64_t kManySamples = 100'000;
  std::uint64_t samples = 0;
  for (const std::size_t index : indexes) {
    samples += plan_.tracks[index].source->media->samples.Count();
  }
  const std::uint64_t threads =
      std::min<std::uint64_t>(indexes.size(), ThreadsFor(samples, kManySamples));
  timed_.resize(indexes.size());
  SideBySide(indexes.size(), threads,
             [&](std::uint64_t i, Bytes&) { timed_[i] = CutTrack(indexes[i]); });
}

std::vector<Planner::Timed> Planner::CutTrack(std::size_t index) {
  std::vector<Timed> timed;
  TrackPlan& track = plan_.tracks[index];
  const MediaRecord& source = *track.source->media;
  const Prepared& prepared = prepared_.at(index);
  PackedChunks& chunks = track.places.emplace<PackedChunks>();
  ChunkCutter cutter(source, track.descriptions, chunks);
  for (const UsedSamples& part : prepared.used) {
    // Samples between two parts are left out, so no chunk has samples of both.
    cutter.Close();
    const std::size_t before = chunks.size();
    ForEachPiece(source.samples, part.samples, [&](const SamplePiece& piece) {
      prepared.ends[piece.description].Check(piece.offset, piece.size);
      cutter.Add(piece);
    });
    for (std::size_t i = before; i < chunks.size(); ++i) {
      timed.push_back({FirstShown(*track.source, part, chunks[i].sample),
                       Rank(source.Type()),
                       {static_cast<std::uint32_t>(index), static_cast<std::uint32_t>(i)}});
    }
  }
  return timed;
}

std::uint64_t Planner::Chunks() const {
  std::uint64_t chunks = 0;
  for (const auto& [index, prepared] : prepared_) {
    for (const UsedSamples& part : prepared.used) {
      chunks += ChunkCount(plan_.tracks[index].source->media->samples, part.samples);
    }
  }
  return chunks;
}

bool Planner::KeepPlaces(std::uint64_t maxChunks) {
  if (maxChunks == 0) return false;
  // Sharing so many bytes saves more time than a header with fewer chunks.
  constexpr std::uint64_t kMinSharedBytes = 64 << 20;
  const bool hasTooMany = maxChunks != UINT64_MAX && Chunks() > maxChunks;
  if (hasTooMany && plan_.unit == 1) return false;
  KeptPlaces kept(plan_);
  for (const auto& [index, prepared] : prepared_) {
    for (const UsedSamples& part : prepared.used) {
      if (!kept.Add(index, part, prepared.ends)) return false;
    }
  }
  if (hasTooMany && kept.Bytes() < kMinSharedBytes) return false;
  return kept.Take();
}

void Planner::Arrange(bool interleave) {
  const auto order = [interleave](const Timed& timed) {
    return std::tuple(interleave ? timed.shown : MovieTime{}, interleave ? timed.rank : 0,
                      timed.chunk.track, timed.chunk.chunk);
  };
  std::vector<Timed> all;
  for (std::vector<Timed>& track : timed_) {
    // Most tracks are in order already, and then merging them takes less time than sorting.
    if (!std::ranges::is_sorted(track, {}, order)) std::ranges::sort(track, {}, order);
    const auto end = static_cast<std::ptrdiff_t>(all.size());
    all.insert(all.end(), track.begin(), track.end());
    std::ranges::inplace_merge(all, all.begin() + end, {}, order);
  }
  for (const Timed& timed : all) {
    plan_.order.push_back(timed.chunk);
    PackedChunk& chunk =
        std::get<PackedChunks>(plan_.tracks[timed.chunk.track].places)[timed.chunk.chunk];
    chunk.destination = plan_.dataSize;
    plan_.dataSize += chunk.size;
  }
}

void Planner::AddAuxiliary(std::size_t index) {
  TrackPlan& track = plan_.tracks[index];
  track.auxiliary.emplace();
  const SampleRows* kept = plan_.movie->tracks[index]->media->samples.WholeRows();
  if (kept == nullptr) return;
  const MediaRecord& source = *track.source->media;
  const std::vector<AuxiliaryData> found =
      FindAuxiliaryData(source, SamplesOf(source, prepared_[index].used));
  // Without all of this information the samples cannot be decrypted.
  const auto stated = std::ranges::count(kept->otherTables, FourCC{"saio"}, &Sibling::type);
  if (source.IsProtected() && found.size() != static_cast<std::size_t>(stated)) {
    throw Refused{invalidSampleTable, "data that decrypts the samples cannot be found"};
  }
  for (const AuxiliaryData& data : found) {
    track.auxiliary->push_back({data.table, plan_.dataSize});
    for (CopyRange range : data.ranges) {
      ends_.Of(*range.from).Check(range.at, range.length);
      range.destination = plan_.dataSize;
      plan_.dataSize += range.length;
      plan_.auxiliary.push_back(range);
    }
  }
}

}  // namespace toolbox
