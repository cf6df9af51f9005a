// Numbers as they stand in an atom: the most significant byte first.
#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>

#include "toolbox/bytes.h"

namespace toolbox {

template <class T>
concept Integer = std::integral<T> && !std::same_as<T, bool>;

// A number with its bytes the other way round; one instruction, and loops over it go in vectors,
// which shifting byte by byte keeps them from.
template <Integer T>
T BytesReversed(T value) {
  if constexpr (sizeof(T) == 1) {
    return value;
  } else if constexpr (sizeof(T) == 2) {
    return static_cast<T>(__builtin_bswap16(static_cast<std::uint16_t>(value)));
  } else if constexpr (sizeof(T) == 4) {
    return static_cast<T>(__builtin_bswap32(static_cast<std::uint32_t>(value)));
  } else {
    return static_cast<T>(__builtin_bswap64(static_cast<std::uint64_t>(value)));
  }
}

template <Integer T>
T FromBigEndian(const std::uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof(T));
  return std::endian::native == std::endian::little ? BytesReversed(value) : value;
}

template <Integer T>
void ToBigEndian(T value, std::uint8_t* bytes) {
  if (std::endian::native == std::endian::little) value = BytesReversed(value);
  std::memcpy(bytes, &value, sizeof(T));
}

template <Integer T>
void AppendBigEndian(Bytes& bytes, T value) {
  bytes.resize(bytes.size() + sizeof(T));
  ToBigEndian(value, bytes.data() + bytes.size() - sizeof(T));
}

}  // namespace toolbox
