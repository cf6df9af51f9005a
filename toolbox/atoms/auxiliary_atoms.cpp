#include "toolbox/atoms/auxiliary_atoms.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "toolbox/atoms/encoded_tables.h"
#include "toolbox/atoms/framing.h"

namespace toolbox {

AuxiliarySizes AuxiliarySizes::Of(AuxiliaryKind kind, Bytes sizes) {
  const auto count = static_cast<std::uint32_t>(sizes.size());
  const std::uint8_t first = sizes.front();
  // A constant of 0 means that each sample has its own size, so equal sizes of 0 stay a list.
  const bool isConstant = first != 0 && std::ranges::count(sizes, first) == std::ssize(sizes);
  if (isConstant) return {kind, first, count, {}};
  return {kind, 0, count, std::move(sizes)};
}

std::uint8_t AuxiliarySizes::SizeOf(std::uint64_t sample) const {
  if (sample >= count) return 0;
  return constant != 0 ? constant : sizes[sample];
}

std::uint64_t AuxiliarySizes::Sum(std::uint64_t from, std::uint64_t to) const {
  from = std::min<std::uint64_t>(from, count);
  to = std::min<std::uint64_t>(to, count);
  if (constant != 0) return (to - from) * constant;
  const ByteSpan summed = ByteSpan(sizes).subspan(from, to - from);
  return std::accumulate(summed.begin(), summed.end(), std::uint64_t{0});
}

AuxiliaryOffsets AuxiliaryOffsets::Of(AuxiliaryKind kind, std::span<const std::uint64_t> offsets) {
  kind.versionAndFlags = (kind.versionAndFlags & 0xFFFFFF) | 1U << 24;
  AuxiliaryOffsets atom{kind, static_cast<std::uint32_t>(offsets.size()), {}};
  for (const std::uint64_t offset : offsets) AppendBigEndian(atom.table, offset);
  return atom;
}

std::vector<std::uint64_t> AuxiliaryOffsets::Offsets() const {
  const EncodedNumbers numbers(kind.versionAndFlags >> 24 != 0, table);
  if (count > numbers.Count()) throw Malformed("'saio' is shorter than its count");
  std::vector<std::uint64_t> offsets(count);
  for (std::uint32_t i = 0; i < count; ++i) offsets[i] = numbers[i];
  return offsets;
}

std::optional<ByteSpan> ContentOf(const Sibling& sibling, FourCC type) {
  if (sibling.type != type) return std::nullopt;
  const auto frame = ReadFrame(sibling.bytes, sibling.bytes.size());
  if (!frame) return std::nullopt;
  return ByteSpan(sibling.bytes).subspan(frame->headerSize);
}

}  // namespace toolbox
