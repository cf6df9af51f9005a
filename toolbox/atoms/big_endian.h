// Integers in the byte order of atoms: the most significant byte first.
#pragma once

#include <array>
#include <boost/endian/conversion.hpp>
#include <concepts>
#include <cstdint>

#include "toolbox/bytes.h"

namespace toolbox {

// The types of integer fields. A bool is not one: it has no width in a file.
template <class T>
concept Integer = std::integral<T> && !std::same_as<T, bool>;

// Reads a number from the sizeof(T) bytes at `bytes`, which need no alignment. It is one load and
// one swap, so compilers can vectorize loops over it.
template <Integer T>
T FromBigEndian(const std::uint8_t* bytes) {
  return boost::endian::endian_load<T, sizeof(T), boost::endian::order::big>(bytes);
}

// Writes `value` to the sizeof(T) bytes at `bytes`, which need no alignment.
template <Integer T>
void ToBigEndian(T value, std::uint8_t* bytes) {
  boost::endian::endian_store<T, sizeof(T), boost::endian::order::big>(bytes, value);
}

// Adds sizeof(T) bytes to the end of `bytes`.
template <Integer T>
void AppendBigEndian(Bytes& bytes, T value) {
  std::array<std::uint8_t, sizeof(T)> encoded{};
  ToBigEndian(value, encoded.data());
  bytes.insert(bytes.end(), encoded.begin(), encoded.end());
}

// Reads numbers of any width in bits, the highest bit first. Bits after the end are 0, so a caller
// can check IsPastEnd() once, after all fields.
class BitReader {
 public:
  explicit BitReader(ByteSpan bytes) : bytes_(bytes) {}
  bool IsPastEnd() const { return at_ > 8 * bytes_.size(); }
  std::uint32_t Take(int bits) {
    std::uint32_t value = 0;
    for (; bits > 0; --bits, ++at_) {
      const bool isSet = at_ / 8 < bytes_.size() && (bytes_[at_ / 8] >> (7 - at_ % 8) & 1) != 0;
      value = value << 1 | (isSet ? 1U : 0U);
    }
    return value;
  }

 private:
  ByteSpan bytes_;
  std::size_t at_ = 0;  // bits
};

}  // namespace toolbox
