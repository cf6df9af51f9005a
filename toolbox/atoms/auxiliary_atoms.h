// Where sample auxiliary information is in the file and how long it is, ISO/IEC 14496-12 8.7.8 and
// 8.7.9. What decrypts encrypted samples is such information.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/siblings.h"

namespace toolbox {

// What 'saiz' and 'saio' both begin with: the kind of information. The two atoms of one kind belong
// together.
struct AuxiliaryKind {
  static constexpr std::uint32_t kIsStated = 1;  // a flag: type and parameter are in the atom

  std::uint32_t versionAndFlags = 0;
  FourCC type;
  std::uint32_t parameter = 0;

  bool IsStated() const { return (versionAndFlags & kIsStated) != 0; }
  static void Fields(auto& io, auto& kind) {
    io("version", kind.versionAndFlags);
    if (!kind.IsStated()) return;
    io("type", kind.type);
    io("parameter", kind.parameter);
  }
  bool IsSame(const AuxiliaryKind& other) const {
    return type == other.type && parameter == other.parameter && IsStated() == other.IsStated();
  }
};

// 'saiz': the size of the information of each sample, in bytes.
struct AuxiliarySizes {
  static constexpr FourCC kType{"saiz"};
  AuxiliaryKind kind;
  std::uint8_t constant = 0;  // the size of all; 0: see `sizes`
  std::uint32_t count = 0;  // samples
  Bytes sizes;  // one byte a sample

  static void Fields(auto& io, auto& table) {
    AuxiliaryKind::Fields(io, table.kind);
    io("constant", table.constant);
    io("count", table.count);
    io.Rest("sizes", table.sizes);
  }
  // The 'saiz' for samples of those sizes, at least one: with a constant size if they are equal.
  static AuxiliarySizes Of(AuxiliaryKind kind, Bytes sizes);

  // False if there are fewer sizes than `count`; then the other functions must not be called.
  bool IsComplete() const { return constant != 0 || count <= sizes.size(); }
  // The size for one sample, an index; 0 beyond the last.
  std::uint8_t SizeOf(std::uint64_t sample) const;
  // The sum of the sizes of the samples [from, to).
  std::uint64_t Sum(std::uint64_t from, std::uint64_t to) const;
};

// 'saio': where the information is, in bytes. One offset for each chunk or run of samples, or one
// for all of them together.
struct AuxiliaryOffsets {
  static constexpr FourCC kType{"saio"};
  AuxiliaryKind kind;
  std::uint32_t count = 0;
  Bytes table;  // offsets of 32 bits in version 0, of 64 bits in others

  static void Fields(auto& io, auto& offsets) {
    AuxiliaryKind::Fields(io, offsets.kind);
    io("count", offsets.count);
    io.Rest("table", offsets.table);
  }
  // The 'saio' with those offsets. They have 64 bits, so that its size does not depend on them.
  static AuxiliaryOffsets Of(AuxiliaryKind kind, std::span<const std::uint64_t> offsets);

  // Throws Malformed if there are fewer than `count`.
  std::vector<std::uint64_t> Offsets() const;
};

// The content of `sibling` if it is an atom of that type and kept as bytes.
std::optional<ByteSpan> ContentOf(const Sibling& sibling, FourCC type);

}  // namespace toolbox
