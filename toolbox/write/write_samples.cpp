#include "toolbox/write/write_samples.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "toolbox/movie/sample_columns.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/auxiliary_data.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

std::uint32_t Count(std::uint64_t count) {
  // Counts in a file have 32 bits.
  if (count > UINT32_MAX) throw Refused{invalidSampleTable, "a table has too many rows"};
  return static_cast<std::uint32_t>(count);
}

// The rows that `walk` passes to a visitor. Only a FieldSizer counts them, so `walk` runs once to
// count the rows and once to write them.
template <class Row, class Io, class Walk>
Rows<Row> RowsOf(Io& io, Walk walk) {
  const std::uint64_t count = io.Measured([&] {
    std::uint64_t rows = 0;
    walk([&](const Row&) { ++rows; });
    return rows;
  });
  return Rows<Row>(Count(count), [walk](RowBatches<Row>& batches) { walk(batches); });
}

// Throws Refused if a table gets too many rows for samples whose files have no such table: those
// for which lacks(rows) is true. A small file can claim billions of samples.
template <class Lacks>
void CheckMadeRows(const SampleTable& samples, Lacks&& lacks) {
  constexpr std::uint64_t kMaxRows = 1 << 26;
  std::uint64_t count = 0;
  for (const SampleSlice& slice : samples.Slices()) {
    if (lacks(*slice.rows)) count += slice.part.Count();
  }
  if (count > kMaxRows) throw Refused{invalidSampleTable, "a table has too many rows"};
}

// Walks the chunks of a track of the output, in order.
class ChunkWalk {
 public:
  ChunkWalk(const FilePlan& plan, std::size_t track, std::uint64_t dataStart)
      : plan_(plan),
        media_(*plan.movie->tracks[track]->media),
        track_(plan.tracks[track]),
        dataStart_(dataStart) {}

  // Whether a chunk starts beyond 4 GiB, so that the track needs 'co64' instead of 'stco'.
  bool ReachesFar() const {
    const bool isCopied = !std::holds_alternative<StaysInPlace>(track_.places);
    if (isCopied && dataStart_ + plan_.dataSize <= UINT32_MAX) return false;
    std::uint64_t farthest = 0;
    ForEachOffset([&](std::uint64_t offset) { farthest = std::max(farthest, offset); });
    return farthest > UINT32_MAX;
  }

  // Calls visit(SampleChunks) for all chunks. Two successive calls may have equal chunks.
  template <class Visit>
  void ForEachChunks(Visit&& visit) const {
    if (const auto* packed = std::get_if<PackedChunks>(&track_.places)) {
      for (const PackedChunk& chunk : *packed) {
        visit(SampleChunks{1, chunk.count, chunk.description});
      }
    } else if (const auto* kept = std::get_if<KeptStretches>(&track_.places)) {
      for (const KeptStretch& stretch : *kept) {
        toolbox::ForEachChunks(track_.source->media->samples,
                               {stretch.sample, stretch.sample + stretch.count},
                               [&](SampleChunks chunks) {
                                 chunks.description = track_.descriptions[chunks.description];
                                 visit(chunks);
                               });
      }
    } else {
      toolbox::ForEachChunks(media_.samples, {0, LocatedCount(media_.samples)}, visit);
    }
  }

  // Calls visit(offset) for each chunk: where its samples start in the file that has them, in
  // bytes.
  template <class Visit>
  void ForEachOffset(Visit&& visit) const {
    if (const auto* packed = std::get_if<PackedChunks>(&track_.places)) {
      for (const PackedChunk& chunk : *packed) visit(dataStart_ + chunk.destination);
    } else if (const auto* kept = std::get_if<KeptStretches>(&track_.places)) {
      for (const KeptStretch& stretch : *kept) {
        // This may wrap around below 0, but its sum with an offset is right.
        const std::uint64_t shift = dataStart_ + stretch.destination - stretch.source;
        ForEachChunkOffset(track_.source->media->samples,
                           {stretch.sample, stretch.sample + stretch.count},
                           [&](std::uint64_t offset, std::uint32_t) { visit(offset + shift); });
      }
    } else {
      ForEachChunkOffset(
          media_.samples, {0, LocatedCount(media_.samples)},
          [&](std::uint64_t offset, std::uint32_t description) {
            const bool isOwn = std::holds_alternative<ThisFile>(media_.ReferenceOf(description));
            visit(isOwn ? offset + static_cast<std::uint64_t>(ShiftAt(plan_.shifts, offset))
                        : offset);
          });
    }
  }

