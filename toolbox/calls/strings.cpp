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

// Both return a new string, which the caller releases. The second throws Refused: paramErr (bytes
// that are not valid in the encoding).
CFStringRef NewString(std::string text) {
  return std::make_unique<StringRecord>(StringRecord{std::move(text)}).release();
}

CFStringRef NewString(ByteSpan bytes, CFStringEncoding encoding, bool markMayLead) {
  auto text = DecodeText(bytes, encoding, markMayLead);
  if (!text) throw Refused{paramErr};
  return NewString(std::move(*text));
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

// Throws Refused: bdNamErr (the path or a name in it is too long for the system).
void CheckLengths(const boost::filesystem::path& path) {
  if (path.size() >= PATH_MAX) throw Refused{bdNamErr};
  for (const boost::filesystem::path& name : path) {
    if (name.size() > NAME_MAX) throw Refused{bdNamErr};
  }
}

}  // namespace

CFStringRef CFStringCreateWithCString(const void*, const char* text, CFStringEncoding encoding) {
  return Call("CFStringCreateWithCString", [&] {
    if (text == nullptr) throw Refused{paramErr};
    // Not checked: a path may have bytes that are not UTF-8.
    if (encoding == kCFStringEncodingUTF8) return NewString(text);
    return NewString({reinterpret_cast<const std::uint8_t*>(text), std::strlen(text)}, encoding,
                     false);
  });
}

CFStringRef CFStringCreateWithBytes(const void*, const std::uint8_t* bytes, std::int64_t size,
                                    CFStringEncoding encoding, bool markMayLead) {
  return Call("CFStringCreateWithBytes", [&] {
    if (size < 0 || (bytes == nullptr && size > 0)) throw Refused{paramErr};
    return NewString({bytes, static_cast<std::size_t>(size)}, encoding, markMayLead);
  });
}

std::int64_t CFStringGetLength(CFStringRef string) {
  return Call("CFStringGetLength", [&] {
    return string == nullptr ? std::int64_t{0}
                             : static_cast<std::int64_t>(Utf16(string->text).size());
  });
}

std::int64_t CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                              std::uint8_t lossByte, bool, std::uint8_t* buffer, std::int64_t size,
                              std::int64_t* used) {
  if (used != nullptr) *used = 0;
  return Call("CFStringGetBytes", [&] {
    if (string == nullptr || size < 0) throw Refused{paramErr};
    const std::u16string text = Utf16(string->text);
    const std::size_t most = buffer == nullptr ? text.max_size() : static_cast<std::size_t>(size);
    const EncodedText done = EncodeText(Part(text, range), encoding, lossByte, most);
    if (buffer != nullptr) std::ranges::copy(done.bytes, buffer);
    if (used != nullptr) *used = static_cast<std::int64_t>(done.bytes.size());
    return static_cast<std::int64_t>(done.length);
  });
}

bool CFStringGetCString(CFStringRef string, char* buffer, std::int64_t size,
                        CFStringEncoding encoding) {
  return Call("CFStringGetCString", [&] {
    if (string == nullptr || buffer == nullptr || size < 1) throw Refused{paramErr};
    const std::u16string text = Utf16(string->text);
    const EncodedText done = EncodeText(text, encoding, 0, static_cast<std::size_t>(size) - 1);
    if (done.length < text.size()) return false;
    *std::ranges::copy(done.bytes, buffer).out = 0;
    return true;
  });
}

OSErr GetTextEncodingFromScriptInfo(std::int16_t script, std::int16_t language, std::int16_t,
                                    CFStringEncoding* encoding) {
  return Call("GetTextEncodingFromScriptInfo", [&] {
    const auto found = EncodingOf(script, language);
    if (encoding == nullptr || !found) throw Refused{paramErr};
    *encoding = *found;
  });
}

void CFRelease(CFStringRef string) {
  Call("CFRelease", [&] { delete string; });
}

OSErr QTNewDataReferenceFromFullPathCFString(CFStringRef path, int style, std::uint32_t,
                                             Handle* dataRef, FourCC* dataRefType) {
  return Call("QTNewDataReferenceFromFullPathCFString", [&] {
    if (path == nullptr || style != kQTPOSIXPathStyle) throw Refused{paramErr};
    const boost::filesystem::path file(path->text);
    if (!file.is_absolute()) throw Refused{paramErr};
    CheckLengths(file);
    *dataRef = HandleFor(OtherFile{file}, {}, *dataRefType);
  });
}

bool CFPreferencesGetAppBooleanValue(CFStringRef key, CFStringRef application, bool* valid) {
  *valid = false;
  return Call("CFPreferencesGetAppBooleanValue", [&] {
    if (key == nullptr || application == nullptr) throw Refused{paramErr};
    const std::optional<bool> value = BooleanPreference(application->text, key->text);
    *valid = value.has_value();
    return value.value_or(false);
  });
}

}  // namespace toolbox
