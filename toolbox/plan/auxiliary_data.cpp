#include "toolbox/plan/auxiliary_data.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kSizes{"saiz"}, kOffsets{"saio"};
constexpr std::size_t kHead = 8;

// What both atoms start with: of which kind of information they are.
struct Kind {
  std::uint32_t versionAndFlags = 0;
  FourCC type;
  std::uint32_t parameter = 0;

  static Kind Read(FieldReader& io) {
    Kind kind;
    io("version", kind.versionAndFlags);
    if ((kind.versionAndFlags & 1) == 0) return kind;
    io("type", kind.type);
    io("parameter", kind.parameter);
    return kind;
  }
  // The same behind a version.
  Bytes Encoded() const {
    if ((versionAndFlags & 1) == 0) return {0, 0, 0, 0};
    return toolbox::Encoded([this](auto& io) {
      io("flags", std::uint32_t{1});
      io("type", type);
      io("parameter", parameter);
    });
  }
  bool Is(const Kind& other) const {
    return type == other.type && parameter == other.parameter &&
           (versionAndFlags & 1) == (other.versionAndFlags & 1);
  }
};

struct Sizes {
  std::uint8_t constant = 0;
  std::uint32_t count = 0;  // samples
  ByteSpan each;  // where there is no constant one

  // What stands behind the kind.
  static std::optional<Sizes> Read(FieldReader& io) {
    Sizes sizes;
    io("size", sizes.constant);
    io("count", sizes.count);
    sizes.each = io.Remaining();
    if (sizes.constant == 0 && sizes.count > sizes.each.size()) return std::nullopt;
    return sizes;
  }
  std::uint8_t Of(std::uint64_t sample) const {
    if (sample >= count) return 0;
    return constant != 0 ? constant : each[sample];
  }
  // Of the samples [from, to) together.
  std::uint64_t Sum(std::uint64_t from, std::uint64_t to) const {
    from = std::min<std::uint64_t>(from, count);
    to = std::min<std::uint64_t>(to, count);
    if (constant != 0) return (to - from) * constant;
    std::uint64_t sum = 0;
    for (const std::uint8_t size : each.subspan(from, to - from)) sum += size;
    return sum;
  }
};

std::optional<Sizes> FindSizes(const Siblings& tables, const Kind& kind) {
  for (const Sibling& table : tables) {
    if (table.type != kSizes || table.bytes.size() < kHead) continue;
    FieldReader io(ByteSpan(table.bytes).subspan(kHead));
    if (Kind::Read(io).Is(kind)) return Sizes::Read(io);
  }
  return std::nullopt;
}

struct Offsets {
  Kind kind;
  std::vector<std::uint64_t> each;
};

// `content` is the atom without size and type.
Offsets ReadOffsets(ByteSpan content) {
  FieldReader io(content);
  Offsets offsets{Kind::Read(io), {}};
  const bool isWide = offsets.kind.versionAndFlags >> 24 != 0;
  std::uint32_t count = 0;
  io("count", count);
  if (count > io.Remaining().size() / (isWide ? 8 : 4)) {
    throw Malformed("'saio' is shorter than its count");
  }
  for (; count != 0; --count) {
    std::uint64_t wide = 0;
    std::uint32_t narrow = 0;
    if (isWide) {
      io("offset", wide);
    } else {
      io("offset", narrow);
    }
    offsets.each.push_back(wide + narrow);
  }
  return offsets;
}

// In 64 bits, so that its size does not depend on what it says.
Bytes WriteOffsets(const Offsets& offsets) {
  return Encoded([&](auto& io) {
    io.Atom(kOffsets, [&] {
      io("version", (offsets.kind.versionAndFlags & 0xFFFFFF) | 1U << 24);
      if ((offsets.kind.versionAndFlags & 1) != 0) {
        io("type", offsets.kind.type);
        io("parameter", offsets.kind.parameter);
      }
      io("count", static_cast<std::uint32_t>(offsets.each.size()));
      for (const std::uint64_t offset : offsets.each) io("offset", offset);
    });
  });
}

// Nothing where the tables contradict one another.
std::optional<std::vector<CopyRange>> RangesOf(const MediaRecord& media, const SampleTable& samples,
                                               ByteSpan table) try {
  const SampleRows& rows = *samples.WholeRows();
  const Offsets offsets = ReadOffsets(table.subspan(kHead));
  const auto sizes = FindSizes(rows.otherTables, offsets.kind);
  if (!sizes || offsets.each.empty()) return std::nullopt;
  std::vector<CopyRange> ranges;
  std::size_t chunk = 0;
  ForEachPiece(samples, {0, rows.Located()}, [&](const SamplePiece& piece) {
    const bool isFirst = ranges.empty();
    // One offset: all of it lies in one piece.
    if (offsets.each.size() == 1 && !isFirst) return;
    const std::uint64_t end = offsets.each.size() == 1 ? rows.count : piece.sample + piece.count;
    if (chunk < offsets.each.size()) {
      ranges.push_back({&media.ReferenceOf(piece.description), offsets.each[chunk],
                        sizes->Sum(piece.sample, end), 0});
    }
    ++chunk;
  });
  if (chunk != offsets.each.size()) return std::nullopt;
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
    const Sibling& table = rows->otherTables[i];
    if (table.type != kOffsets || table.bytes.size() < kHead) continue;
    if (auto ranges = RangesOf(media, samples, table.bytes))
      found.push_back({i, std::move(*ranges)});
  }
  return found;
}

