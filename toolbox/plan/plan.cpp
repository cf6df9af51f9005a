#include "toolbox/plan/plan.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <map>
#include <numeric>
#include <tuple>

#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/auxiliary_data.h"
#include "toolbox/plan/kept_places.h"
#include "toolbox/plan/used_samples.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr std::uint64_t kLargestChunk = 1 << 20;  // bytes

// How long each source is, so that nothing is planned to be read beyond its end.
class SourceSizes {
 public:
  explicit SourceSizes(const std::optional<OtherFile>& ownFile) : ownFile_(ownFile) {}

  std::uint64_t Of(const DataReference& reference) {
    if (const auto* memory = std::get_if<InMemory>(&reference)) return memory->data->size();
    const OtherFile* file = std::get_if<OtherFile>(&reference);
    if (std::holds_alternative<ThisFile>(reference) && ownFile_) file = &*ownFile_;
    if (file == nullptr) throw Refused{couldNotResolveDataRef};
    const auto [known, isNew] = sizes_.try_emplace(file->path.native(), 0);
    if (isNew) {
      boost::system::error_code failed;
      known->second = boost::filesystem::file_size(file->path, failed);
      if (failed) throw Refused{couldNotResolveDataRef};
    }
    return known->second;
  }

 private:
  const std::optional<OtherFile>& ownFile_;
  std::map<std::string, std::uint64_t> sizes_;
};

// Cuts the samples of a track into chunks of at most half a second and 1 MiB.
class ChunkCutter {
 public:
  ChunkCutter(const MediaRecord& media, std::span<const std::uint32_t> descriptions,
              std::vector<OutputChunk>& chunks)
      : media_(media),
        descriptions_(descriptions),
        chunks_(chunks),
        longest_{std::max(media.scale / 2, 1)} {}

  // A new chunk starts with the next piece.
  void Close() { isOpen_ = false; }

  void Add(SamplePiece piece) {
    const std::uint32_t description = descriptions_[piece.description];
    while (piece.count != 0) {
      if (isOpen_ && chunks_.back().description != description) Close();
      std::uint32_t taken = Fitting(piece);
      if (taken == 0 && isOpen_) {
        Close();
        continue;
      }
      if (taken == 0) taken = std::min(piece.count, PacketLength(media_.samples, piece.sample));
      Take(piece, taken, description);
    }
  }

 private:
  // How many samples of `piece` still go into the open chunk, or into a new one; whole packets.
  std::uint32_t Fitting(const SamplePiece& piece) {
    const MediaTime room = isOpen_ ? std::max(longest_ - duration_, MediaTime{}) : longest_;
    const std::uint64_t bytes =
        isOpen_ ? kLargestChunk - std::min(kLargestChunk, chunks_.back().size) : kLargestChunk;
    const SampleTable& samples = media_.samples;
    std::uint32_t fitting = piece.count;
    if (piece.count == 1) {
      if (times_.DurationOf(piece.sample) > room) return 0;
    } else if (times_.TimeOf(piece.sample + piece.count) - times_.TimeOf(piece.sample) > room) {
      const MediaTime end = times_.TimeOf(piece.sample) + room;
      fitting = static_cast<std::uint32_t>(samples.SampleAt(end) - piece.sample);
    }
    if (piece.size > bytes) {
      // Bisects, for sizes only grow with the count.
      std::uint32_t low = 0, high = fitting;
      while (low < high) {
        const std::uint32_t middle = high - (high - low) / 2;
        if (SizeOf(samples, piece.sample, middle, piece.description) <= bytes) {
          low = middle;
        } else {
          high = middle - 1;
        }
      }
      fitting = low;
    }
    if (fitting == piece.count) return fitting;
    return fitting - fitting % PacketLength(samples, piece.sample);
  }

  void Take(SamplePiece& piece, std::uint32_t count, std::uint32_t description) {
    if (!isOpen_) {
      chunks_.push_back({.sample = piece.sample, .description = description});
      duration_ = {};
      isOpen_ = true;
    }
    const std::uint64_t size = count == piece.count
                                   ? piece.size
                                   : SizeOf(media_.samples, piece.sample, count, piece.description);
    duration_ += times_.TimeOf(piece.sample + count) - times_.TimeOf(piece.sample);
    chunks_.back().size += size;
    chunks_.back().count += count;
    piece.sample += count;
    piece.count -= count;
    piece.offset += size;
    piece.size -= size;
  }

