// The fields of an atom, listed once: read, written, measured and printed by the same list.
//
// An atom is a struct with its type and one function that names its fields in file order:
//
//   struct TrackLoad {  // 'load'
//     static constexpr FourCC kType{"load"};
//     std::uint32_t start = 0, duration = 0;
//     static void Fields(auto& io, auto& load) {
//       io("start", load.start);
//       io("duration", load.duration);
//     }
//   };
//
// `io` is a FieldReader, FieldWriter, FieldSizer or FieldPrinter. All understand
//
//   io(name, field)            an integer, a FourCC or an array of bytes, as wide as it is declared
//   io.Version(flags, wide)    version 0 or 1 and 24 bits of flags; version 1 makes Wide fields
//   wide io.Wide(name, field)       32 bits in version 0, 64 bits in version 1 io.Table(name, rows)
//   a 32-bit count and that many rows io.List(name, entries)     the same for a few entries kept as
//   a vector io.Atoms(name, atoms)      a 32-bit count and that many atoms, kept as they are
//   io.Rest(name, bytes)       everything up to the end of the atom
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/atoms/rows.h"
#include "toolbox/bytes.h"

namespace toolbox {

// Reads the fields of a row; whoever asks for it knows that the bytes are there.
class RowReader {
 public:
  explicit RowReader(const std::uint8_t* at) : at_(at) {}
  template <Integer T>
  void operator()(const char*, T& value) {
    value = FromBigEndian<T>(at_);
    at_ += sizeof(T);
  }

 private:
  const std::uint8_t* at_;
};

// Takes fields off the front of an atom's bytes. Throws Malformed where they end too soon.
class FieldReader {
 public:
  explicit FieldReader(ByteSpan bytes) : rest_(bytes) {}

  template <Integer T>
  void operator()(const char* name, T& value) {
    value = FromBigEndian<T>(Take(name, sizeof(T)).data());
  }
  void operator()(const char* name, FourCC& value) { (*this)(name, value.value); }
  template <std::size_t N>
  void operator()(const char* name, std::array<std::uint8_t, N>& value) {
    std::ranges::copy(Take(name, N), value.begin());
  }

  void Version(std::uint32_t& flags, bool) {
    (*this)("version", flags);
    if (flags >> 24 > 1) throw Malformed("the atom has an unknown version");
    isWide_ = flags >> 24 == 1;
    flags &= 0xFFFFFF;
  }
  template <Integer T>
  void Wide(const char* name, T& value) {
    if (isWide_) return (*this)(name, value);
    std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t> narrow = 0;
    (*this)(name, narrow);
    value = narrow;
  }

  template <class Row>
  void Table(const char* name, Rows<Row>& rows) {
    const std::uint32_t count = Count(name, Row::kSize);
    rows = Rows<Row>(Take(name, std::size_t{count} * Row::kSize));
  }
  template <class Entry>
  void List(const char* name, std::vector<Entry>& entries) {
    entries.resize(Count(name, Entry::kSmallestSize));
    for (Entry& entry : entries) Entry::Fields(*this, entry);
  }
  void Atoms(const char* name, std::vector<Bytes>& atoms) {
    atoms.resize(Count(name, 8));
    for (Bytes& atom : atoms) {
      if (rest_.size() < 8) throw Ended(name);
      const auto size = FromBigEndian<std::uint32_t>(rest_.data());
      if (size < 8) throw Malformed(std::string("an entry of ") + name + " has an impossible size");
      const ByteSpan entry = Take(name, size);
      atom.assign(entry.begin(), entry.end());
    }
  }
  void Rest(const char*, Bytes& bytes) {
    bytes.assign(rest_.begin(), rest_.end());
    rest_ = {};
  }
  ByteSpan Remaining() const { return rest_; }

