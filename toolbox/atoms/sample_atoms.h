// The atoms of a sample table, each with its list of fields. Rows that were read are views of the
// bytes of the atom.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "toolbox/atoms/fields.h"

namespace toolbox {

// 'stsd', ISO/IEC 14496-12 8.5.2. sample_entries.h decodes the entries.
using SampleDescriptions = AtomList<FourCC{"stsd"}>;

struct SampleDuration {  // a row of 'stts'
  static constexpr std::size_t kSize = 8;
  std::uint32_t count = 0, delta = 0;  // samples; duration of each in media units
  static void Fields(auto& io, auto& row) {
    io("count", row.count);
    io("delta", row.delta);
  }
};
using TimeToSample = TableAtom<FourCC{"stts"}, SampleDuration>;  // ISO/IEC 14496-12 8.6.1.2

struct CompositionOffset {  // a row of 'ctts'
  static constexpr std::size_t kSize = 8;
  std::uint32_t count = 0;  // samples
  // In media units. Signed in version 0 too, where ISO requires unsigned: real writers store
  // negative offsets there, and a positive offset never needs the top bit.
  std::int32_t offset = 0;
  static void Fields(auto& io, auto& row) {
    io("count", row.count);
    io("offset", row.offset);
  }
};
using CompositionOffsets = TableAtom<FourCC{"ctts"}, CompositionOffset>;  // 14496-12 8.6.1.3

struct SampleNumber {  // the first sample is number 1
  static constexpr std::size_t kSize = 4;
  std::uint32_t number = 0;
  static void Fields(auto& io, auto& row) { io("number", row.number); }
};
using SyncSamples = TableAtom<FourCC{"stss"}, SampleNumber>;  // ISO/IEC 14496-12 8.6.2
using PartialSyncSamples = TableAtom<FourCC{"stps"}, SampleNumber>;  // QuickTime

// A row of 'stsc'. The chunk and the description are numbers from 1. A row is valid up to the chunk
// of the next row.
struct ChunksOfSamples {
  static constexpr std::size_t kSize = 12;
  std::uint32_t firstChunk = 0, samplesPerChunk = 0, description = 0;
  static void Fields(auto& io, auto& row) {
    io("firstChunk", row.firstChunk);
    io("samplesPerChunk", row.samplesPerChunk);
    io("description", row.description);
  }
};
using SampleToChunk = TableAtom<FourCC{"stsc"}, ChunksOfSamples>;  // ISO/IEC 14496-12 8.7.4

struct SampleSize {  // a row of 'stsz', in bytes
  static constexpr std::size_t kSize = 4;
  std::uint32_t size = 0;
  static void Fields(auto& io, auto& row) { io("size", row.size); }
};

struct ConstantSampleSize {  // 'stsz' where all samples have one size, ISO/IEC 14496-12 8.7.3.2
  static constexpr FourCC kType{"stsz"};
  std::uint32_t versionAndFlags = 0, size = 0, count = 0;

  // True if `content`, that of a 'stsz', has this layout; otherwise it has a size for each sample.
  static bool IsIn(ByteSpan content) {
    return content.size() >= 8 && FromBigEndian<std::uint32_t>(&content[4]) != 0;
  }
  static void Fields(auto& io, auto& sizes) {
    io("size", sizes.size);
    io("count", sizes.count);
  }
};

struct SampleSizes {  // 'stsz' with a size for each sample
  static constexpr FourCC kType{"stsz"};
  std::uint32_t versionAndFlags = 0, constant = 0;
  Rows<SampleSize> rows;

  static void Fields(auto& io, auto& sizes) {
    io("constant", sizes.constant);
    io.Table("rows", sizes.rows);
  }
};

struct CompactSampleSizes {  // 'stz2', ISO/IEC 14496-12 8.7.3.3
  static constexpr FourCC kType{"stz2"};
  std::uint32_t versionAndFlags = 0, fieldBits = 0, count = 0;  // fieldBits: 4, 8 or 16
  Bytes fields;

