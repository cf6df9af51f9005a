#include "toolbox/files/write_samples.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include "toolbox/atoms/framing.h"
#include "toolbox/atoms/sample_atoms.h"
#include "toolbox/files/auxiliary_data.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

std::uint32_t Count(std::uint64_t count) {
  // A file counts samples in 32 bits.
  if (count > UINT32_MAX) throw Refused{invalidSampleTable};
  return static_cast<std::uint32_t>(count);
}

// Rows that `walk` hands to a visitor; walks once to count them.
template <class Row, class Walk>
Rows<Row> RowsOf(Walk walk) {
  std::uint64_t count = 0;
  walk([&](const Row&) { ++count; });
  return Rows<Row>(Count(count), [walk](const auto& visit) { walk(visit); });
}

// Calls visit(samples, description, offset) for each chunk, front to back.
class ChunkWalk {
 public:
  ChunkWalk(const FilePlan& plan, std::size_t track, std::uint64_t dataStart)
      : plan_(plan),
        media_(*plan.movie->tracks[track]->media),
        track_(plan.tracks[track]),
        chunks_(track_.chunks),
        dataStart_(dataStart) {}

  template <class Visit>
  void operator()(Visit&& visit) const {
    for (const OutputChunk& chunk : chunks_) {
      if (!chunk.keepsPlaces) {
        visit(chunk.count, chunk.description, dataStart_ + chunk.destination);
        continue;
      }
      const std::uint64_t start = dataStart_ + chunk.destination - chunk.source;
      track_.source->media->samples.ForEachPiece(
          chunk.sample, chunk.sample + chunk.count, [&](const SamplePiece& piece) {
            visit(piece.count, track_.descriptions[piece.description], start + piece.offset);
          });
    }
    if (!chunks_.empty()) return;
    media_.samples.ForEachPiece(0, media_.samples.LocatedCount(), [&](const SamplePiece& piece) {
      visit(piece.count, piece.description, plan_.shifts.empty() ? piece.offset : Shifted(piece));
    });
  }

 private:
  std::uint64_t Shifted(const SamplePiece& piece) const {
    if (!std::holds_alternative<ThisFile>(media_.ReferenceOf(piece.description)))
      return piece.offset;
    return piece.offset + static_cast<std::uint64_t>(ShiftAt(plan_.shifts, piece.offset));
  }

  const FilePlan& plan_;
  const MediaRecord& media_;
  const TrackPlan& track_;
  const std::vector<OutputChunk>& chunks_;
  std::uint64_t dataStart_;
};

SampleDescriptions Descriptions(const MediaRecord& media) {
  SampleDescriptions list;
  for (const SampleDescription& description : media.descriptions) {
    list.entries.push_back(description.Numbered());
  }
  return list;
}

// The rows of 'stsc': one for each run of chunks that are alike.
template <class Visit>
void ForEachChunkRun(const ChunkWalk& walk, Visit&& visit) {
  SampleToChunk::Row run;
  std::uint32_t chunk = 0;
  walk([&](std::uint32_t samples, std::uint32_t description, std::uint64_t offset) {
    ++chunk;
    const bool isNew = samples != run.samplesPerChunk || description + 1 != run.description;
    if (isNew) run = {chunk, samples, description + 1};
    visit(run, isNew, offset);
  });
}

template <class Io>
void AddChunks(ChildWriter<Io>& table, const ChunkWalk& walk) {
  std::uint64_t runs = 0, chunks = 0, farthest = 0;
  ForEachChunkRun(walk, [&](const SampleToChunk::Row&, bool isNew, std::uint64_t offset) {
    runs += isNew;
    ++chunks;
    farthest = std::max(farthest, offset);
  });
  table.Add(SampleToChunk{0, Rows<SampleToChunk::Row>(Count(runs), [walk](const auto& visit) {
                            ForEachChunkRun(walk, [&](const SampleToChunk::Row& run, bool isNew,
                                                      std::uint64_t) {
                              if (isNew) visit(run);
                            });
                          })});
  const auto addOffsets = [&]<class Offset>(ChunkOffsetTable<Offset> offsets) {
    using Row = typename ChunkOffsetTable<Offset>::Row;
    offsets.rows = Rows<Row>(Count(chunks), [walk](const auto& visit) {
      walk([&](std::uint32_t, std::uint32_t, std::uint64_t offset) {
        visit(Row{static_cast<Offset>(offset)});
      });
    });
    table.Add(std::move(offsets));
  };
  if (farthest > UINT32_MAX) {
    addOffsets(WideChunkOffsets{});
  } else {
    addOffsets(ChunkOffsets{});
  }
}

