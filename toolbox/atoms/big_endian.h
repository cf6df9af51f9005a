// Integers in the byte order of atoms: the most significant byte first.
#pragma once

#include <boost/endian/conversion.hpp>
#include <concepts>
#include <cstdint>

#include "toolbox/bytes.h"

namespace toolbox {

template <class T>
concept Integer = std::integral<T> && !std::same_as<T, bool>;

// The number in the sizeof(T) bytes at `bytes`. One load and one swap, so compilers vectorise loops
// over it.
template <Integer T>
T FromBigEndian(const std::uint8_t* bytes) {
  return boost::endian::endian_load<T, sizeof(T), boost::endian::order::big>(bytes);
}

// Writes sizeof(T) bytes at `bytes`.
template <Integer T>
void ToBigEndian(T value, std::uint8_t* bytes) {
  boost::endian::endian_store<T, sizeof(T), boost::endian::order::big>(bytes, value);
}

template <Integer T>
void AppendBigEndian(Bytes& bytes, T value) {
  bytes.resize(bytes.size() + sizeof(T));
  ToBigEndian(value, bytes.data() + bytes.size() - sizeof(T));
}

}  // namespace toolbox