 private:
  static Malformed Ended(const char* name) {
    return Malformed(std::string("the atom ends inside ") + name);
  }
  ByteSpan Take(const char* name, std::size_t size) {
    if (rest_.size() < size) throw Ended(name);
    const ByteSpan taken = rest_.first(size);
    rest_ = rest_.subspan(size);
    return taken;
  }
  // A count is believed only as far as the bytes that are there.
  std::uint32_t Count(const char* name, std::size_t smallest) {
    std::uint32_t count = 0;
    (*this)(name, count);
    if (count > rest_.size() / smallest) {
      throw Malformed(std::string("the table of ") + name + " is longer than its atom");
    }
    return count;
  }

  ByteSpan rest_;
  bool isWide_ = false;
};

// Writes the fields of a row; whoever asks for it has made room.
class RowWriter {
 public:
  explicit RowWriter(std::uint8_t* at) : at_(at) {}
  template <Integer T>
  void operator()(const char*, T value) {
    ToBigEndian(value, at_);
    at_ += sizeof(T);
  }

 private:
  std::uint8_t* at_;
};

// What a FieldSizer found out, in the order in which a FieldWriter that is given the same fields
// asks for it: the sizes of atoms, and whatever else takes long to measure.
using Measures = std::vector<std::uint64_t>;

// Writes fields that a FieldSizer has measured into room that the caller owns: room for all of
// them, or a block that is handed to `take` whenever it is full.
class FieldWriter {
 public:
  using TakeBlock = std::function<void(ByteSpan)>;

  FieldWriter(const Measures& measures, std::span<std::uint8_t> room, TakeBlock take = {})
      : measures_(measures), room_(room), take_(std::move(take)) {}

  template <Integer T>
  void operator()(const char*, T value) {
    ToBigEndian(value, Room(sizeof(T)));
  }
  void operator()(const char* name, FourCC value) { (*this)(name, value.value); }
  template <std::size_t N>
  void operator()(const char*, const std::array<std::uint8_t, N>& value) {
    Append(value);
  }

  void Version(std::uint32_t flags, bool needsWide) {
    isWide_ = needsWide;
    (*this)("version", (needsWide ? 1U << 24 : 0U) | flags);
  }
  template <Integer T>
  void Wide(const char* name, T value) {
    if (isWide_) {
      (*this)(name, static_cast<std::uint64_t>(value));
    } else {
      (*this)(name, static_cast<std::uint32_t>(value));
    }
  }

  template <class Row>
  void Table(const char* name, const Rows<Row>& rows) {
    (*this)(name, rows.Count());
    rows.ForEachBatch(
        [this](std::span<const Row> batch) {
          RowWriter writer(Room(batch.size() * Row::kSize));
          for (const Row& row : batch) Row::Fields(writer, row);
        },
        [this](ByteSpan encoded) { Append(encoded); });
  }
  template <class Entry>
  void List(const char* name, const std::vector<Entry>& entries) {
    (*this)(name, static_cast<std::uint32_t>(entries.size()));
    for (const Entry& entry : entries) Entry::Fields(*this, entry);
  }
  void Atoms(const char* name, const std::vector<Bytes>& atoms) {
    (*this)(name, static_cast<std::uint32_t>(atoms.size()));
    for (const Bytes& atom : atoms) Append(atom);
  }
  void Rest(const char*, ByteSpan bytes) { Append(bytes); }

  // An atom of type `type` whose content `body` writes.
  template <class Body>
  void Atom(FourCC type, Body&& body) {
    const std::uint64_t start = taken_ + at_, size = NextMeasure();
    if (size > UINT32_MAX) throw Malformed("an atom of over 4 GiB cannot be written");
    (*this)("size", static_cast<std::uint32_t>(size));
    (*this)("type", type);
    body();
    if (taken_ + at_ - start != size) throw NotAsMeasured();
  }
  void Append(ByteSpan bytes) {
    for (; take_ && bytes.size() > room_.size(); bytes = bytes.subspan(room_.size())) {
      Append(bytes.first(room_.size()));
    }
    std::ranges::copy(bytes, Room(bytes.size()));
  }

  // What `measure` gave the FieldSizer.
  template <class Measure>
  std::uint64_t Measured(Measure&&) {
    return NextMeasure();
  }

