// User data: items of a type, by number, and the texts in them, by language.
#include "toolbox/movie/user_data.h"

#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/user_text.h"
#include "toolbox/toolbox.h"

namespace toolbox {

std::int16_t CountUserDataType(UserData data, FourCC type) {
  return Call(__func__, [&] { return static_cast<std::int16_t>(Valid(data).Count(type)); });
}

FourCC GetNextUserDataType(UserData data, FourCC previous) {
  return Call(__func__, [&] { return NextType(Valid(data).items, previous); });
}

OSErr GetUserData(UserData data, Handle out, FourCC type, std::int32_t number) {
  return Call(__func__, [&] {
    HandleRecord& copy = Valid(out);
    copy.bytes = Valid(data).Item(type, Unsigned(number));
  });
}

OSErr SetUserDataItem(UserData data, const void* bytes, std::int32_t size, FourCC type,
                      std::int32_t number) {
  return Call(__func__, [&] {
    const ByteSpan payload = BytesAt(bytes, size);
    Valid(data).Set(type, Unsigned(number), Bytes(payload.begin(), payload.end()));
  });
}

OSErr RemoveUserData(UserData data, FourCC type, std::int32_t number) {
  return Call(__func__, [&] { Valid(data).Remove(type, Unsigned(number)); });
}

OSErr GetUserDataText(UserData data, Handle out, FourCC type, std::int32_t number,
                      std::int16_t language) {
  return Call(__func__, [&] {
    HandleRecord& copy = Valid(out);
    copy.bytes = TextOf(Valid(data), type, Unsigned(number), static_cast<std::uint16_t>(language));
  });
}

OSErr AddUserDataText(UserData data, Handle text, FourCC type, std::int32_t number,
                      std::int16_t language) {
  return Call(__func__, [&] {
    const Bytes& bytes = Valid(text).bytes;
    SetText(Valid(data), type, Unsigned(number), static_cast<std::uint16_t>(language), bytes);
  });
}

}  // namespace toolbox
