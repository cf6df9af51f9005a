// Strings, their encodings, and the paths and settings that they name.
#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <climits>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

#include "toolbox/calls/call.h"
#include "toolbox/calls/data_references.h"
#include "toolbox/calls/references.h"
#include "toolbox/disk/preferences.h"
#include "toolbox/references/aliases.h"
#include "toolbox/text/encoding.h"
#include "toolbox/text/language.h"
#include "toolbox/text/unicode.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

// A new string, which the caller releases. Throws Refused: paramErr (no text, because it could not
// be decoded).
CFStringRef NewString(std::optional<std::string> text) {
  if (!text) throw Refused{paramErr};
  return std::make_unique<StringRecord>(StringRecord{*std::move(text)}).release();
}

// The UTF-16 units in the range. Throws Refused: paramErr (a range outside the text).
std::u16string_view Part(const std::u16string& text, CFRange range) {
  const auto size = static_cast<std::int64_t>(text.size());
  if (range.location < 0 || range.location > size || range.length < 0 ||
      range.length > size - range.location) {
    throw Refused{paramErr};
  }
  return std::u16string_view(text).substr(static_cast<std::size_t>(range.location),
                                          static_cast<std::size_t>(range.length));
}

}  // namespace

CFStringRef CFStringCreateWithCString(const void*, const char* text, CFStringEncoding encoding) {
  return Call(__func__, [&] {
    if (text == nullptr) throw Refused{paramErr};
    // The text is not decoded, because a path may have bytes that are not UTF-8.
    if (encoding == kCFStringEncodingUTF8) return NewString(text);
    const ByteSpan bytes = BytesAt(text, static_cast<std::int64_t>(std::strlen(text)));
    return NewString(DecodeText(bytes, encoding, false));
  });
}

CFStringRef CFStringCreateWithBytes(const void*, const std::uint8_t* bytes, std::int64_t size,
                                    CFStringEncoding encoding, bool markMayLead) {
  return Call(__func__,
              [&] { return NewString(DecodeText(BytesAt(bytes, size), encoding, markMayLead)); });
}

std::int64_t CFStringGetLength(CFStringRef string) {
  // Strings are kept in UTF-8, but callers count in UTF-16 units.
  return Call(__func__, [&] { return string == nullptr ? 0 : std::ssize(Utf16(string->text)); });
}

std::int64_t CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                              std::uint8_t lossByte, bool, std::uint8_t* buffer, std::int64_t size,
                              std::int64_t* used) {
  SetResult(used, 0);
  return Call(__func__, [&] {
    if (string == nullptr || size < 0) throw Refused{paramErr};
    const std::u16string text = Utf16(string->text);
    // Without a buffer the bytes are only counted, so its size is no limit.
    const std::size_t most = buffer == nullptr ? text.max_size() : static_cast<std::size_t>(size);
    const EncodedText done = EncodeText(Part(text, range), encoding, lossByte, most);
    if (buffer != nullptr) std::ranges::copy(done.bytes, buffer);
    SetResult(used, done.bytes.size());
    return static_cast<std::int64_t>(done.length);
  });
}

bool CFStringGetCString(CFStringRef string, char* buffer, std::int64_t size,
                        CFStringEncoding encoding) {
  return Call(__func__, [&] {
    if (string == nullptr || buffer == nullptr || size < 1) throw Refused{paramErr};
    const std::u16string text = Utf16(string->text);
    const EncodedText done = EncodeText(text, encoding, 0, static_cast<std::size_t>(size) - 1);
    // A part of the text is not returned: the start of a path would name another file.
    if (done.length < text.size()) return false;
    *std::ranges::copy(done.bytes, buffer).out = 0;
    return true;
  });
}

OSErr GetTextEncodingFromScriptInfo(std::int16_t script, std::int16_t language, std::int16_t,
                                    CFStringEncoding* encoding) {
  return Call(__func__, [&] {
    const auto found = EncodingOf(script, language);
    if (encoding == nullptr || !found) throw Refused{paramErr};
    *encoding = *found;
  });
}

void CFRelease(CFStringRef string) {
  Call(__func__, [&] { delete string; });
}

OSErr QTNewDataReferenceFromFullPathCFString(CFStringRef path, int style, std::uint32_t,
                                             Handle* dataRef, FourCC* dataRefType) {
  return Call(__func__, [&] {
    if (path == nullptr || style != kQTPOSIXPathStyle) throw Refused{paramErr};
    const boost::filesystem::path file(path->text);
    if (!file.is_absolute()) throw Refused{paramErr};
    // The length is checked here, because the file need not exist and so the system may never see
    // the path.
    const auto isTooLong = [](const auto& name) { return name.size() > NAME_MAX; };
    if (file.size() >= PATH_MAX || std::any_of(file.begin(), file.end(), isTooLong)) {
      throw Refused{bdNamErr};
    }
    *dataRef = HandleFor(OtherFile{file, std::nullopt}, std::nullopt, dataRefType);
  });
}

bool CFPreferencesGetAppBooleanValue(CFStringRef key, CFStringRef application, bool* valid) {
  *valid = false;
  return Call(__func__, [&] {
    if (key == nullptr || application == nullptr) throw Refused{paramErr};
    const std::optional<bool> value = BooleanPreference(application->text, key->text);
    *valid = value.has_value();
    return value.value_or(false);
  });
}

}  // namespace toolbox
