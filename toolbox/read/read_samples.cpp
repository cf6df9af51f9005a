#include "toolbox/read/read_samples.h"

#include <algorithm>
#include <utility>

#include "toolbox/read/read_groups.h"

namespace toolbox {
namespace {

constexpr FourCC kSound{"soun"};

void ReadDescriptions(SampleTableAtoms& table, MediaRecord& media) {
  if (!table.descriptions) return;
  for (Bytes& bytes : table.descriptions->entries) {
    SampleDescription description{std::move(bytes)};
    if (description.HoldsReference()) {
      const auto number = FromBigEndian<std::uint16_t>(&description.bytes[14]);
      if (number >= 1 && number <= media.dataReferences.size())
        description.dataReference = number - 1U;
    }
    media.descriptions.push_back(std::move(description));
  }
}

// Bytes of one frame of sound that is not compressed, by the format and the fields of a description
// of version 0; 0 for any other format.
std::uint32_t PlainFrameSize(FourCC format, std::uint32_t channels, std::uint32_t bits) {
  struct Known {
    FourCC format;
    std::uint32_t bits = 0;  // 0: as the description says
  };
  static constexpr Known kKnown[] = {
      {FourCC{"raw "}, 0},  {FourCC{"twos"}, 0},  {FourCC{"sowt"}, 0},  {FourCC{"NONE"}, 0},
      {FourCC{"in24"}, 24}, {FourCC{"in32"}, 32}, {FourCC{"fl32"}, 32}, {FourCC{"fl64"}, 64},
      {FourCC{"ulaw"}, 8},  {FourCC{"alaw"}, 8}};
  const auto known = std::ranges::find(kKnown, format, &Known::format);
  if (known == std::end(kKnown)) return 0;
  return channels * ((known->bits != 0 ? known->bits : bits) / 8);
}

// How the samples of a sound description lie in packets. QuickTime: version 1 states it, version 2
// does for uncompressed sound.
Packing ReadPacking(const SampleDescription& description) {
  constexpr std::uint16_t kVariable = 0xFFFE;
  const Bytes& bytes = description.bytes;
  if (bytes.size() < 36) return {};
  const auto number16 = [&](std::size_t at) { return FromBigEndian<std::uint16_t>(&bytes[at]); };
  const auto number32 = [&](std::size_t at) { return FromBigEndian<std::uint32_t>(&bytes[at]); };
  const std::uint16_t version = number16(16);
  if (version == 1 && bytes.size() >= 52) {
    const std::uint32_t samples = number32(36), frame = number32(44);
    if (number16(28) == kVariable || samples == 0 || frame == 0) return {};
    return {samples, frame};
  }
  if (version == 2 && bytes.size() >= 72) {
    const std::uint32_t packet = number32(64), frames = number32(68);
    if (packet == 0 || frames == 0 || description.Format() != FourCC{"lpcm"}) return {};
    return {frames, packet};
  }
  const std::uint32_t channels = number16(24);
  if (description.Format() == FourCC{"ima4"}) return {64, 34 * channels};
  return {1, PlainFrameSize(description.Format(), channels, number16(26))};
}

void Read(const ConstantSampleSize& stated, SampleRows& rows) {
  rows.count = stated.count;
  rows.constantSize = stated.size;
}

void Read(const SampleSizes& stated, SampleRows& rows) {
  rows.count = stated.rows.Count();
  rows.sizes = FileNumbers(false, stated.rows.Encoded());
}

void Read(const CompactSampleSizes& stated, SampleRows& rows) {
  const std::uint32_t bits = stated.fieldBits & 0xFF;
  if (bits != 4 && bits != 8 && bits != 16) throw Malformed("'stz2' has an unknown width");
  if (stated.count > stated.fields.size() * 8 / bits) {
    throw Malformed("'stz2' is shorter than its count");
  }
  rows.count = stated.count;
  for (std::size_t i = 0; i < rows.count; ++i) {
    const std::uint8_t* at = &stated.fields[i * bits / 8];
    rows.sizes.Add(bits == 16  ? FromBigEndian<std::uint16_t>(at)
                   : bits == 8 ? *at
                               : (i % 2 == 0 ? *at >> 4U : *at & 15U));
  }
}

void ReadTimes(const SampleTableAtoms& table, SampleRows& rows) {
  std::uint32_t delta = 1;
  if (const auto& times = table.times) {
    times->rows.ForEach([&](const TimeToSample::Row& row) {
      rows.AddTimes(row.count, row.delta);
      if (row.count != 0) delta = row.delta;
    });
  }
  // Samples without a time go on like the last that has one.
  rows.AddTimes(UINT32_MAX, delta);

  if (const auto& offsets = table.offsets) {
    rows.offsetsVersion = offsets->versionAndFlags >> 24;
    if (auto stated = OffsetRuns::Stated(offsets->rows.Encoded(), rows.count)) {
      rows.offsets = std::move(*stated);
      return;
    }
    offsets->rows.ForEach(
        [&](const CompositionOffsets::Row& row) { rows.AddOffsets(row.count, row.offset); });
    if (!rows.offsets.IsEmpty()) rows.AddOffsets(UINT32_MAX, 0);
  }
}

void Read(const ChunkOffsets& stated, SampleRows& rows) {
  rows.chunkOffsets = FileNumbers(false, stated.rows.Encoded());
}

void Read(const WideChunkOffsets& stated, SampleRows& rows) {
  stated.rows.ForEach([](const WideChunkOffsets::Row& row) {
    if (row.offset > INT64_MAX) throw Malformed("a chunk lies beyond the end of any file");
  });
  rows.chunkOffsets = FileNumbers(true, stated.rows.Encoded());
}

void ReadChunks(const SampleTableAtoms& table, std::size_t descriptions, SampleRows& rows) {
  if (table.chunkOffsets) {
    std::visit([&](const auto& offsets) { Read(offsets, rows); }, *table.chunkOffsets);
  }
  const auto& stated = table.chunks;
  if (!stated) return;
  const auto chunks = static_cast<std::uint32_t>(rows.chunkOffsets.Count());
  if (auto runs = ChunkRuns::Stated(stated->rows.Encoded(), chunks, rows.count, descriptions)) {
    rows.chunkRuns = std::move(*runs);
    return;
  }
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
      throw Malformed("a chunk has no description");
    }
    add(row.firstChunk);
    last = row;
  });
  add(UINT32_MAX);
}