  const MediaRecord& media_;
  std::span<const std::uint32_t> descriptions_;
  std::vector<OutputChunk>& chunks_;
  TimeCursor times_{media_.samples};
  const MediaTime longest_;
  bool isOpen_ = false;
  MediaTime duration_;  // of the open chunk
};

// Sound is laid in front of the picture it belongs to, everything else behind.
int Rank(FourCC type) { return type == FourCC{"soun"} ? 0 : type == FourCC{"vide"} ? 1 : 2; }

class Planner {
 public:
  Planner(const MovieRecord& movie, FilePlan& plan) : plan_(plan), sizes_(movie.file) {
    plan.movie = movie.Clone();
    plan.ownFile = movie.file;
    for (const auto& track : movie.tracks) plan.tracks.push_back({track.get(), {}});
  }

  void Drop(std::size_t track) {
    plan_.movie->RemoveTrack(*plan_.movie->tracks[track]);
    plan_.tracks.erase(plan_.tracks.begin() + static_cast<std::ptrdiff_t>(track));
  }

  // Leaves in the output track at that index what the source's shows.
  void Prepare(std::size_t index);
  // Plans to copy the samples of a prepared track as they lie in their files, all tracks together;
  // false where that cannot be done, and nothing is planned.
  bool KeepPlaces(std::uint64_t mostChunks);
  // Plans to copy them chunk by chunk.
  void Cut(std::size_t index);
  // Gives every chunk its place.
  void Arrange(bool interleave);
  // Plans to copy what lies beside the samples of a prepared track.
  void AddAuxiliary(std::size_t index);

 private:
  // A description for each of the source's, those that are equal once they share a file being one.
  void MergeDescriptions(std::size_t index);

  // What is known of a track once it is prepared.
  struct Prepared {
    std::vector<UsedSamples> used;
    std::vector<std::uint64_t> ends;  // by description: the size of the file its samples lie in

    void CheckEnd(const SamplePiece& piece) const {
      const std::uint64_t end = ends[piece.description];
      if (piece.offset > end || piece.size > end - piece.offset) throw Refused{eofErr};
    }
  };

  struct Timed {
    MovieTime shown;
    int rank;
    ChunkReference chunk;
  };

  FilePlan& plan_;
  SourceSizes sizes_;
  std::map<std::size_t, Prepared> prepared_;  // by track
  std::vector<Timed> timed_;
};

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
  prepared.ends.assign(isUsed.size(), 0);
  for (std::uint32_t i = 0; i < isUsed.size(); ++i) {
    // A media without samples keeps what it says of them.
    if (!isUsed[i] && !prepared.used.empty()) continue;
    if (isUsed[i]) prepared.ends[i] = sizes_.Of(source.ReferenceOf(i));
    SampleDescription description = source.descriptions[i];
    description.dataReference = 0;
    map[i] = media.FindOrAdd(description);
  }
}

void Planner::Prepare(std::size_t index) {
  TrackPlan& track = plan_.tracks[index];
  TrackRecord& output = *plan_.movie->tracks[index];
  const MediaRecord& source = *track.source->media;
  std::vector<UsedSamples>& used = prepared_[index].used = SamplesInUse(*track.source);
  for (const UsedSamples& part : used) {
    if (!IsLocated(source.samples, part.samples)) throw Refused{invalidSampleTable};
  }
  MergeDescriptions(index);
  output.media->dataReferences = {ThisFile{}};

  // The samples in use close up; `moved` remembers by how much each stretch did.
  if (source.samples.Count() != 0) output.media->samples = {};
  std::map<std::uint64_t, MediaTime> moved;
  for (const UsedSamples& part : used) {
    const MediaTime now =
        output.media->samples.AppendSlice(source.samples, part.samples, track.descriptions);
    moved[part.samples.from] = now - source.samples.TimeOf(part.samples.from);
  }
  // What such a track says of its samples would not be true of some of them.
  if (source.IsProtected() && output.media->samples.WholeRows() == nullptr) {
    throw Refused{featureUnsupported};
  }
  output.edits = {};
  for (const Edit& edit : track.source->edits.Edits()) {
    const UsedSamples needs = SamplesFor(*track.source, edit);
    MediaTime mediaTime = Edit::kNothing;  // what shows no sample shows nothing
    if (!needs.samples.IsEmpty()) {
      mediaTime = edit.mediaTime + std::prev(moved.upper_bound(needs.samples.from))->second;
    }
    output.edits.Append(edit.duration, mediaTime, edit.rate, output.TimeClock());
  }
  output.edits.TrimEnd();
}

