// Measures the fields of an atom, then writes them. fields.h explains the functions.
//
// The size of an atom comes before its content. So a FieldSizer goes through the fields first and
// notes all sizes, and a FieldWriter then goes through the same fields and writes them.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/atoms/rows.h"
#include "toolbox/bytes.h"

namespace toolbox {

// Writes the fields of a row without checks: the caller has made room for Row::kSize bytes.
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

// The results of a FieldSizer, in the order in which a FieldWriter needs them: the sizes of atoms,
// and other numbers that take long to compute.
using Measures = std::vector<std::uint64_t>;

// Writes fields that a FieldSizer has measured. The caller owns `measures` and `room`. Without
// `take`, `room` must be large enough for all fields. With `take`, it is a block that is passed to
// `take` each time it is full; the caller calls Flush() at the end for the last part.
// Throws Malformed if the fields are not those that were measured.
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
  void Narrow(const char* name, std::int64_t value) {
    (*this)(name, value < 0 || value > UINT32_MAX ? 0 : static_cast<std::uint32_t>(value));
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

  // Writes an atom of type `type`; `body` writes its content.
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

  // Returns the result that `measure` had in the FieldSizer, without running it again.
  template <class Measure>
  std::uint64_t Measured(Measure&&) {
    return NextMeasure();
  }

  // Passes the bytes written since the last call of `take` to it.
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
  // Reserves the next `size` bytes.
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
  std::uint64_t taken_ = 0;  // bytes passed on
  bool isWide_ = false;
};

// Adds up the bytes that a FieldWriter will write. Of a table it uses only the count of rows, so it
// is fast.
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
  void Narrow(const char*, std::int64_t) { size_ += 4; }

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

  // Runs `measure` and keeps its result for the FieldWriter.
  template <class Measure>
  std::uint64_t Measured(Measure&& measure) {
    // The place is reserved first: measures inside `measure` come after this one.
    const std::size_t place = found_.size();
    found_.push_back(0);
    return found_[place] = measure();
  }

 private:
  std::uint64_t size_ = 0;
  Measures found_;
  bool isWide_ = false;
};

}  // namespace toolbox
