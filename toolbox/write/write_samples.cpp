#include "toolbox/write/write_samples.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <span>
#include <utility>

#include "toolbox/atoms/framing.h"
#include "toolbox/atoms/sample_atoms.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/auxiliary_data.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

std::uint32_t Count(std::uint64_t count) {
  // A file counts samples in 32 bits.
  if (count > UINT32_MAX) throw Refused{invalidSampleTable};
  return static_cast<std::uint32_t>(count);
}

// Rows that `walk` hands to a visitor; only what measures walks to count them.
template <class Row, class Io, class Walk>
Rows<Row> RowsOf(Io& io, Walk walk) {
  const std::uint64_t count = io.Measured([&] {
    std::uint64_t rows = 0;
    walk([&](const Row&) { ++rows; });
    return rows;
  });
  return Rows<Row>(Count(count), [walk](RowBatches<Row>& batches) { walk(batches); });
}

// The chunks of a track of the output, front to back.
class ChunkWalk {
 public:
  ChunkWalk(const FilePlan& plan, std::size_t track, std::uint64_t dataStart)
      : plan_(plan),
        media_(*plan.movie->tracks[track]->media),
        track_(plan.tracks[track]),
        dataStart_(dataStart) {}

  // Whether a chunk lies beyond 4 GiB.
  bool ReachesFar() const {
    const bool isCopied = !std::holds_alternative<StaysInPlace>(track_.places);
    if (isCopied && dataStart_ + plan_.dataSize <= UINT32_MAX) return false;
    std::uint64_t farthest = 0;
    ForEachOffset([&](std::uint64_t offset) { farthest = std::max(farthest, offset); });
    return farthest > UINT32_MAX;
  }

  // Calls visit(SampleChunks); neighbours may be alike.
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

