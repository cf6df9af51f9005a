#include "toolbox/movie/user_data.h"

#include <algorithm>
#include <utility>

#include "toolbox/refused.h"

namespace toolbox {
namespace {

// The item `number` of that type. Throws Refused: userDataItemNotFound.
template <class Items>
auto Find(Items& items, FourCC type, std::size_t number) {
  const auto found = std::ranges::find_if(
      items, [&](const UserDataItem& item) { return item.type == type && --number == 0; });
  if (found == items.end()) throw Refused{userDataItemNotFound};
  return found;
}

}  // namespace

std::size_t UserDataRecord::Count(FourCC type) const {
  return static_cast<std::size_t>(std::ranges::count(items, type, &UserDataItem::type));
}

const Bytes& UserDataRecord::Item(FourCC type, std::size_t number) const {
  return Find(items, type, number)->payload;
}

void UserDataRecord::Set(FourCC type, std::size_t number, Bytes payload) {
  if (number == 0) number = 1;
  if (number == Count(type) + 1) {
    items.push_back({type, std::move(payload)});
  } else {
    Find(items, type, number)->payload = std::move(payload);
  }
}

void UserDataRecord::Remove(FourCC type, std::size_t number) {
  items.erase(Find(items, type, number));
}

}  // namespace toolbox
