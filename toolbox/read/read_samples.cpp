#include "toolbox/read/read_samples.h"

#include <algorithm>
#include <utility>

#include "toolbox/atoms/sample_entries.h"
#include "toolbox/read/read_groups.h"

namespace toolbox {
namespace {

constexpr FourCC kSound{"soun"};

// Adds the entries of 'stsd', ISO/IEC 14496-12 8.5.2. The number of a data reference that does not
// exist becomes that of the first.
void ReadDescriptions(SampleTableAtoms& table, MediaRecord& media) {
  if (!table.descriptions) return;
  for (Bytes& bytes : table.descriptions->entries) {
    SampleDescription description{std::move(bytes)};
    const std::uint32_t number = ReferenceNumber(description.bytes).value_or(0);
    if (number >= 1 && number <= media.dataReferences.size()) {
      description.dataReference = number - 1;
    }
    media.descriptions.push_back(std::move(description));
  }
}

// The size in bytes of one frame (a sample of each channel) of uncompressed sound, for a
// description of version 0. Returns 0 for any other format.
std::uint32_t PlainFrameSize(const SoundEntry& entry) {
  struct Known {
    FourCC format;
    std::uint32_t bits = 0;  // 0: as the description says
  };
  static constexpr Known kKnown[] = {
      {FourCC{"raw "}, 0},  {FourCC{"twos"}, 0},  {FourCC{"sowt"}, 0},  {FourCC{"NONE"}, 0},
      {FourCC{"in24"}, 24}, {FourCC{"in32"}, 32}, {FourCC{"fl32"}, 32}, {FourCC{"fl64"}, 64},
      {FourCC{"ulaw"}, 8},  {FourCC{"alaw"}, 8}};
  const auto known = std::ranges::find(kKnown, entry.format, &Known::format);
  if (known == std::end(kKnown)) return 0;
  return entry.channels * ((known->bits != 0 ? known->bits : entry.bits) / 8U);
}

// How the samples of a sound description are packed. QuickTime: version 1 of the description states
// it. Version 2 states it for uncompressed sound only. Version 0 leaves it to the format.
Packing ReadPacking(const SampleDescription& description) {
  constexpr std::int16_t kVariable = -2;
  const auto entry = ReadSoundEntry(description.bytes);
  if (!entry) return {};
  if (const auto packets = entry->Packets()) {
    const std::uint32_t samples = packets->samplesPerPacket, frame = packets->bytesPerFrame;
    if (entry->compression == kVariable || samples == 0 || frame == 0) return {};
    return {samples, frame};
  }
  if (const auto wide = entry->Wide()) {
    const std::uint32_t packet = wide->bytesPerPacket, samples = wide->samplesPerPacket;
    if (packet == 0 || samples == 0 || entry->format != FourCC{"lpcm"}) return {};
    return {samples, packet};
  }
  // QuickTime: IMA 4:1 has packets of 64 samples in 34 bytes a channel.
  if (entry->format == FourCC{"ima4"}) return {64, 34U * entry->channels};
  return {1, PlainFrameSize(*entry)};
}

// Whether samples have the size and the duration of several frames of uncompressed sound, as ISO
// allows. Each then has the size in its table. QuickTime: each sample is a frame that lasts one
// unit, whatever its size in the table.
bool HasSeveralFrames(const SampleRows& rows, const Packing& frame) {
  return frame.samples == 1 && frame.bytes != 0 && !rows.times.empty() && rows.times[0].delta > 1 &&
         std::uint64_t{rows.times[0].delta} * frame.bytes == rows.constantSize;
}

// 'stsz' and 'stz2', ISO/IEC 14496-12 8.7.3: one size for all samples, a size for each, or a size
// of 4, 8 or 16 bits for each.
void Read(const ConstantSampleSize& stated, SampleRows& rows) {
  rows.count = stated.count;
  rows.constantSize = stated.size;
}

void Read(const SampleSizes& stated, SampleRows& rows) {
  rows.count = stated.rows.Count();
  rows.sizes = EncodedNumbers(false, stated.rows.Encoded());
}

void Read(const CompactSampleSizes& stated, SampleRows& rows) {
  rows.count = stated.count;
  stated.ForEach([&rows](std::uint32_t size) { rows.sizes.Add(size); });
}

// Durations ('stts', ISO/IEC 14496-12 8.6.1.2) and composition offsets ('ctts', 8.6.1.3).
void ReadTimes(const SampleTableAtoms& table, SampleRows& rows) {
  std::uint32_t delta = 1;
  if (const auto& times = table.times) {
    times->rows.ForEach([&](const TimeToSample::Row& row) {
      rows.AddTimes(row.count, row.delta);
      if (row.count != 0) delta = row.delta;
    });
  }
  // Samples after the last row are as long as the last sample with a row. AddTimes stops at count.
  rows.AddTimes(UINT32_MAX, delta);

  if (const auto& offsets = table.offsets) {
    rows.offsetsVersion = offsets->versionAndFlags >> 24;
    if (auto view = OffsetRuns::ViewOf(offsets->rows.Encoded(), rows.count)) {
      rows.offsets = std::move(*view);
      return;
    }
    // The rows cannot be used as they are, so they are copied. The copy is cut or continued with
    // offset 0.
    offsets->rows.ForEach(
        [&](const CompositionOffsets::Row& row) { rows.AddOffsets(row.count, row.offset); });
    if (!rows.offsets.IsEmpty()) rows.AddOffsets(UINT32_MAX, 0);
  }
}

// 'stco' and 'co64', ISO/IEC 14496-12 8.7.5: offsets of 32 or 64 bits. They stay encoded.
void Read(const ChunkOffsets& stated, SampleRows& rows) {
  rows.chunkOffsets = EncodedNumbers(false, stated.rows.Encoded());
}

void Read(const WideChunkOffsets& stated, SampleRows& rows) {
  stated.rows.ForEach([](const WideChunkOffsets::Row& row) {
    if (row.offset > INT64_MAX) throw Malformed("a chunk offset is larger than any file");
  });
  rows.chunkOffsets = EncodedNumbers(true, stated.rows.Encoded());
}

// Chunks and the samples in them ('stsc', ISO/IEC 14496-12 8.7.4). `descriptions` is the number of
// sample descriptions. Throws Malformed.
void ReadChunks(const SampleTableAtoms& table, std::size_t descriptions, SampleRows& rows) {
  if (table.chunkOffsets) {
    std::visit([&](const auto& offsets) { Read(offsets, rows); }, *table.chunkOffsets);
  }
  const auto& stated = table.chunks;
  if (!stated) return;
  const auto chunks = static_cast<std::uint32_t>(rows.chunkOffsets.Count());
  if (auto runs = ChunkRuns::ViewOf(stated->rows.Encoded(), chunks, rows.count, descriptions)) {
    rows.chunkRuns = std::move(*runs);
    return;
  }
  // The table cannot be used as it is: it has errors, or does not fit the chunks or samples. A row
  // ends where the next begins, so each is added when the next is known.
  std::optional<SampleToChunk::Row> last;
  const auto add = [&](std::uint32_t end) {
    if (!last || last->firstChunk > chunks) return;
    end = std::min(end, chunks + 1);
    rows.AddChunks(last->firstChunk - 1, end - last->firstChunk, last->samplesPerChunk,
                   last->description - 1);
  };
  stated->rows.ForEach([&](const SampleToChunk::Row& row) {
    if (row.firstChunk == 0 || (last && row.firstChunk <= last->firstChunk)) {
      throw Malformed("the runs of chunks are out of order");
    }
    if (row.samplesPerChunk != 0 && (row.description == 0 || row.description > descriptions)) {
      throw Malformed("a chunk names a sample description that is missing");
    }
    add(row.firstChunk);
    last = row;
  });
  add(UINT32_MAX);
}

// The sample numbers of a table as indexes, in order and without repetition ('stss', ISO/IEC
// 14496-12 8.6.2). Numbers of samples that do not exist are dropped. Nothing if there is no table.
std::optional<std::vector<std::uint32_t>> ReadNumbers(const auto& stated, std::uint32_t count) {
  if (!stated) return std::nullopt;
  std::vector<std::uint32_t> samples;
  samples.reserve(stated->rows.Count());
  stated->rows.ForEach([&](const SampleNumber& row) {
    if (row.number >= 1 && row.number <= count) samples.push_back(row.number - 1);
  });
  if (!std::ranges::is_sorted(samples)) std::ranges::sort(samples);
  samples.erase(std::unique(samples.begin(), samples.end()), samples.end());
  return samples;
}

// The tables that have a value for each sample: 'sdtp', 'stdp' and 'padb'. Values after the last
// sample are dropped.
void ReadValues(SampleTableAtoms& table, SampleRows& rows) {
  // Samples without a value get 0. A small file can claim billions of samples, so a table with
  // values for less than half of them is dropped.
  const auto isUsable = [&rows](std::size_t values) { return values >= rows.count / 2; };
  const auto read = [&rows](const auto& stated, auto& values) {
    values.resize(std::min<std::size_t>(stated.Count(), rows.count));
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = stated[i];
  };
  if (table.dependencies && isUsable(table.dependencies->samples.size())) {
    rows.dependencies = std::move(table.dependencies->samples);
    rows.dependencies.resize(std::min<std::size_t>(rows.dependencies.size(), rows.count));
  }
  if (table.priorities && isUsable(table.priorities->Count())) {
    read(*table.priorities, rows.priorities);
  }
  if (table.padding && isUsable(table.padding->Count())) read(*table.padding, rows.padding);
}

}  // namespace

std::shared_ptr<SampleRows> ReadSamples(SampleTableAtoms table, MediaRecord& media) {
  auto rows = std::make_shared<SampleRows>();
  ReadDescriptions(table, media);
  if (table.sizes) std::visit([&](const auto& sizes) { Read(sizes, *rows); }, *table.sizes);
  ReadTimes(table, *rows);
  ReadChunks(table, media.descriptions.size(), *rows);
  rows->sync = ReadNumbers(table.sync, rows->count);
  rows->partialSync =
      ReadNumbers(table.partialSync, rows->count).value_or(std::vector<std::uint32_t>{});
  ReadValues(table, *rows);
  ReadSampleGroups(table.groups, *rows);
  // If a table has the size of each sample, the samples are not in packets.
  if (media.Type() == kSound && rows->constantSize != 0) {
    for (const SampleDescription& description : media.descriptions) {
      const Packing packing = ReadPacking(description);
      rows->packings.push_back(HasSeveralFrames(*rows, packing) ? Packing{} : packing);
    }
  }
  rows->otherTables = std::move(table.others);
  return rows;
}

std::uint32_t FrameSize(const SampleDescription& description) {
  const Packing packing = ReadPacking(description);
  if (packing.bytes != 0) return packing.samples == 1 ? packing.bytes : 0;
  // ISO/IEC 23003-5. ReadPacking does not know these formats, because a sample in a table may have
  // several frames.
  const auto entry = ReadSoundEntry(description.bytes);
  const bool isIso = entry && (entry->format == FourCC{"ipcm"} || entry->format == FourCC{"fpcm"});
  return isIso ? entry->channels * (entry->bits / 8U) : 0;
}

}  // namespace toolbox