  // Calls visit(offset) for each chunk.
  template <class Visit>
  void ForEachOffset(Visit&& visit) const {
    if (const auto* packed = std::get_if<PackedChunks>(&track_.places)) {
      for (const PackedChunk& chunk : *packed) visit(dataStart_ + chunk.destination);
    } else if (const auto* kept = std::get_if<KeptStretches>(&track_.places)) {
      for (const KeptStretch& stretch : *kept) {
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

// Calls visit(row) for each row of 'stsc'; returns the number of chunks.
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

template <class Offset>
void AddOffsets(auto& table, std::uint32_t count, const ChunkWalk& walk) {
  using Atom = ChunkOffsetTable<Offset>;
  using Row = typename Atom::Row;
  table.Add(Atom{0, Rows<Row>(count, [walk](RowBatches<Row>& rows) {
                   walk.ForEachOffset(
                       [&](std::uint64_t offset) { rows({static_cast<Offset>(offset)}); });
                 })});
}

template <class Io>
void AddChunks(ChildWriter<Io>& table, Io& io, const ChunkWalk& walk) {
  using Row = SampleToChunk::Row;
  std::uint64_t runs = 0;
  const std::uint64_t chunks =
      io.Measured([&] { return ForEachChunkRun(walk, [&](const Row&) { ++runs; }); });
  runs = io.Measured([&] { return runs; });
  table.Add(SampleToChunk{
      0, Rows<Row>(Count(runs), [walk](RowBatches<Row>& rows) { ForEachChunkRun(walk, rows); })});
  if (io.Measured([&] { return walk.ReachesFar(); }) != 0) {
    AddOffsets<std::uint64_t>(table, Count(chunks), walk);
  } else {
    AddOffsets<std::uint32_t>(table, Count(chunks), walk);
  }
}

// ISO states offsets below 0 in version 1; in a file of another kind the version stays what it was.
std::uint32_t OffsetsVersion(const SampleTable& samples, FileKind kind) {
  if (kind != FileKind::kMpeg4) return OffsetsVersion(samples);
  return HasOffsetsBelowZero(samples) ? 1 : 0;
}

using OffsetRow = CompositionOffsets::Row;

template <class Io>
void AddTimes(ChildWriter<Io>& table, Io& io, const SampleTable& samples, FileKind kind) {
  table.Add(TimeToSample{0, RowsOf<TimeToSample::Row>(io, [&samples](auto&& visit) {
                           ForEachTime(samples, [&](std::uint32_t count, std::int64_t delta) {
                             if (delta > UINT32_MAX) throw Refused{invalidDuration};
                             visit({count, static_cast<std::uint32_t>(delta)});
                           });
                         })});
  if (!HasOffsets(samples)) return;
  const std::uint64_t offsets = io.Measured([&samples] {
    std::uint64_t rows = 0;
    ForEachOffset(
        samples, [&](std::uint32_t, std::int32_t) { ++rows; },
        [&](ByteSpan stated) { rows += stated.size() / OffsetRow::kSize; });
    return rows;
  });
  const auto walk = [&samples](RowBatches<OffsetRow>& rows) {
    ForEachOffset(
        samples,
        [&](std::uint32_t count, std::int32_t offset) {
          rows({count, offset});
        },
        [&](ByteSpan stated) { rows.Encoded(stated); });
  };
  table.Add(CompositionOffsets{OffsetsVersion(samples, kind) << 24,
                               Rows<OffsetRow>(Count(offsets), walk)});
}

template <class Io>
void AddSync(ChildWriter<Io>& table, Io& io, const SampleTable& samples, FileKind kind) {
  const auto number = [](auto& visit) {
    return [&visit](std::uint64_t sample) { visit({Count(sample + 1)}); };
  };
  if (HasSyncTable(samples)) {
    table.Add(SyncSamples{0, RowsOf<SampleNumber>(io, [&samples, number](auto&& visit) {
                            ForEachSync(samples, number(visit));
                          })});
  }
  // QuickTime only: where decoding can start, but not cleanly.
  if (kind != FileKind::kMpeg4 && HasPartialSync(samples)) {
    table.Add(PartialSyncSamples{0, RowsOf<SampleNumber>(io, [&samples, number](auto&& visit) {
                                   ForEachPartialSync(samples, number(visit));
                                 })});
  }
}

template <class Io>
void AddSizes(ChildWriter<Io>& table, const SampleTable& samples) {
  if (const auto size = ConstantSize(samples)) {
    table.Add(ConstantSampleSize{0, *size, Count(samples.Count())});
    return;
  }
  table.Add(SampleSizes{
      0, 0, Rows<SampleSize>(Count(samples.Count()), [&samples](RowBatches<SampleSize>& rows) {
        ForEachEncodedSize(samples, [&](ByteSpan stated) { rows.Encoded(stated); });
      })});
}

template <class Io>
void AddGroups(ChildWriter<Io>& table, Io& io, const SampleTable& samples) {
  const auto groups = std::make_shared<const std::vector<JoinedGroup>>(GroupsOf(samples));
  for (const JoinedGroup& group : *groups) {
    if (!group.descriptions.empty()) {
      table.Add(FourCC{"sgpd"}, [&io, &group, groups] { io.Append(group.descriptions); });
    }
    if (!group.isMapped) continue;
    table.Add(SampleToGroup{
        group.versionAndFlags, group.grouping, group.parameter,
        RowsOf<SampleToGroup::Row>(io, [&samples, &group, groups](auto&& visit) {
          ForEachGroup(samples, group, [&](std::uint32_t count, std::uint32_t number) {
            visit({count, number});
          });
        })});
  }
}

// The tables with a value for each sample.
template <class Io>
void AddValues(ChildWriter<Io>& table, const SampleTable& samples) {
  Bytes bytes;
  if (HasValues(samples, &SampleRows::dependencies)) {
    ForEachValue(samples, &SampleRows::dependencies,
                 [&](std::uint8_t byte) { bytes.push_back(byte); });
    table.Add(SampleDependencies{0, std::exchange(bytes, {})});
  }
  if (HasValues(samples, &SampleRows::priorities)) {
    ForEachValue(samples, &SampleRows::priorities, [&](std::uint16_t priority) {
      bytes.push_back(static_cast<std::uint8_t>(priority >> 8U));
      bytes.push_back(static_cast<std::uint8_t>(priority));
    });
    table.Add(DegradationPriorities{0, std::exchange(bytes, {})});
  }
  if (HasValues(samples, &SampleRows::padding)) {
    bool isSecond = false;
    ForEachValue(samples, &SampleRows::padding, [&](std::uint8_t bits) {
      if (isSecond) {
        bytes.back() |= bits;
      } else {
        bytes.push_back(static_cast<std::uint8_t>(bits << 4U));
      }
      isSecond = !isSecond;
    });
    table.Add(PaddingBits{0, Count(samples.Count()), std::exchange(bytes, {})});
  }
}

// Leaves of the tables that nobody reads those that ISO knows and that hold whatever the times are.
void DropForeign(Siblings& tables) {
  static constexpr FourCC kKept[] = {{"subs"}, {"saiz"}, {"saio"}};
  std::erase_if(tables, [](const Sibling& table) {
    return !table.bytes.empty() && std::ranges::find(kKept, table.type) == std::end(kKept);
  });
}

template <class Io>
void Put(Io& io, const FilePlan& plan, std::size_t track, std::uint64_t dataStart) {
  const MediaRecord& media = *plan.movie->tracks[track]->media;
  const SampleTable& samples = media.samples;
  // Tables that nobody reads hold only for just these samples.
  const SampleRows* whole = samples.WholeRows();
  Siblings others = whole != nullptr ? OtherTables(*whole, plan, track, dataStart) : Siblings();
  if (plan.kind == FileKind::kMpeg4) DropForeign(others);
  io.Atom(FourCC{"stbl"}, [&] {
    ChildWriter<Io> table(io, others);
    table.Add(Descriptions(media));
    AddTimes(table, io, samples, plan.kind);
    AddSync(table, io, samples, plan.kind);
    AddChunks(table, io, ChunkWalk(plan, track, dataStart));
    AddSizes(table, samples);
    AddValues(table, samples);
    AddGroups(table, io, samples);
    table.Finish();
  });
}

}  // namespace

void PutSamples(FieldWriter& io, const FilePlan& plan, std::size_t track, std::uint64_t dataStart) {
  Put(io, plan, track, dataStart);
}

void PutSamples(FieldSizer& io, const FilePlan& plan, std::size_t track, std::uint64_t dataStart) {
  Put(io, plan, track, dataStart);
}

}  // namespace toolbox