  // Hands over what has been written since `take` last got something.
  void Flush() {
    take_(room_.first(at_));
    taken_ += std::exchange(at_, 0);
  }

 private:
  static Malformed NotAsMeasured() { return Malformed("an atom is not as long as was measured"); }
  std::uint64_t NextMeasure() {
    if (nextMeasure_ == measures_.size()) throw NotAsMeasured();
    return measures_[nextMeasure_++];
  }
  std::uint8_t* Room(std::size_t size) {
    if (size > room_.size() - at_ && take_) Flush();
    if (size > room_.size() - at_) throw NotAsMeasured();
    at_ += size;
    return room_.data() + at_ - size;
  }

  const Measures& measures_;
  std::size_t nextMeasure_ = 0;
  std::span<std::uint8_t> room_;
  TakeBlock take_;
  std::size_t at_ = 0;  // in the room
  std::uint64_t taken_ = 0;  // bytes handed over
  bool isWide_ = false;
};

// Adds up the bytes that a FieldWriter would append; looks at no row of a table.
class FieldSizer {
 public:
  std::uint64_t Size() const { return size_; }
  const Measures& Found() const { return found_; }

  template <Integer T>
  void operator()(const char*, T) {
    size_ += sizeof(T);
  }
  void operator()(const char*, FourCC) { size_ += 4; }
  template <std::size_t N>
  void operator()(const char*, const std::array<std::uint8_t, N>&) {
    size_ += N;
  }

  void Version(std::uint32_t, bool needsWide) {
    isWide_ = needsWide;
    size_ += 4;
  }
  template <Integer T>
  void Wide(const char*, T) {
    size_ += isWide_ ? 8 : 4;
  }

  template <class Row>
  void Table(const char*, const Rows<Row>& rows) {
    size_ += 4 + std::uint64_t{rows.Count()} * Row::kSize;
  }
  template <class Entry>
  void List(const char*, const std::vector<Entry>& entries) {
    size_ += 4;
    for (const Entry& entry : entries) Entry::Fields(*this, entry);
  }
  void Atoms(const char*, const std::vector<Bytes>& atoms) {
    size_ += 4;
    for (const Bytes& atom : atoms) Append(atom);
  }
  void Rest(const char*, ByteSpan bytes) { Append(bytes); }

  template <class Body>
  void Atom(FourCC, Body&& body) {
    Measured([&] {
      const std::uint64_t start = size_;
      size_ += 8;
      body();
      return size_ - start;
    });
  }
  void Append(ByteSpan bytes) { size_ += bytes.size(); }

  // Runs `measure` and remembers what it gives.
  template <class Measure>
  std::uint64_t Measured(Measure&& measure) {
    const std::size_t place = found_.size();
    found_.push_back(0);
    return found_[place] = measure();
  }

 private:
  std::uint64_t size_ = 0;
  Measures found_;
  bool isWide_ = false;
};

// Prints fields on one line as " name=value", a table by its first rows. When something was made
// differs from run to run: it is left out unless asked for.
class FieldPrinter {
 public:
  explicit FieldPrinter(std::ostream& out, bool showsDates = false)
      : out_(out), showsDates_(showsDates) {}

  template <Integer T>
  void operator()(std::string_view name, T value) {
    out_ << ' ' << name << '=' << +value;
  }
  void operator()(std::string_view name, std::uint32_t value) {
    if (name == "version") return PrintVersion(value >> 24, value & 0xFFFFFF);
    out_ << ' ' << name << '=' << value;
  }
  void operator()(std::string_view name, FourCC value) {
    out_ << ' ' << name << "='" << value.Text() << '\'';
  }
  // Bytes without a meaning of their own are not worth a reader's time.
  template <std::size_t N>
  void operator()(std::string_view, const std::array<std::uint8_t, N>&) {}

  void Version(std::uint32_t flags, bool needsWide) { PrintVersion(needsWide ? 1 : 0, flags); }
  template <Integer T>
  void Wide(std::string_view name, T value) {
    if (showsDates_ || (name != "created" && name != "modified")) (*this)(name, value);
  }

