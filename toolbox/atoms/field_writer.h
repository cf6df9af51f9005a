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

// The results of a FieldSizer, in the order in which a FieldWriter needs them: the sizes of atoms,
// and other numbers that take long to compute.
using Measures = std::vector<std::uint64_t>;

// What measuring and writing have in common: every field is numbers and bytes. `Io` is the class
// that derives from this one. It has Put(number), Append(bytes) and Table.
template <class Io>
class FieldOutput {
 public:
  template <Integer T>
  void operator()(const char*, T value) {
    Derived().Put(value);
  }
  void operator()(const char*, FourCC value) { Derived().Put(value.value); }
  template <std::size_t N>
  void operator()(const char*, const std::array<std::uint8_t, N>& value) {
    Derived().Append(value);
  }

  void Version(std::uint32_t flags, bool needsWide) {
    isWide_ = needsWide;
    Derived().Put((needsWide ? 1U << 24 : 0U) | flags);
  }
  template <Integer T>
  void Wide(const char*, T value) {
    if (isWide_) {
      Derived().Put(static_cast<std::uint64_t>(value));
    } else {
      Derived().Put(static_cast<std::uint32_t>(value));
    }
  }
  void Narrow(const char*, std::int64_t value) {
    Derived().Put(value < 0 || value > UINT32_MAX ? 0 : static_cast<std::uint32_t>(value));
  }

  template <class Entry>
  void List(const char*, const std::vector<Entry>& entries) {
    Derived().Put(static_cast<std::uint32_t>(entries.size()));
    for (const Entry& entry : entries) Entry::Fields(Derived(), entry);
  }
  void Atoms(const char*, const std::vector<Bytes>& atoms) {
    Derived().Put(static_cast<std::uint32_t>(atoms.size()));
    for (const Bytes& atom : atoms) Derived().Append(atom);
  }
  void Rest(const char*, ByteSpan bytes) { Derived().Append(bytes); }

 private:
  Io& Derived() { return static_cast<Io&>(*this); }

  bool isWide_ = false;
};

// Writes fields that a FieldSizer has measured. The caller owns `measures` and `room`. Without
// `take`, `room` must be large enough for all fields. With `take`, it is a block that is passed to
// `take` each time it is full; the caller calls Flush() at the end for the last part.
// Throws Malformed if the fields are not those that were measured.
class FieldWriter : public FieldOutput<FieldWriter> {
 public:
  using TakeBlock = std::function<void(ByteSpan)>;

  FieldWriter(const Measures& measures, std::span<std::uint8_t> room, TakeBlock take = {})
      : measures_(measures), room_(room), take_(std::move(take)) {}

  template <Integer T>
  void Put(T value) {
    ToBigEndian(value, Room(sizeof(T)));
  }
  template <class Row>
  void Table(const char*, const Rows<Row>& rows) {
    Put(rows.Count());
    rows.ForEachBatch(
        [this](std::span<const Row> batch) {
          RowWriter writer(Room(batch.size() * Row::kSize));
          for (const Row& row : batch) Row::Fields(writer, row);
        },
        [this](ByteSpan encoded) { Append(encoded); });
  }
  // Writes an atom of type `type`; `body` writes its content.
  template <class Body>
  void Atom(FourCC type, Body&& body) {
    const std::uint64_t start = taken_ + at_, size = NextMeasure();
    if (size > UINT32_MAX) throw Malformed("an atom of over 4 GiB cannot be written");
    Put(static_cast<std::uint32_t>(size));
    Put(type.value);
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

  // Calls `take` with the bytes that were written since its last call.
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
};

// Adds up the bytes that a FieldWriter will write. Of a table it uses only the count of rows, so it
// is fast.
class FieldSizer : public FieldOutput<FieldSizer> {
 public:
  std::uint64_t Size() const { return size_; }
  const Measures& Found() const { return found_; }

  template <Integer T>
  void Put(T) {
    size_ += sizeof(T);
  }
  template <class Row>
  void Table(const char*, const Rows<Row>& rows) {
    size_ += 4 + std::uint64_t{rows.Count()} * Row::kSize;
  }
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
};

}  // namespace toolbox
