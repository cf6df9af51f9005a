#include "toolbox/movie/user_data.h"

#include <algorithm>
#include <utility>

#include "toolbox/refused.h"

namespace toolbox {

std::size_t UserDataRecord::Count(FourCC type) const {
  return static_cast<std::size_t>(std::ranges::count(items, type, &UserDataItem::type));
}

std::vector<UserDataItem>::iterator UserDataRecord::Find(FourCC type, std::size_t number) {
  const auto found = std::ranges::find_if(
      items, [&](const UserDataItem& item) { return item.type == type && --number == 0; });
  if (found == items.end()) throw Refused{userDataItemNotFound};
  return found;
}

const Bytes& UserDataRecord::Item(FourCC type, std::size_t number) const {
  return const_cast<UserDataRecord*>(this)->Find(type, number)->payload;
}

void UserDataRecord::Set(FourCC type, std::size_t number, Bytes payload) {
  if (number == 0) number = 1;
  if (number == Count(type) + 1) {
    items.push_back({type, std::move(payload)});
  } else {
    Find(type, number)->payload = std::move(payload);
  }
}

void UserDataRecord::Remove(FourCC type, std::size_t number) { items.erase(Find(type, number)); }

FourCC UserDataRecord::NextType(FourCC previous) const {
  std::vector<FourCC> types;
  for (const UserDataItem& item : items) {
    if (std::ranges::find(types, item.type) == types.end()) types.push_back(item.type);
  }
  if (previous == FourCC()) return types.empty() ? FourCC() : types.front();
  const auto found = std::ranges::find(types, previous);
  return found == types.end() || found + 1 == types.end() ? FourCC() : *(found + 1);
}

}  // namespace toolbox
