// The atoms of a sample table, each by its list of fields.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/atoms/fields.h"

namespace toolbox {

struct SampleDescriptions {  // 'stsd', ISO/IEC 14496-12 8.5.2
  static constexpr FourCC kType{"stsd"};
  std::uint32_t versionAndFlags = 0;
  std::vector<Bytes> entries;  // whole: size, format, six bytes, data-reference index, ...

  static void Fields(auto& io, auto& descriptions) {
    io("version", descriptions.versionAndFlags);
    io.Atoms("entries", descriptions.entries);
  }
};

struct TimeToSample {  // 'stts', ISO/IEC 14496-12 8.6.1.2
  static constexpr FourCC kType{"stts"};
  struct Row {
    static constexpr std::size_t kSize = 8;
    std::uint32_t count = 0, delta = 0;
    static void Fields(auto& io, auto& row) {
      io("count", row.count);
      io("delta", row.delta);
    }
  };
  std::uint32_t versionAndFlags = 0;
  Rows<Row> rows;

  static void Fields(auto& io, auto& times) {
    io("version", times.versionAndFlags);
    io.Table("rows", times.rows);
  }
};

struct CompositionOffsets {  // 'ctts', ISO/IEC 14496-12 8.6.1.3
  static constexpr FourCC kType{"ctts"};
  struct Row {
    static constexpr std::size_t kSize = 8;
    std::uint32_t count = 0;
    // Signed in version 0 too, where ISO says unsigned: writers in the field store negative offsets
    // there, and a true offset never needs the top bit.
    std::int32_t offset = 0;
    static void Fields(auto& io, auto& row) {
      io("count", row.count);
      io("offset", row.offset);
    }
  };
  std::uint32_t versionAndFlags = 0;
  Rows<Row> rows;

  static void Fields(auto& io, auto& offsets) {
    io("version", offsets.versionAndFlags);
    io.Table("rows", offsets.rows);
  }
};

struct SampleNumber {  // a sample by its number, the first being 1
  static constexpr std::size_t kSize = 4;
  std::uint32_t number = 0;
  static void Fields(auto& io, auto& row) { io("number", row.number); }
};

// 'stss' (ISO/IEC 14496-12 8.6.2) or QuickTime's 'stps' of partial sync samples.
template <bool kPartial>
struct SyncNumbers {
  static constexpr FourCC kType = kPartial ? FourCC{"stps"} : FourCC{"stss"};
  std::uint32_t versionAndFlags = 0;
  Rows<SampleNumber> rows;

  static void Fields(auto& io, auto& sync) {
    io("version", sync.versionAndFlags);
    io.Table("rows", sync.rows);
  }
};
using SyncSamples = SyncNumbers<false>;
using PartialSyncSamples = SyncNumbers<true>;

struct SampleToChunk {  // 'stsc', ISO/IEC 14496-12 8.7.4
  static constexpr FourCC kType{"stsc"};
  struct Row {
    static constexpr std::size_t kSize = 12;
    std::uint32_t firstChunk = 0, samplesPerChunk = 0, description = 0;  // numbers from 1
    static void Fields(auto& io, auto& row) {
      io("firstChunk", row.firstChunk);
      io("samplesPerChunk", row.samplesPerChunk);
      io("description", row.description);
    }
  };
  std::uint32_t versionAndFlags = 0;
  Rows<Row> rows;

  static void Fields(auto& io, auto& chunks) {
    io("version", chunks.versionAndFlags);
    io.Table("rows", chunks.rows);
  }
};

struct SampleSize {
  static constexpr std::size_t kSize = 4;
  std::uint32_t size = 0;
  static void Fields(auto& io, auto& row) { io("size", row.size); }
};

struct ConstantSampleSize {  // 'stsz' where all samples have one size, ISO/IEC 14496-12 8.7.3.2
  static constexpr FourCC kType{"stsz"};
  std::uint32_t versionAndFlags = 0, size = 0, count = 0;

