#include "toolbox/plan/auxiliary_data.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "toolbox/atoms/auxiliary_atoms.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/movie/sample_places.h"

namespace toolbox {
namespace {

// The 'saiz' of that kind. Nothing if there is none or if it is incomplete.
std::optional<AuxiliarySizes> FindSizes(const Siblings& tables, const AuxiliaryKind& kind) {
  for (const Sibling& table : tables) {
    const auto content = ContentOf(table, AuxiliarySizes::kType);
    if (!content) continue;
    auto sizes = Decode<AuxiliarySizes>(*content);
    if (!sizes.kind.IsSame(kind)) continue;
    return sizes.IsComplete() ? std::optional(std::move(sizes)) : std::nullopt;
  }
  return std::nullopt;
}

// The ranges of the file that a 'saio' with that content points to: one for each chunk, or one for
// all samples. Nothing if the tables contradict each other.
std::optional<std::vector<CopyRange>> RangesOf(const MediaRecord& media, const SampleTable& samples,
                                               ByteSpan content) try {
  const SampleRows& rows = *samples.WholeRows();
  const auto table = Decode<AuxiliaryOffsets>(content);
  const std::vector<std::uint64_t> offsets = table.Offsets();
  const auto sizes = FindSizes(rows.otherTables, table.kind);
  if (!sizes || offsets.empty()) return std::nullopt;
  std::vector<CopyRange> ranges;
  std::size_t chunk = 0;
  ForEachPiece(samples, {0, rows.Located()}, [&](const SamplePiece& piece) {
    const bool isFirst = ranges.empty();
    // A single offset is that of the data of all samples.
    if (offsets.size() == 1 && !isFirst) return;
    const std::uint64_t end = offsets.size() == 1 ? rows.count : piece.sample + piece.count;
    if (chunk < offsets.size()) {
      ranges.push_back({&media.ReferenceOf(piece.description), offsets[chunk],
                        sizes->Sum(piece.sample, end), 0});
    }
    ++chunk;
  });
  if (chunk != offsets.size()) return std::nullopt;
  return ranges;
} catch (const Malformed&) {
  return std::nullopt;
}

}  // namespace

std::vector<AuxiliaryData> FindAuxiliaryData(const MediaRecord& media, const SampleTable& samples) {
  std::vector<AuxiliaryData> found;
  const SampleRows* rows = samples.WholeRows();
  if (rows == nullptr || rows->Located() < rows->count) return found;
  for (std::size_t i = 0; i < rows->otherTables.size(); ++i) {
    const auto content = ContentOf(rows->otherTables[i], AuxiliaryOffsets::kType);
    if (!content) continue;
    if (auto ranges = RangesOf(media, samples, *content)) found.push_back({i, std::move(*ranges)});
  }
  return found;
}

std::int64_t ShiftAt(std::span<const OffsetShift> shifts, std::uint64_t offset) {
  const auto after = std::ranges::upper_bound(shifts, offset, {}, &OffsetShift::from);
  return after == shifts.begin() ? 0 : std::prev(after)->by;
}

}  // namespace toolbox