// ISO states offsets below 0 in version 1; in a file of another kind the version stays what it was.
std::uint32_t OffsetsVersion(const SampleTable& samples, FileKind kind) {
  if (kind != FileKind::kMpeg4) return samples.OffsetsVersion();
  return samples.HasOffsetsBelowZero() ? 1 : 0;
}

template <class Io>
void AddTimes(ChildWriter<Io>& table, const SampleTable& samples, FileKind kind) {
  table.Add(TimeToSample{0, RowsOf<TimeToSample::Row>([&samples](const auto& visit) {
                           samples.ForEachTime([&](std::uint32_t count, std::int64_t delta) {
                             if (delta > UINT32_MAX) throw Refused{invalidDuration};
                             visit(TimeToSample::Row{count, static_cast<std::uint32_t>(delta)});
                           });
                         })});
  if (!samples.HasOffsets()) return;
  table.Add(CompositionOffsets{OffsetsVersion(samples, kind) << 24,
                               RowsOf<CompositionOffsets::Row>([&samples](const auto& visit) {
                                 samples.ForEachOffset(
                                     [&](std::uint32_t count, std::int32_t offset) {
                                       visit(CompositionOffsets::Row{count, offset});
                                     });
                               })});
}

template <class Io>
void AddSync(ChildWriter<Io>& table, const SampleTable& samples, FileKind kind) {
  const auto number = [](const auto& visit) {
    return [&visit](std::uint64_t sample) { visit(SampleNumber{Count(sample + 1)}); };
  };
  if (samples.HasSyncTable()) {
    table.Add(SyncSamples{0, RowsOf<SampleNumber>([&samples, number](const auto& visit) {
                            samples.ForEachSync(number(visit));
                          })});
  }
  // QuickTime only: where decoding can start, but not cleanly.
  if (kind != FileKind::kMpeg4 && samples.HasPartialSync()) {
    table.Add(PartialSyncSamples{0, RowsOf<SampleNumber>([&samples, number](const auto& visit) {
                                   samples.ForEachPartialSync(number(visit));
                                 })});
  }
}

template <class Io>
void AddSizes(ChildWriter<Io>& table, const SampleTable& samples) {
  if (const auto size = samples.ConstantSize()) {
    table.Add(ConstantSampleSize{0, *size, Count(samples.Count())});
    return;
  }
  table.Add(
      SampleSizes{0, 0, Rows<SampleSize>(Count(samples.Count()), [&samples](const auto& visit) {
                    samples.ForEachSize([&](std::uint32_t size) { visit(SampleSize{size}); });
                  })});
}

template <class Io>
void AddGroups(ChildWriter<Io>& table, Io& io, const SampleTable& samples) {
  const auto groups = std::make_shared<const std::vector<JoinedGroup>>(samples.Groups());
  for (const JoinedGroup& group : *groups) {
    if (!group.descriptions.empty()) {
      table.Add(FourCC{"sgpd"}, [&io, &group, groups] { io.Append(group.descriptions); });
    }
    if (!group.isMapped) continue;
    table.Add(
        SampleToGroup{group.versionAndFlags, group.grouping, group.parameter,
                      RowsOf<SampleToGroup::Row>([&samples, &group, groups](const auto& visit) {
                        samples.ForEachGroup(group, [&](std::uint32_t count, std::uint32_t number) {
                          visit(SampleToGroup::Row{count, number});
                        });
                      })});
  }
}

// The tables with a value for each sample.
template <class Io>
void AddValues(ChildWriter<Io>& table, const SampleTable& samples) {
  Bytes bytes;
  if (samples.Has(&SampleRows::dependencies)) {
    samples.ForEachValue(&SampleRows::dependencies,
                         [&](std::uint8_t byte) { bytes.push_back(byte); });
    table.Add(SampleDependencies{0, std::exchange(bytes, {})});
  }
  if (samples.Has(&SampleRows::priorities)) {
    samples.ForEachValue(&SampleRows::priorities, [&](std::uint16_t priority) {
      bytes.push_back(static_cast<std::uint8_t>(priority >> 8U));
      bytes.push_back(static_cast<std::uint8_t>(priority));
    });
    table.Add(DegradationPriorities{0, std::exchange(bytes, {})});
  }
  if (samples.Has(&SampleRows::padding)) {
    bool isSecond = false;
    samples.ForEachValue(&SampleRows::padding, [&](std::uint8_t bits) {
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
    AddTimes(table, samples, plan.kind);
    AddSync(table, samples, plan.kind);
    AddChunks(table, ChunkWalk(plan, track, dataStart));
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