  // Whether the 'stsz' with that content is this one; else it has a size for each sample.
  static bool IsIn(ByteSpan content) {
    return content.size() >= 8 && FromBigEndian<std::uint32_t>(&content[4]) != 0;
  }
  static void Fields(auto& io, auto& sizes) {
    io("version", sizes.versionAndFlags);
    io("size", sizes.size);
    io("count", sizes.count);
  }
};

struct SampleSizes {  // 'stsz' with a size for each sample
  static constexpr FourCC kType{"stsz"};
  std::uint32_t versionAndFlags = 0, constant = 0;
  Rows<SampleSize> rows;

  static void Fields(auto& io, auto& sizes) {
    io("version", sizes.versionAndFlags);
    io("constant", sizes.constant);
    io.Table("rows", sizes.rows);
  }
};

struct CompactSampleSizes {  // 'stz2', ISO/IEC 14496-12 8.7.3.3
  static constexpr FourCC kType{"stz2"};
  std::uint32_t versionAndFlags = 0, fieldBits = 0, count = 0;  // fieldBits: 4, 8 or 16
  Bytes fields;

  static void Fields(auto& io, auto& sizes) {
    io("version", sizes.versionAndFlags);
    io("fieldBits", sizes.fieldBits);
    io("count", sizes.count);
    io.Rest("fields", sizes.fields);
  }
};

// 'stco' or 'co64', ISO/IEC 14496-12 8.7.5: where each chunk lies in its file.
template <class Offset>
struct ChunkOffsetTable {
  static constexpr FourCC kType = sizeof(Offset) == 4 ? FourCC{"stco"} : FourCC{"co64"};
  struct Row {
    static constexpr std::size_t kSize = sizeof(Offset);
    Offset offset = 0;
    static void Fields(auto& io, auto& row) { io("offset", row.offset); }
  };
  std::uint32_t versionAndFlags = 0;
  Rows<Row> rows;

  static void Fields(auto& io, auto& offsets) {
    io("version", offsets.versionAndFlags);
    io.Table("rows", offsets.rows);
  }
};
using ChunkOffsets = ChunkOffsetTable<std::uint32_t>;
using WideChunkOffsets = ChunkOffsetTable<std::uint64_t>;

struct SampleDependencies {  // 'sdtp', ISO/IEC 14496-12 8.6.4
  static constexpr FourCC kType{"sdtp"};
  std::uint32_t versionAndFlags = 0;
  Bytes samples;  // one byte each

  static void Fields(auto& io, auto& dependencies) {
    io("version", dependencies.versionAndFlags);
    io.Rest("samples", dependencies.samples);
  }
};

struct DegradationPriorities {  // 'stdp', ISO/IEC 14496-12 8.5.3
  static constexpr FourCC kType{"stdp"};
  std::uint32_t versionAndFlags = 0;
  Bytes samples;  // two bytes each

  static void Fields(auto& io, auto& priorities) {
    io("version", priorities.versionAndFlags);
    io.Rest("samples", priorities.samples);
  }
};

struct PaddingBits {  // 'padb', ISO/IEC 14496-12 8.7.6
  static constexpr FourCC kType{"padb"};
  std::uint32_t versionAndFlags = 0, count = 0;
  Bytes samples;  // four bits each, the top one 0

  static void Fields(auto& io, auto& padding) {
    io("version", padding.versionAndFlags);
    io("count", padding.count);
    io.Rest("samples", padding.samples);
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
    io("version", groups.versionAndFlags);
    io("grouping", groups.grouping);
    if (groups.versionAndFlags >> 24 == 1) io("parameter", groups.parameter);
    io.Table("rows", groups.rows);
  }
};

struct SampleGroupDescriptions {  // 'sgpd', ISO/IEC 14496-12 8.9.3
  static constexpr FourCC kType{"sgpd"};
  Bytes content;
  static void Fields(auto& io, auto& descriptions) { io.Rest("content", descriptions.content); }
};

struct CompactSampleToGroup {  // 'csgp', ISO/IEC 14496-12 8.9.5
  static constexpr FourCC kType{"csgp"};
  Bytes content;
  static void Fields(auto& io, auto& groups) { io.Rest("content", groups.content); }
};

}  // namespace toolbox
