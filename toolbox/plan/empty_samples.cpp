#include "toolbox/plan/empty_samples.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "toolbox/atoms/sample_entries.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/sound_packets.h"

namespace toolbox {

std::optional<Bytes> SilentPacket(ByteSpan description) {
  if (EntryFormat(description) != FourCC{"mp4a"}) return std::nullopt;
  const auto config = LowComplexityConfig(description);
  if (!config) return std::nullopt;
  // ISO/IEC 14496-3 4.4.2.1: one element without spectral data, then the end.
  if (config->channels == 1) return Bytes{0x01, 0x18, 0x20, 0x07};
  if (config->channels == 2) return Bytes{0x21, 0x10, 0x00, 0x00, 0x00, 0x1C};
  return std::nullopt;
}

std::optional<std::uint8_t> SilentByte(ByteSpan description) {
  struct Known {
    FourCC format;
    std::uint8_t silence = 0;
  };
  static constexpr Known kKnown[] = {
      {FourCC{"raw "}, 0},   {FourCC{"NONE"}, 0}, {FourCC{"twos"}, 0}, {FourCC{"sowt"}, 0},
      {FourCC{"in24"}, 0},   {FourCC{"in32"}, 0}, {FourCC{"fl32"}, 0}, {FourCC{"fl64"}, 0},
      {FourCC{"lpcm"}, 0},   {FourCC{"ipcm"}, 0}, {FourCC{"fpcm"}, 0}, {FourCC{"ulaw"}, 0xFF},
      {FourCC{"alaw"}, 0xD5}};
  constexpr std::uint8_t kUnsignedZero = 0x80;
  constexpr std::uint32_t kSigned = 4;  // of the format flags
  const auto entry = ReadSoundEntry(description);
  if (!entry) return std::nullopt;
  const bool isRaw = entry->format == FourCC{"raw "} || entry->format == FourCC{"NONE"};
  if (isRaw && entry->bits == 8) return kUnsignedZero;
  const auto wide = entry->Wide();
  if (wide && wide->bits == 8 && (wide->formatFlags & kSigned) == 0) return kUnsignedZero;
  const auto known = std::ranges::find(kKnown, entry->format, &Known::format);
  return known == std::end(kKnown) ? std::nullopt : std::optional(known->silence);
}

std::optional<Bytes> EmptyText(ByteSpan description) {
  const FourCC format = EntryFormat(description);
  // A text of length 0.
  if (format == FourCC{"text"} || format == FourCC{"tx3g"}) return Bytes{0, 0};
  // ISO/IEC 14496-30 7.4: an empty cue.
  if (format == FourCC{"wvtt"}) return Bytes{0, 0, 0, 8, 'v', 't', 't', 'e'};
  return std::nullopt;
}

SampleTable EmptySamples::Make(std::uint64_t like, const Bytes& bytes, std::uint32_t count,
                               MediaTime length) {
  constexpr std::size_t kBlockSize = 64 << 10;
  const SampleSlice& slice = media_.samples.SliceOf(like);
  const FileChunks chunk = ChunkAt(*slice.rows, slice.RowOf(like));
  const std::uint32_t description = (*slice.descriptions)[chunk.description];
  const auto [known, isNew] = blocks_.try_emplace(description);
  Block& block = known->second;
  if (isNew) {
    block.samples = static_cast<std::uint32_t>(std::max<std::size_t>(1, kBlockSize / bytes.size()));
    const InMemory data{std::make_shared<Bytes>()};
    for (std::uint32_t i = 0; i < block.samples; ++i) {
      data.data->insert(data.data->end(), bytes.begin(), bytes.end());
    }
    SampleDescription here = media_.descriptions[description];
    here.dataReference = media_.FindOrAdd(DataReference(data));
    block.description = media_.FindOrAdd(here);
  }

  auto rows = std::make_shared<SampleRows>();
  rows->count = count;
  const auto each = static_cast<std::uint32_t>(length.units / count);
  const auto longer = static_cast<std::uint32_t>(length.units % count);
  rows->AddTimes(longer, each + 1);
  rows->AddTimes(count - longer, each);
  const Packing packing = slice.rows->PackingOf(chunk.description);
  if (slice.rows->constantSize != 0 && packing.bytes == bytes.size()) {
    // States the size as the other samples do, so that one size is enough for the whole file.
    rows->constantSize = slice.rows->constantSize;
    rows->packings = {packing};
  } else {
    rows->constantSize = static_cast<std::uint32_t>(bytes.size());
  }
  const std::uint32_t chunks = count / block.samples + (count % block.samples != 0 ? 1 : 0);
  rows->AddChunks(0, chunks, block.samples, 0);
  rows->chunkOffsets.Add(chunks, 0);
  SampleTable table;
  table.AppendSlice(SampleTable(std::move(rows)), {0, count}, std::span(&block.description, 1));
  return table;
}

}  // namespace toolbox