  static void Fields(auto& io, auto& sizes) {
    io("fieldBits", sizes.fieldBits);
    io("count", sizes.count);
    io.Rest("fields", sizes.fields);
  }
  // Calls visit(size) for each sample, in bytes. Throws Malformed before the first call if the
  // fields have an unknown width or there are too few of them.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    // The upper 24 bits are reserved.
    const std::uint32_t bits = fieldBits & 0xFF;
    if (bits != 4 && bits != 8 && bits != 16) throw Malformed("'stz2' has an unknown width");
    if (count > fields.size() * 8 / bits) throw Malformed("'stz2' is shorter than its count");
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint8_t* at = &fields[i * bits / 8];
      visit(bits == 16  ? FromBigEndian<std::uint16_t>(at)
            : bits == 8 ? std::uint32_t{*at}
                        : (i % 2 == 0 ? *at >> 4U : *at & 15U));
    }
  }
};

template <class Offset>
struct ChunkOffset {  // of a chunk in its file, in bytes
  static constexpr std::size_t kSize = sizeof(Offset);
  Offset offset = 0;
  static void Fields(auto& io, auto& row) { io("offset", row.offset); }
};
// ISO/IEC 14496-12 8.7.5: the offset of each chunk.
using ChunkOffsets = TableAtom<FourCC{"stco"}, ChunkOffset<std::uint32_t>>;
using WideChunkOffsets = TableAtom<FourCC{"co64"}, ChunkOffset<std::uint64_t>>;

struct SampleDependencies {  // 'sdtp', ISO/IEC 14496-12 8.6.4
  static constexpr FourCC kType{"sdtp"};
  std::uint32_t versionAndFlags = 0;
  Bytes samples;  // one byte each

  static void Fields(auto& io, auto& dependencies) { io.Rest("samples", dependencies.samples); }
  // Adds the value of the next sample.
  void Add(std::uint8_t value) { samples.push_back(value); }
};

struct DegradationPriorities {  // 'stdp', ISO/IEC 14496-12 8.5.3
  static constexpr FourCC kType{"stdp"};
  std::uint32_t versionAndFlags = 0;
  Bytes samples;  // two bytes each

  static void Fields(auto& io, auto& priorities) { io.Rest("samples", priorities.samples); }
  std::size_t Count() const { return samples.size() / 2; }
  std::uint16_t operator[](std::size_t sample) const {
    return FromBigEndian<std::uint16_t>(&samples[2 * sample]);
  }
  // Adds the priority of the next sample.
  void Add(std::uint16_t priority) { AppendBigEndian(samples, priority); }
};

struct PaddingBits {  // 'padb', ISO/IEC 14496-12 8.7.6
  static constexpr FourCC kType{"padb"};
  std::uint32_t versionAndFlags = 0, count = 0;
  Bytes samples;  // four bits each, the highest of them 0; the first sample in the upper half

  static void Fields(auto& io, auto& padding) {
    io("count", padding.count);
    io.Rest("samples", padding.samples);
  }
  // The number of samples that have a value. The count may exceed the bytes.
  std::size_t Count() const { return std::min<std::size_t>(count, 2 * samples.size()); }
  std::uint8_t operator[](std::size_t sample) const {
    const std::uint8_t both = samples[sample / 2];
    return sample % 2 == 0 ? both >> 4U & 7U : both & 7U;
  }
  // Adds the value of the next sample: a number of bits, at most 7.
  void Add(std::uint8_t bits) {
    if (count++ % 2 == 0) {
      samples.push_back(static_cast<std::uint8_t>(bits << 4U));
    } else {
      samples.back() |= bits;
    }
  }
};

struct SampleToGroup {  // 'sbgp', ISO/IEC 14496-12 8.9.2
  static constexpr FourCC kType{"sbgp"};
  struct Row {
    static constexpr std::size_t kSize = 8;
    std::uint32_t count = 0, group = 0;  // group: number of a description in 'sgpd', 0 for none
    static void Fields(auto& io, auto& row) {
      io("count", row.count);
      io("group", row.group);
    }
  };
  std::uint32_t versionAndFlags = 0;
  FourCC grouping;
  std::uint32_t parameter = 0;
  Rows<Row> rows;

  static void Fields(auto& io, auto& groups) {
    io("grouping", groups.grouping);
    if (groups.versionAndFlags >> 24 == 1) io("parameter", groups.parameter);
    io.Table("rows", groups.rows);
  }
};

}  // namespace toolbox