void Planner::Cut(std::size_t index) {
  TrackPlan& track = plan_.tracks[index];
  const MediaRecord& source = *track.source->media;
  ChunkCutter cutter(source, track.descriptions, track.chunks);
  for (const UsedSamples& part : prepared_[index].used) {
    cutter.Close();
    const std::size_t before = track.chunks.size();
    ForEachPiece(source.samples, part.samples, [&](const SamplePiece& piece) {
      prepared_[index].CheckEnd(piece);
      cutter.Add(piece);
    });
    for (std::size_t i = before; i < track.chunks.size(); ++i) {
      timed_.push_back({FirstShown(*track.source, part, track.chunks[i].sample),
                        Rank(source.Type()),
                        {static_cast<std::uint32_t>(index), static_cast<std::uint32_t>(i)}});
    }
  }
}

bool Planner::KeepPlaces(std::uint64_t mostChunks) {
  if (mostChunks == 0) return false;
  KeptPlaces kept(plan_);
  for (const auto& [index, prepared] : prepared_) {
    for (const UsedSamples& part : prepared.used) {
      if (!kept.Add(index, part, prepared.ends) || kept.Chunks() > mostChunks) return false;
    }
  }
  return kept.Take();
}

void Planner::Arrange(bool interleave) {
  const auto order = [interleave](const Timed& timed) {
    return std::tuple(interleave ? timed.shown : MovieTime{}, interleave ? timed.rank : 0,
                      timed.chunk.track, timed.chunk.chunk);
  };
  std::ranges::sort(timed_, {}, order);
  for (const Timed& timed : timed_) {
    plan_.order.push_back(timed.chunk);
    OutputChunk& chunk = plan_.tracks[timed.chunk.track].chunks[timed.chunk.chunk];
    chunk.destination = plan_.dataSize;
    plan_.dataSize += chunk.size;
  }
}

// Those samples of a media, with the descriptions that it gives them.
SampleTable SamplesOf(const MediaRecord& media, std::span<const UsedSamples> parts) {
  std::vector<std::uint32_t> same(media.descriptions.size());
  std::iota(same.begin(), same.end(), 0U);
  SampleTable samples;
  for (const UsedSamples& part : parts) {
    samples.AppendSlice(media.samples, part.samples, same);
  }
  return samples;
}

void Planner::AddAuxiliary(std::size_t index) {
  TrackPlan& track = plan_.tracks[index];
  track.auxiliary.emplace();
  const SampleRows* kept = plan_.movie->tracks[index]->media->samples.WholeRows();
  if (kept == nullptr) return;
  const MediaRecord& source = *track.source->media;
  const std::vector<AuxiliaryData> found =
      FindAuxiliaryData(source, SamplesOf(source, prepared_[index].used));
  const auto stated = std::ranges::count(kept->otherTables, FourCC{"saio"}, &Sibling::type);
  if (source.IsProtected() && found.size() != static_cast<std::size_t>(stated)) {
    throw Refused{invalidSampleTable};
  }
  for (const AuxiliaryData& data : found) {
    track.auxiliary->push_back({data.table, plan_.dataSize});
    for (CopyRange range : data.ranges) {
      const std::uint64_t end = sizes_.Of(*range.from);
      if (range.at > end || range.length > end - range.at) throw Refused{eofErr};
      range.destination = plan_.dataSize;
      plan_.dataSize += range.length;
      plan_.auxiliary.push_back(range);
    }
  }
}

bool UsesAllSamples(const TrackRecord& track) {
  if (!track.media) return true;
  std::uint64_t count = 0;
  for (const UsedSamples& part : SamplesInUse(track)) count += part.samples.Count();
  return count == track.media->samples.Count();
}