  template <class Row>
  void Table(std::string_view name, const Rows<Row>& rows) {
    out_ << ' ' << name << '=' << rows.Count();
    std::uint32_t shown = 0;
    rows.ForEach([&](const Row& row) {
      if (shown < kRowsShown) PrintEntry(row);
      if (shown++ == kRowsShown) out_ << " ...";
    });
  }
  template <class Entry>
  void List(std::string_view name, const std::vector<Entry>& entries) {
    out_ << ' ' << name << '=' << entries.size();
    for (const Entry& entry : entries) PrintEntry(entry);
  }
  void Atoms(std::string_view name, const std::vector<Bytes>& atoms) {
    out_ << ' ' << name << '=' << atoms.size();
    for (const Bytes& atom : atoms) {
      out_ << " {'" << FourCC(FromBigEndian<std::uint32_t>(&atom[4])).Text() << "' " << atom.size()
           << " bytes}";
    }
  }
  // Text is shown as such, without the length before it or the zeros behind it.
  void Rest(std::string_view name, ByteSpan bytes) {
    ByteSpan text = bytes;
    if (!text.empty() && text[0] == text.size() - 1) text = text.subspan(1);
    while (!text.empty() && text.back() == 0) text = text.first(text.size() - 1);
    const auto isPrintable = [](std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F; };
    out_ << ' ' << name << '=';
    if (text.size() <= kLongestText && std::ranges::all_of(text, isPrintable)) {
      out_ << '"' << std::string(text.begin(), text.end()) << '"';
    } else {
      out_ << bytes.size() << " bytes";
    }
  }

 private:
  static constexpr std::uint32_t kRowsShown = 4;
  static constexpr std::size_t kLongestText = 80;

  void PrintVersion(std::uint32_t version, std::uint32_t flags) {
    if (version != 0) out_ << " version=" << version;
    if (flags != 0) out_ << " flags=" << flags;
  }
  template <class Entry>
  void PrintEntry(const Entry& entry) {
    out_ << " {";
    Entry::Fields(*this, entry);
    out_ << " }";
  }

  std::ostream& out_;
  bool showsDates_;
};

template <class Row>
template <class Visitor>
void Rows<Row>::ForEach(Visitor&& visit) const {
  ForEachBatch(
      [&visit](std::span<const Row> batch) {
        for (const Row& row : batch) visit(row);
      },
      [&visit](ByteSpan encoded) {
        for (std::size_t at = 0; at < encoded.size(); at += Row::kSize) {
          Row row;
          RowReader reader(&encoded[at]);
          Row::Fields(reader, row);
          visit(std::as_const(row));
        }
      });
}

template <class Row>
template <class Visitor, class EncodedVisitor>
void Rows<Row>::ForEachBatch(Visitor&& visit, EncodedVisitor&& visitEncoded) const {
  if (!produce_) return visitEncoded(encoded_);
  RowBatches<Row> batches(std::ref(visit), std::ref(visitEncoded));
  produce_(batches);
  batches.Flush();
}

// The atom that `content` (without size and type) holds.
template <class A>
A Decode(ByteSpan content) {
  return InAtom(A::kType, [&] {
    A atom;
    FieldReader reader(content);
    A::Fields(reader, atom);
    return atom;
  });
}

// Writes or measures the whole atom, size and type included.
template <class A>
void PutAtom(auto& io, const A& atom) {
  io.Atom(A::kType, [&] { A::Fields(io, atom); });
}

// What `put(io)` writes, as bytes: measured first, then written into room of just that size.
template <class Put>
Bytes Encoded(Put&& put) {
  FieldSizer sizer;
  put(sizer);
  Bytes bytes(sizer.Size());
  FieldWriter writer(sizer.Found(), bytes);
  put(writer);
  return bytes;
}

// The whole atom as bytes.
template <class A>
Bytes Encode(const A& atom) {
  return Encoded([&](auto& io) { PutAtom(io, atom); });
}

}  // namespace toolbox
