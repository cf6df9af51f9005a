#include "toolbox/atoms/encoded_tables.h"

#include <utility>

namespace toolbox {

void EncodedNumbers::Add(std::uint64_t number) {
  if (!isWide_ && number > UINT32_MAX) {
    const EncodedNumbers narrow = std::exchange(*this, {true, {}});
    for (std::size_t i = 0; i < narrow.Count(); ++i) Add(narrow[i]);
  }
  if (isWide_) {
    AppendBigEndian(bytes_.Writable(), number);
  } else {
    AppendBigEndian(bytes_.Writable(), static_cast<std::uint32_t>(number));
  }
}

std::optional<OffsetRuns> OffsetRuns::ViewOf(ByteSpan rows, std::uint32_t samples) {
  OffsetRuns runs;
  std::uint64_t sum = 0;
  std::int32_t last = 0;
  for (std::size_t at = 0; at < rows.size(); at += Row::kSize) {
    const Row row = DecodeRow<Row>(&rows[at]);
    const bool isLikeLast = at != 0 && row.offset == last;
    if (row.count == 0 || isLikeLast || sum + row.count > samples) return std::nullopt;
    runs.marks_.Add(at / Row::kSize, static_cast<std::uint32_t>(sum));
    runs.Reach(row.offset, at == 0);
    sum += row.count;
    last = row.offset;
  }
  if (sum != samples) return std::nullopt;
  runs.bytes_ = TableBytes(rows);
  runs.samples_ = samples;
  return runs;
}

void OffsetRuns::Add(std::uint32_t samples, std::int32_t offset) {
  if (samples == 0) return;
  Bytes& rows = bytes_.Writable();
  const bool isFirst = rows.empty();
  std::uint8_t* last = isFirst ? nullptr : &rows[rows.size() - Row::kSize];
  const Row lastRow = isFirst ? Row{} : DecodeRow<Row>(last);
  if (!isFirst && lastRow.offset == offset) {
    EncodeRow(Row{lastRow.count + samples, offset}, last);
  } else {
    Reach(offset, isFirst);
    marks_.Add(rows.size() / Row::kSize, samples_);
    AppendRow(rows, Row{samples, offset});
  }
  samples_ += samples;
}

void ChunkRuns::Walk::RefuseChanged() {
  throw Refused{invalidSampleTable, "the chunks of the samples have changed"};
}

std::optional<ChunkRuns> ChunkRuns::ViewOf(ByteSpan rows, std::uint32_t chunks,
                                           std::uint32_t samples, std::size_t descriptions) {
  ChunkRuns runs;
  std::uint64_t sum = 0;
  for (std::size_t at = 0; at < rows.size(); at += Row::kSize) {
    const auto [first, perChunk, description] = DecodeRow<Row>(&rows[at]);
    const std::uint64_t end = at + Row::kSize < rows.size()
                                  ? DecodeRow<Row>(&rows[at + Row::kSize]).firstChunk
                                  : std::uint64_t{chunks} + 1;
    if (first == 0 || end <= first || end > std::uint64_t{chunks} + 1) return std::nullopt;
    if (perChunk == 0 || description == 0 || description > descriptions) return std::nullopt;
    runs.marks_.Add(at / Row::kSize, static_cast<std::uint32_t>(sum));
    // A division, because it cannot overflow.
    if ((samples - sum) / perChunk < end - first) return std::nullopt;
    sum += (end - first) * perChunk;
    runs.descriptions_ = std::max(runs.descriptions_, description);
  }
  runs.bytes_ = TableBytes(rows);
  runs.samples_ = static_cast<std::uint32_t>(sum);
  runs.nextChunk_ = chunks;
  return runs;
}

void ChunkRuns::Add(std::uint32_t chunk, std::uint32_t chunks, std::uint32_t samplesPerChunk,
                    std::uint32_t description) {
  if (chunks == 0 || samplesPerChunk == 0) return;
  Bytes& rows = bytes_.Writable();
  const auto addRow = [&](std::uint64_t from, std::uint32_t perChunk) {
    marks_.Add(rows.size() / Row::kSize, samples_);
    AppendRow(rows, Row{static_cast<std::uint32_t>(from + 1), perChunk, description + 1});
  };
  const bool isFirst = rows.empty();
  const Row last = isFirst ? Row{} : DecodeRow<Row>(&rows[rows.size() - Row::kSize]);
  const bool continues = !isFirst && chunk == nextChunk_ &&
                         last.samplesPerChunk == samplesPerChunk &&
                         last.description == description + 1;
  // Skipped chunks need a row too, because a row ends only where the next one begins.
  if (!isFirst && chunk != nextChunk_) {
    addRow(nextChunk_, 0);
    hasGaps_ = true;
  }
  if (!continues) addRow(chunk, samplesPerChunk);
  samples_ += chunks * samplesPerChunk;
  nextChunk_ = std::uint64_t{chunk} + chunks;
  descriptions_ = std::max(descriptions_, description + 1);
}

}  // namespace toolbox