std::vector<FragmentAuxiliary::Part> FragmentAuxiliary::Read(ByteSpan sizes, ByteSpan offsets,
                                                             std::uint64_t base,
                                                             std::span<const std::uint32_t> runs) {
  FieldReader io(sizes);
  const Kind kind = Kind::Read(io);
  const auto stated = Sizes::Read(io);
  const Offsets places = ReadOffsets(offsets);
  const bool isOneEach = places.each.size() == runs.size();
  if (!stated || !kind.Is(places.kind) || (!isOneEach && places.each.size() != 1)) {
    throw Refused{featureUnsupported};
  }
  std::vector<Part> parts;
  std::uint64_t sample = 0, next = places.each.front();
  for (std::size_t i = 0; i < runs.size(); ++i) {
    if (isOneEach) next = places.each[i];
    Part& part = parts.emplace_back(Part{kind.Encoded(), base + next, Bytes(runs[i])});
    for (std::uint8_t& size : part.sizes) size = stated->Of(sample++);
    next += stated->Sum(sample - runs[i], sample);
  }
  return parts;
}

void FragmentAuxiliary::Add(const Part& part, std::uint32_t samples) {
  if (!part.kind.empty()) {
    if (!kind_.empty() && kind_ != part.kind) throw Refused{featureUnsupported};
    kind_ = part.kind;
    sizes_.resize(samples_);
    offsets_.resize(chunks_);
    sizes_.insert(sizes_.end(), part.sizes.begin(), part.sizes.end());
    offsets_.push_back(part.at);
  }
  samples_ += samples;
  ++chunks_;
}

void FragmentAuxiliary::PutTables(Siblings& tables) const {
  if (kind_.empty()) return;
  Bytes sizes = sizes_;
  sizes.resize(samples_);
  std::vector<std::uint64_t> offsets = offsets_;
  offsets.resize(chunks_);
  const bool isConstant = sizes.front() != 0 && std::ranges::all_of(sizes, [&](std::uint8_t size) {
                            return size == sizes.front();
                          });
  tables.push_back({kSizes, Encoded([&](auto& io) {
                      io.Atom(kSizes, [&] {
                        io.Append(kind_);
                        io("size", isConstant ? sizes.front() : std::uint8_t{0});
                        io("count", samples_);
                        if (!isConstant) io.Append(sizes);
                      });
                    })});
  FieldReader kind(kind_);
  tables.push_back({kOffsets, WriteOffsets({Kind::Read(kind), std::move(offsets)})});
}

std::int64_t ShiftAt(std::span<const OffsetShift> shifts, std::uint64_t offset) {
  const auto after = std::ranges::upper_bound(shifts, offset, {}, &OffsetShift::from);
  return after == shifts.begin() ? 0 : std::prev(after)->by;
}

Siblings OtherTables(const SampleRows& rows, const FilePlan& plan, std::size_t track,
                     std::uint64_t dataStart) {
  const auto& places = plan.tracks[track].auxiliary;
  const MediaRecord& media = *plan.movie->tracks[track]->media;
  Siblings tables;
  for (std::size_t i = 0; i < rows.otherTables.size(); ++i) {
    const Sibling& table = rows.otherTables[i];
    if (places && table.type == kSizes && places->empty()) continue;
    if (table.type != kOffsets || (!places && plan.shifts.empty())) {
      tables.push_back(table);
    } else if (places) {
      const auto place = std::ranges::find(*places, i, &AuxiliaryPlace::table);
      if (place == places->end()) continue;
      Offsets offsets = ReadOffsets(ByteSpan(table.bytes).subspan(kHead));
      offsets.each = {dataStart + place->destination};
      tables.push_back({kOffsets, WriteOffsets(offsets)});
    } else {
      // The data lie in the file that the samples lie in, and that is where they stay.
      const bool isOwn = std::holds_alternative<ThisFile>(media.dataReferences.front());
      Offsets offsets = ReadOffsets(ByteSpan(table.bytes).subspan(kHead));
      for (std::uint64_t& offset : offsets.each) {
        if (isOwn) offset += static_cast<std::uint64_t>(ShiftAt(plan.shifts, offset));
      }
      tables.push_back({kOffsets, WriteOffsets(offsets)});
    }
  }
  return tables;
}

}  // namespace toolbox