// Whether a hint track would speak of samples by numbers that they no longer have.
bool IsBrokenHint(const TrackRecord& track, bool onlyEnabled) {
  if (!track.media || track.media->Type() != FourCC{"hint"}) return false;
  if (!UsesAllSamples(track)) return true;
  return std::ranges::any_of(track.references, [&](const TrackReferences& list) {
    return std::ranges::any_of(list.targets, [&](const TrackRecord* target) {
      return target == nullptr || !UsesAllSamples(*target) || (onlyEnabled && !target->IsEnabled());
    });
  });
}

// Descriptors and scenes of MPEG-4 systems (ISO/IEC 14496-1) speak of tracks in a way that only the
// file they came in bears out, and readers of QuickTime movies stumble over them.
void DropSystems(FilePlan& plan, Planner& planner) {
  static constexpr FourCC kSystems[] = {"odsm", "sdsm", "ocsm", "ipsm", "mjsm", "m7sm"};
  std::erase_if(plan.movie->siblings,
                [](const Sibling& sibling) { return sibling.type == FourCC{"iods"}; });
  for (std::size_t i = plan.tracks.size(); i-- > 0;) {
    const auto& media = plan.tracks[i].source->media;
    if (media && std::ranges::find(kSystems, media->Type()) != std::end(kSystems)) planner.Drop(i);
  }
}

}  // namespace

FilePlan PlanFlattened(const MovieRecord& movie, FlattenOptions options) {
  FilePlan plan;
  Planner planner(movie, plan);
  DropSystems(plan, planner);
  for (std::size_t i = plan.tracks.size(); i-- > 0;) {
    const TrackRecord& track = *plan.tracks[i].source;
    const bool isBroken = IsBrokenHint(track, options.onlyEnabled);
    if (isBroken || (options.onlyEnabled && !track.IsEnabled())) planner.Drop(i);
    if (isBroken)
      std::erase_if(plan.movie->userData.items,
                    [](const UserDataItem& item) { return item.type == FourCC{"hnti"}; });
  }
  std::vector<std::size_t> withMedia;
  for (std::size_t i = 0; i < plan.tracks.size(); ++i) {
    if (plan.tracks[i].source->media) withMedia.push_back(i);
  }
  for (const std::size_t i : withMedia) planner.Prepare(i);
  if (!planner.KeepPlaces(options.mostChunksKept)) {
    for (const std::size_t i : withMedia) planner.Cut(i);
    planner.Arrange(options.interleave);
  }
  for (const std::size_t i : withMedia) planner.AddAuxiliary(i);
  return plan;
}

namespace {

// Samples stay where they are, but those held in memory are copied.
void PlanInPlace(FilePlan& plan, Planner& planner) {
  for (std::size_t i = 0; i < plan.tracks.size(); ++i) {
    const auto& media = plan.movie->tracks[i]->media;
    const bool isInMemory =
        media && std::ranges::any_of(media->dataReferences, [](const DataReference& reference) {
          return std::holds_alternative<InMemory>(reference);
        });
    if (!isInMemory) continue;
    planner.Prepare(i);
    planner.Cut(i);
  }
  planner.Arrange(true);
}

}  // namespace

FilePlan PlanReference(const MovieRecord& movie) {
  FilePlan plan;
  Planner planner(movie, plan);
  DropSystems(plan, planner);
  PlanInPlace(plan, planner);
  for (std::size_t i = 0; i < plan.tracks.size(); ++i) {
    auto& media = plan.movie->tracks[i]->media;
    if (!media || !plan.tracks[i].chunks.empty()) continue;
    for (DataReference& reference : media->dataReferences) {
      if (!std::holds_alternative<ThisFile>(reference)) continue;
      if (!movie.file) throw Refused{couldNotResolveDataRef};
      reference = *movie.file;
    }
  }
  return plan;
}

FilePlan PlanUpdate(const MovieRecord& movie) {
  FilePlan plan;
  plan.kind = FileKind::kUnchanged;
  Planner planner(movie, plan);
  PlanInPlace(plan, planner);
  return plan;
}

}  // namespace toolbox
