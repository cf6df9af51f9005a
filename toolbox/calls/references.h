// Checks the arguments that callers pass, and converts them to what the lower floors take.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "toolbox/movie/media.h"
#include "toolbox/refused.h"
#include "toolbox/toolbox.h"

namespace toolbox {

struct StringRecord {
  std::string text;  // UTF-8; a path may have other bytes
};

// The result code for a null pointer, by its type.
inline OSErr CodeOfNull(const void*) { return paramErr; }
inline OSErr CodeOfNull(const MovieRecord*) { return invalidMovie; }
inline OSErr CodeOfNull(const TrackRecord*) { return invalidTrack; }
inline OSErr CodeOfNull(const MediaRecord*) { return invalidMedia; }
inline OSErr CodeOfNull(const HandleRecord*) { return nilHandleErr; }
inline OSErr CodeOfNull(const StorageRecord*) { return invalidComponentID; }
inline OSErr CodeOfNull(const Mpeg4Settings*) { return invalidComponentID; }

// The record at `record`. Throws Refused with the code of its type if that is null.
template <class Record>
Record& Valid(Record* record) {
  if (record == nullptr) throw Refused{CodeOfNull(record)};
  return *record;
}

// The item with that number; the first is number 1. Throws Refused{code} if there is none.
template <class Items>
auto& ItemAt(Items& items, std::int64_t number, OSErr code) {
  if (number < 1 || number > std::ssize(items)) throw Refused{code};
  return items[static_cast<std::size_t>(number) - 1];
}

// A number for the lower floors, which count without a sign. A negative number becomes so large
// that no item has it.
inline std::size_t Unsigned(std::int32_t number) { return static_cast<std::size_t>(number); }

// The `size` bytes at `bytes`. Throws Refused: paramErr (size < 0, or no bytes but a size).
inline ByteSpan BytesAt(const void* bytes, std::int64_t size) {
  if (size < 0 || (bytes == nullptr && size > 0)) throw Refused{paramErr};
  return {static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(size)};
}

// Sets a result, unless the caller passed null because it does not want it.
template <class Result, class Value>
void SetResult(Result* result, Value value) {
  if (result != nullptr) *result = static_cast<Result>(value);
}

}  // namespace toolbox