 private:
  const FilePlan& plan_;
  const MediaRecord& media_;
  const TrackPlan& track_;
  std::uint64_t dataStart_;
};

SampleDescriptions Descriptions(const MediaRecord& media) {
  SampleDescriptions list;
  for (const SampleDescription& description : media.descriptions) {
    list.entries.push_back(description.Numbered());
  }
  return list;
}

// Calls visit(row) for each row of 'stsc': a row is for a run of chunks with the same number of
// samples and the same description. Returns the number of chunks.
template <class Visit>
std::uint64_t ForEachChunkRun(const ChunkWalk& walk, Visit&& visit) {
  SampleToChunk::Row run;
  std::uint64_t chunks = 0;
  walk.ForEachChunks([&](const SampleChunks& alike) {
    if (alike.perChunk != run.samplesPerChunk || alike.description + 1 != run.description) {
      run = {static_cast<std::uint32_t>(chunks + 1), alike.perChunk, alike.description + 1};
      visit(run);
    }
    chunks += alike.count;
  });
  return chunks;
}

template <class Atom>
Atom Offsets(std::uint32_t count, const ChunkWalk& walk) {
  using Row = typename Atom::Row;
  using Offset = decltype(Row::offset);
  return {0, Rows<Row>(count, [walk](RowBatches<Row>& rows) {
            walk.ForEachOffset([&](std::uint64_t offset) { rows({static_cast<Offset>(offset)}); });
          })};
}

template <class Io>
void AddChunks(SampleTableAtoms& table, Io& io, const ChunkWalk& walk) {
  using Row = SampleToChunk::Row;
  std::uint64_t runs = 0;
  const std::uint64_t chunks =
      io.Measured([&] { return ForEachChunkRun(walk, [&](const Row&) { ++runs; }); });
  runs = io.Measured([&] { return runs; });
  table.chunks = SampleToChunk{
      0, Rows<Row>(Count(runs), [walk](RowBatches<Row>& rows) { ForEachChunkRun(walk, rows); })};
  if (io.Measured([&] { return walk.ReachesFar(); }) != 0) {
    table.chunkOffsets = Offsets<WideChunkOffsets>(Count(chunks), walk);
  } else {
    table.chunkOffsets = Offsets<ChunkOffsets>(Count(chunks), walk);
  }
}

// The version of 'ctts'. In MPEG-4 files it is 1 if an offset is below 0. Other files keep the
// version of the source.
std::uint32_t OffsetsVersion(const SampleTable& samples, FileKind kind) {
  if (kind != FileKind::kMpeg4) return OffsetsVersion(samples);
  return HasOffsetsBelowZero(samples) ? 1 : 0;
}

using OffsetRow = CompositionOffsets::Row;

