// The sizes and file offsets of sample auxiliary information, ISO/IEC 14496-12 8.7.8 and 8.7.9.
// Encrypted movies use it for the data that decrypts each sample.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/siblings.h"

namespace toolbox {

// The first fields of both 'saiz' and 'saio': the kind of information. A 'saiz' and a 'saio' of the
// same kind belong together.
struct AuxiliaryKind {
  static constexpr std::uint32_t kIsStated = 1;  // flag: the atom has type and parameter

  std::uint32_t versionAndFlags = 0;
  FourCC type;
  std::uint32_t parameter = 0;

  bool IsStated() const { return (versionAndFlags & kIsStated) != 0; }
  static void Fields(auto& io, auto& kind) {
    if (!kind.IsStated()) return;
    io("type", kind.type);
    io("parameter", kind.parameter);
  }
  // Ignores the version, which may differ between 'saiz' and 'saio'.
  bool IsSame(const AuxiliaryKind& other) const {
    return type == other.type && parameter == other.parameter && IsStated() == other.IsStated();
  }
};

// 'saiz', ISO/IEC 14496-12 8.7.8: the size in bytes of the information of each sample.
struct AuxiliarySizes {
  static constexpr FourCC kType{"saiz"};
  AuxiliaryKind kind;
  std::uint8_t constant = 0;  // the size for every sample; 0: `sizes` has them
  std::uint32_t count = 0;  // samples
  Bytes sizes;  // one byte a sample

  static void Fields(auto& io, auto& table) {
    AtomFields(io, table.kind);
    io("constant", table.constant);
    io("count", table.count);
    io.Rest("sizes", table.sizes);
  }
  // Makes a 'saiz' from one size a sample. There must be at least one. It has a constant size if
  // all sizes are equal and not 0.
  static AuxiliarySizes Of(AuxiliaryKind kind, Bytes sizes);

  // False if there are fewer sizes than `count`; then the other functions must not be called.
  bool IsComplete() const { return constant != 0 || count <= sizes.size(); }
  // The size for the sample with this index; 0 for an index after the last.
  std::uint8_t SizeOf(std::uint64_t sample) const;
  // The sum of the sizes of the samples [from, to). Samples after the last add nothing.
  std::uint64_t Sum(std::uint64_t from, std::uint64_t to) const;
};

// 'saio', ISO/IEC 14496-12 8.7.9: the offsets in bytes of the information. There is one offset for
// each chunk (in a fragment: each 'trun'), or a single one if all the information is contiguous.
struct AuxiliaryOffsets {
  static constexpr FourCC kType{"saio"};
  AuxiliaryKind kind;
  std::uint32_t count = 0;
  Bytes table;  // offsets of 32 bits in version 0, of 64 bits in others

  static void Fields(auto& io, auto& offsets) {
    AtomFields(io, offsets.kind);
    io("count", offsets.count);
    io.Rest("table", offsets.table);
  }
  // Makes a 'saio' of version 1. Its offsets have 64 bits, so its size is known before they are.
  static AuxiliaryOffsets Of(AuxiliaryKind kind, std::span<const std::uint64_t> offsets);

  // The decoded offsets. Throws Malformed if there are fewer than `count`.
  std::vector<std::uint64_t> Offsets() const;
};

// The content of `sibling`, as a view of its bytes. Returns nothing if it has another type or is
// not kept as bytes.
std::optional<ByteSpan> ContentOf(const Sibling& sibling, FourCC type);

}  // namespace toolbox
