// User data: items of a type, by number, and the texts in them, by language.
#include "toolbox/movie/user_data.h"

#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/user_text.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

// The number of an item. Throws Refused: userDataItemNotFound (a negative number).
std::size_t ItemNumber(std::int32_t number) {
  if (number < 0) throw Refused{userDataItemNotFound};
  return static_cast<std::size_t>(number);
}

}  // namespace

std::int16_t CountUserDataType(UserData data, FourCC type) {
  return Call("CountUserDataType",
              [&] { return static_cast<std::int16_t>(Valid(data).Count(type)); });
}

FourCC GetNextUserDataType(UserData data, FourCC previous) {
  return Call("GetNextUserDataType", [&] { return Valid(data).NextType(previous); });
}

OSErr GetUserData(UserData data, Handle out, FourCC type, std::int32_t number) {
  return Call("GetUserData", [&] {
    if (out == nullptr) throw Refused{nilHandleErr};
    out->bytes = Valid(data).Item(type, ItemNumber(number));
  });
}

OSErr SetUserDataItem(UserData data, const void* bytes, std::int32_t size, FourCC type,
                      std::int32_t number) {
  return Call("SetUserDataItem", [&] {
    if (size < 0 || (bytes == nullptr && size > 0)) throw Refused{paramErr};
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    Valid(data).Set(type, ItemNumber(number), Bytes(first, first + size));
  });
}

OSErr RemoveUserData(UserData data, FourCC type, std::int32_t number) {
  return Call("RemoveUserData", [&] { Valid(data).Remove(type, ItemNumber(number)); });
}

OSErr GetUserDataText(UserData data, Handle out, FourCC type, std::int32_t number,
                      std::int16_t language) {
  return Call("GetUserDataText", [&] {
    if (out == nullptr) throw Refused{nilHandleErr};
    out->bytes =
        TextOf(Valid(data), type, ItemNumber(number), static_cast<std::uint16_t>(language));
  });
}

OSErr AddUserDataText(UserData data, Handle text, FourCC type, std::int32_t number,
                      std::int16_t language) {
  return Call("AddUserDataText", [&] {
    if (text == nullptr) throw Refused{nilHandleErr};
    SetText(Valid(data), type, ItemNumber(number), static_cast<std::uint16_t>(language),
            text->bytes);
  });
}

}  // namespace toolbox