template <class Io>
void AddTimes(SampleTableAtoms& table, Io& io, const SampleTable& samples, FileKind kind) {
  table.times = TimeToSample{0, RowsOf<TimeToSample::Row>(io, [&samples](auto&& visit) {
                               ForEachTime(samples, [&](std::uint32_t count, std::int64_t delta) {
                                 if (delta > UINT32_MAX) {
                                   throw Refused{invalidDuration, "a sample lasts too long"};
                                 }
                                 visit({count, static_cast<std::uint32_t>(delta)});
                               });
                             })};
  if (!HasOffsets(samples)) return;
  const std::uint64_t offsets = io.Measured([&samples] {
    std::uint64_t rows = 0;
    ForEachOffset(
        samples, [&](std::uint32_t, std::int32_t) { ++rows; },
        [&](ByteSpan encoded) { rows += Rows<OffsetRow>(encoded).Count(); });
    return rows;
  });
  const auto walk = [&samples](RowBatches<OffsetRow>& rows) {
    const auto add = [&](std::uint32_t count, std::int32_t offset) { rows({count, offset}); };
    ForEachOffset(samples, add, [&](ByteSpan encoded) { rows.Encoded(encoded); });
  };
  table.offsets = CompositionOffsets{OffsetsVersion(samples, kind) << 24,
                                     Rows<OffsetRow>(Count(offsets), walk)};
}

template <class Io>
void AddSync(SampleTableAtoms& table, Io& io, const SampleTable& samples, FileKind kind) {
  const auto number = [](auto& visit) {
    return [&visit](std::uint64_t sample) { visit({Count(sample + 1)}); };
  };
  if (HasSyncTable(samples)) {
    CheckMadeRows(samples, [](const SampleRows& rows) { return !rows.sync; });
    table.sync = SyncSamples{0, RowsOf<SampleNumber>(io, [&samples, number](auto&& visit) {
                               ForEachSync(samples, number(visit));
                             })};
  }
  // Partial sync samples exist only in QuickTime files: decoding can start at one, but the first
  // pictures may be damaged.
  if (kind != FileKind::kMpeg4 && HasValues(samples, &SampleRows::partialSync)) {
    table.partialSync =
        PartialSyncSamples{0, RowsOf<SampleNumber>(io, [&samples, number](auto&& visit) {
                             ForEachPartialSync(samples, number(visit));
                           })};
  }
}

// The 'stsz': one size for all samples if they are equal, otherwise a table.
SampleSizeAtom Sizes(const SampleTable& samples) {
  const std::uint32_t count = Count(samples.Count());
  if (const auto size = ConstantSize(samples)) return ConstantSampleSize{0, *size, count};
  CheckMadeRows(samples, [](const SampleRows& rows) { return rows.constantSize != 0; });
  return SampleSizes{0, 0, Rows<SampleSize>(count, [&samples](RowBatches<SampleSize>& rows) {
                       ForEachEncodedSize(samples, [&](ByteSpan sizes) { rows.Encoded(sizes); });
                     })};
}

template <class Io>
void AddGroups(SampleTableAtoms& table, Io& io, const SampleTable& samples) {
  // The rows are made after this function returns, so they share the groups.
  const auto groups = std::make_shared<const std::vector<JoinedGroup>>(GroupsOf(samples));
  for (const JoinedGroup& group : *groups) {
    if (group.descriptions) table.groups.emplace_back(*group.descriptions);
    if (!group.isMapped) continue;
    table.groups.emplace_back(
        SampleToGroup{group.versionAndFlags, group.grouping, group.parameter,
                      RowsOf<SampleToGroup::Row>(io, [&samples, &group, groups](auto&& visit) {
                        const auto add = [&](std::uint32_t count, std::uint32_t number) {
                          visit({count, number});
                        };
                        ForEachGroup(samples, group, add);
                      })});
  }
}

// A table with a value for each sample. Nothing if the samples have no such values.
template <class Atom, class Values>
std::optional<Atom> ValuesOf(const SampleTable& samples, Member<SampleRows, Values> values) {
  if (!HasValues(samples, values)) return std::nullopt;
  CheckMadeRows(samples, [values](const SampleRows& rows) { return (rows.*values).empty(); });
  Atom atom;
  ForEachValue(samples, values, [&atom](auto value) { atom.Add(value); });
  return atom;
}

