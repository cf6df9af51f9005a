// User data: typed items of a movie, a track or a media, in file order.
#pragma once

#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

struct UserDataItem {
  FourCC type;
  Bytes payload;
  friend bool operator==(const UserDataItem&, const UserDataItem&) = default;
};

// The k-th item of one type is its item number k.
struct UserDataRecord {
  std::vector<UserDataItem> items;
  friend bool operator==(const UserDataRecord&, const UserDataRecord&) = default;
};

}  // namespace toolbox