// The numbers of samples as indexes, in order and without repetition.
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

// The tables with a value for each sample.
void ReadValues(SampleTableAtoms& table, SampleRows& rows) {
  const auto atMost = [&rows](std::size_t count) {
    return std::min<std::size_t>(count, rows.count);
  };
  if (auto& dependencies = table.dependencies) {
    rows.dependencies = std::move(dependencies->samples);
    rows.dependencies.resize(atMost(rows.dependencies.size()));
  }
  if (const auto& stated = table.priorities) {
    rows.priorities.resize(atMost(stated->samples.size() / 2));
    for (std::size_t i = 0; i < rows.priorities.size(); ++i) {
      rows.priorities[i] = FromBigEndian<std::uint16_t>(&stated->samples[2 * i]);
    }
  }
  if (const auto& stated = table.padding) {
    rows.padding.resize(atMost(std::min<std::size_t>(stated->count, 2 * stated->samples.size())));
    for (std::size_t i = 0; i < rows.padding.size(); ++i) {
      const std::uint8_t both = stated->samples[i / 2];
      rows.padding[i] = i % 2 == 0 ? both >> 4U & 7U : both & 7U;
    }
  }
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
  if (media.Type() == kSound && rows->constantSize != 0) {
    for (const SampleDescription& description : media.descriptions) {
      rows->packings.push_back(ReadPacking(description));
    }
  }
  rows->otherTables = std::move(table.others);
  return rows;
}

}  // namespace toolbox