// The content of a 'saio' with its offsets in the output. Nothing if its data is not copied.
// `content` is that of the source, and `index` its index in the other tables of the source.
std::optional<Bytes> MovedOffsets(const FilePlan& plan, std::size_t track, std::size_t index,
                                  ByteSpan content, std::uint64_t dataStart) {
  const auto table = Decode<AuxiliaryOffsets>(content);
  std::vector<std::uint64_t> offsets = table.Offsets();
  if (const auto& places = plan.tracks[track].auxiliary) {
    const auto place = std::ranges::find(*places, index, &AuxiliaryPlace::table);
    if (place == places->end()) return std::nullopt;
    offsets = {dataStart + place->destination};
    return Encode(AuxiliaryOffsets::Of(table.kind, offsets));
  }
  // The data stays in the same file as the samples.
  const MediaRecord& media = *plan.movie->tracks[track]->media;
  if (std::holds_alternative<ThisFile>(media.dataReferences.front())) {
    for (std::uint64_t& offset : offsets) {
      offset += static_cast<std::uint64_t>(ShiftAt(plan.shifts, offset));
    }
  }
  return Encode(AuxiliaryOffsets::Of(table.kind, offsets));
}

// The tables that the toolbox does not interpret, with the offsets of the output.
Siblings OtherTables(const SampleRows& rows, const FilePlan& plan, std::size_t track,
                     std::uint64_t dataStart) {
  const auto& places = plan.tracks[track].auxiliary;
  Siblings tables;
  for (std::size_t i = 0; i < rows.otherTables.size(); ++i) {
    const Sibling& table = rows.otherTables[i];
    // A 'saiz' without its 'saio' is useless.
    if (places && table.type == AuxiliarySizes::kType && places->empty()) continue;
    const auto offsets = ContentOf(table, AuxiliaryOffsets::kType);
    if (!offsets || (!places && plan.shifts.empty())) {
      tables.push_back(table);
    } else if (auto moved = MovedOffsets(plan, track, i, *offsets, dataStart)) {
      tables.push_back({table.type, std::move(*moved)});
    }
  }
  return tables;
}

// Drops all tables except those that ISO defines and that do not depend on the times of samples.
void DropForeign(Siblings& tables) {
  static constexpr FourCC kKept[] = {{"subs"}, {"saiz"}, {"saio"}};
  std::erase_if(tables, [](const Sibling& table) {
    return !table.bytes.empty() && std::ranges::find(kKept, table.type) == std::end(kKept);
  });
}

template <class Io>
SampleTableAtoms TableOf(Io& io, const FilePlan& plan, std::size_t track, std::uint64_t dataStart) {
  const MediaRecord& media = *plan.movie->tracks[track]->media;
  const SampleTable& samples = media.samples;
  SampleTableAtoms table;
  table.descriptions = Descriptions(media);
  AddTimes(table, io, samples, plan.kind);
  AddSync(table, io, samples, plan.kind);
  AddChunks(table, io, ChunkWalk(plan, track, dataStart));
  table.sizes = Sizes(samples);
  table.dependencies = ValuesOf<SampleDependencies>(samples, &SampleRows::dependencies);
  table.priorities = ValuesOf<DegradationPriorities>(samples, &SampleRows::priorities);
  table.padding = ValuesOf<PaddingBits>(samples, &SampleRows::padding);
  AddGroups(table, io, samples);
  // Tables that the toolbox does not interpret are valid only if all samples of the rows are there,
  // and no others.
  const SampleRows* whole = samples.WholeRows();
  if (whole != nullptr) table.others = OtherTables(*whole, plan, track, dataStart);
  if (plan.kind == FileKind::kMpeg4) DropForeign(table.others);
  return table;
}

}  // namespace

SampleTableAtoms SampleTableOf(FieldSizer& io, const FilePlan& plan, std::size_t track,
                               std::uint64_t dataStart) {
  return TableOf(io, plan, track, dataStart);
}

SampleTableAtoms SampleTableOf(FieldWriter& io, const FilePlan& plan, std::size_t track,
                               std::uint64_t dataStart) {
  return TableOf(io, plan, track, dataStart);
}

}  // namespace toolbox
