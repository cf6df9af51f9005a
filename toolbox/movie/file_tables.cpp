#include "toolbox/movie/file_tables.h"

namespace toolbox {

void FileNumbers::Widen() {
  const FileNumbers narrow = std::exchange(*this, {});
  isWide_ = true;
  for (std::size_t i = 0; i < narrow.Count(); ++i) Add(narrow[i]);
}

std::optional<OffsetRuns> OffsetRuns::Stated(ByteSpan rows, std::uint32_t samples) {
  OffsetRuns runs;
  std::uint64_t sum = 0;
  for (std::size_t at = 0; at < rows.size(); at += kRow) {
    const auto count = FromBigEndian<std::uint32_t>(&rows[at]);
    const bool isLikeLast = at != 0 && FromBigEndian<std::uint32_t>(&rows[at + 4]) ==
                                           FromBigEndian<std::uint32_t>(&rows[at - 4]);
    if (count == 0 || isLikeLast || sum + count > samples) return std::nullopt;
    runs.marks_.Add(at / kRow, static_cast<std::uint32_t>(sum));
    runs.Reach(FromBigEndian<std::int32_t>(&rows[at + 4]), at == 0);
    sum += count;
  }
  if (sum != samples) return std::nullopt;
  runs.bytes_ = TableBytes(rows);
  runs.samples_ = samples;
  return runs;
}

void OffsetRuns::Add(std::uint32_t samples, std::int32_t offset) {
  if (samples == 0) return;
  Bytes& rows = bytes_.Made();
  const bool isFirst = rows.empty();
  std::uint8_t* last = isFirst ? nullptr : &rows[rows.size() - kRow];
  if (!isFirst && FromBigEndian<std::int32_t>(last + 4) == offset) {
    ToBigEndian(FromBigEndian<std::uint32_t>(last) + samples, last);
  } else {
    Reach(offset, isFirst);
    marks_.Add(rows.size() / kRow, samples_);
    AppendBigEndian(rows, samples);
    AppendBigEndian(rows, offset);
  }
  samples_ += samples;
}

std::optional<ChunkRuns> ChunkRuns::Stated(ByteSpan rows, std::uint32_t chunks,
                                           std::uint32_t samples, std::size_t descriptions) {
  ChunkRuns runs;
  std::uint64_t sum = 0;
  for (std::size_t at = 0; at < rows.size(); at += kRow) {
    const auto first = FromBigEndian<std::uint32_t>(&rows[at]);
    const auto perChunk = FromBigEndian<std::uint32_t>(&rows[at + 4]);
    const auto description = FromBigEndian<std::uint32_t>(&rows[at + 8]);
    const std::uint64_t end = at + kRow < rows.size()
                                  ? FromBigEndian<std::uint32_t>(&rows[at + kRow])
                                  : std::uint64_t{chunks} + 1;
    if (first == 0 || end <= first || end > std::uint64_t{chunks} + 1) return std::nullopt;
    if (perChunk == 0 || description == 0 || description > descriptions) return std::nullopt;
    runs.marks_.Add(at / kRow, static_cast<std::uint32_t>(sum));
    if ((samples - sum) / perChunk < end - first) return std::nullopt;
    sum += (end - first) * perChunk;
    runs.descriptions_ = std::max(runs.descriptions_, description);
  }
  runs.bytes_ = TableBytes(rows);
  runs.samples_ = static_cast<std::uint32_t>(sum);
  runs.nextChunk_ = chunks;
  return runs;
}

void ChunkRuns::AddRow(std::uint64_t chunk, std::uint32_t samplesPerChunk,
                       std::uint32_t description) {
  Bytes& rows = bytes_.Made();
  marks_.Add(rows.size() / kRow, samples_);
  AppendBigEndian(rows, static_cast<std::uint32_t>(chunk + 1));
  AppendBigEndian(rows, samplesPerChunk);
  AppendBigEndian(rows, description + 1);
}

void ChunkRuns::Add(std::uint32_t chunk, std::uint32_t chunks, std::uint32_t samplesPerChunk,
                    std::uint32_t description) {
  if (chunks == 0 || samplesPerChunk == 0) return;
  const Bytes& rows = bytes_.Made();
  const bool isFirst = rows.empty();
  const std::uint8_t* last = isFirst ? nullptr : &rows[rows.size() - kRow];
  const bool goesOn = !isFirst && chunk == nextChunk_ &&
                      FromBigEndian<std::uint32_t>(last + 4) == samplesPerChunk &&
                      FromBigEndian<std::uint32_t>(last + 8) == description + 1;
  // Chunks without samples in between have a row too: a run ends where the next begins.
  if (!isFirst && chunk != nextChunk_) {
    AddRow(nextChunk_, 0, description);
    hasGaps_ = true;
  }
  if (!goesOn) AddRow(chunk, samplesPerChunk, description);
  samples_ += chunks * samplesPerChunk;
  nextChunk_ = std::uint64_t{chunk} + chunks;
  descriptions_ = std::max(descriptions_, description + 1);
}

}  // namespace toolbox
