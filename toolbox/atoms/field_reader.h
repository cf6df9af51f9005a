// Reads the fields of an atom from its bytes. fields.h explains the functions.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/atoms/rows.h"
#include "toolbox/bytes.h"

namespace toolbox {

// Reads fields one after the other from the content of an atom. The bytes must outlive the reader
// and any Rows it has read. All functions throw Malformed if the bytes end too soon.
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

  void Narrow(const char* name, std::int64_t& value) {
    std::uint32_t narrow = 0;
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
  // The same without a copy, for atoms that are used only while their bytes exist.
  void Rest(const char*, ByteSpan& bytes) { bytes = std::exchange(rest_, {}); }
  ByteSpan Remaining() const { return rest_; }
  // Takes the next `size` bytes, as a view.
  ByteSpan Take(const char* name, std::size_t size) {
    if (rest_.size() < size) throw Ended(name);
    const ByteSpan taken = rest_.first(size);
    rest_ = rest_.subspan(size);
    return taken;
  }

 private:
  static Malformed Ended(const char* name) {
    return Malformed(std::string("the atom ends inside ") + name);
  }
  // Reads a count of entries with at least `smallest` bytes each. Checks it against the bytes that
  // are left, so that a damaged count cannot claim gigabytes of memory.
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

}  // namespace toolbox
