// User data: typed items of a movie, a track or a media, in file order.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The items of one type are numbered from 1.
struct UserDataRecord {
  std::vector<UserDataItem> items;

  std::size_t Count(FourCC type) const;
  // Throws Refused: userDataItemNotFound.
  const Bytes& Item(FourCC type, std::size_t number) const;
  // Replaces the payload of an item; the number after the last adds one. Number 0 means the first.
  // Throws Refused: userDataItemNotFound.
  void Set(FourCC type, std::size_t number, Bytes payload);
  // Removes an item. The numbers of later items of the type go down by 1. Throws Refused:
  // userDataItemNotFound.
  void Remove(FourCC type, std::size_t number);

  friend bool operator==(const UserDataRecord&, const UserDataRecord&) = default;
};

// The type that follows `previous` in the list of the types of `items`, which is in the order of
// their first items. If `previous` is null, the first type. Null after the last type.
template <class Item>
FourCC NextType(const std::vector<Item>& items, FourCC previous) {
  const auto firstOf = [&](FourCC type) { return std::ranges::find(items, type, &Item::type); };
  if (previous == FourCC()) return items.empty() ? FourCC() : items.front().type;
  auto next = firstOf(previous);
  while (next != items.end() && (next->type == previous || firstOf(next->type) != next)) ++next;
  return next == items.end() ? FourCC() : next->type;
}

}  // namespace toolbox
