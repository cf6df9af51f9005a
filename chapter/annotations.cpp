#include "chapter/annotations.h"

#include <cstdint>
#include <iostream>
#include <memory>
#include <set>
#include <tuple>
#include <utility>

#include "chapter/genres.h"
#include "chapter/text.h"
#include "clipjoin/report.h"
#include "utils/owned_handle.h"

namespace chapter {
namespace {

using toolbox::ByteSpan;
using toolbox::CFStringEncoding;
using toolbox::FourCC;
using toolbox::UserData;
using utils::OwnedHandle;

constexpr FourCC kFullName{"\251nam"}, kItemList{"ilst"}, kFree{"free"}, kMeta{"meta"};
constexpr FourCC kCover{"covr"}, kTrackNumber{"trkn"}, kGenre{"gnre"}, kWindowLocation{"WLOC"};

constexpr char kQuestionMark = '?';
constexpr std::int16_t kLanguages = 152;
// An item list holds no lists. A file that nests them is not followed far, whatever it holds.
constexpr int kDeepestList = 4;

struct Release {
  void operator()(const toolbox::StringRecord* string) const { toolbox::CFRelease(string); }
};
using OwnString = std::unique_ptr<const toolbox::StringRecord, Release>;

// The copyright sign stands first.
bool IsText(FourCC type) { return type.value >> 24 == 0xA9; }

std::string TextFrom(ByteSpan bytes) { return {bytes.begin(), bytes.end()}; }

// A number at its place; bytes that are not there are zero.
std::uint32_t NumberAt(ByteSpan bytes, std::size_t at, std::size_t size) {
  std::uint32_t number = 0;
  for (std::size_t end = at + size; at < end; ++at) {
    number = number << 8 | (at < bytes.size() ? bytes[at] : 0);
  }
  return number;
}

// What QuickTime calls a tag.
FourCC AnnotationType(FourCC tag) {
  static constexpr std::pair<FourCC, FourCC> kTypes[] = {
      {{"\251wrt"}, {"\251com"}},  {{"\251grp"}, {"\251des"}}, {{"\251too"}, {"\251enc"}},
      {kTrackNumber, {"\251trk"}}, {kGenre, {"\251gen"}},
  };
  for (const auto& [from, to] : kTypes) {
    if (tag == from) return to;
  }
  return tag;
}

std::string AnnotationText(FourCC tag, ByteSpan value) {
  if (tag == kTrackNumber) {
    return std::to_string(NumberAt(value, 2, 2)) + "/" + std::to_string(NumberAt(value, 4, 2));
  }
  if (tag == kGenre) return GenreName(static_cast<std::uint16_t>(NumberAt(value, 0, 2)));
  return TextFrom(value);
}

void StoreTag(UserData data, FourCC tag, ByteSpan value) {
  if (tag == kCover) return;
  const FourCC type = AnnotationType(tag);
  if (IsText(type)) {
    AddUserDataTextUtf8(data, type, AnnotationText(tag, value));
  } else {
    std::ignore = toolbox::SetUserDataItem(data, value.data(),
                                           static_cast<std::int32_t>(value.size()), type, 0);
  }
}

void SayMalformed(FourCC type, std::int32_t size, std::size_t at, std::int64_t length) {
  std::cerr << "Error processing user data; atom ";
  for (int shift = 24; shift >= 0; shift -= 8)
    std::cerr.put(static_cast<char>(type.value >> shift));
  std::cerr << " length " << size << " at " << at << " exceeds container length " << length << '\n';
}

// `depth`: how many item lists the atoms are in.
void Walk(UserData data, ByteSpan bytes, std::int64_t length, int depth) {
  constexpr std::size_t kHeaderSize = 8;
  // A tag's value lies in a 'data' atom, behind its header, its type and its locale.
  constexpr std::size_t kBeforeValue = 24;
  for (std::size_t at = 0; static_cast<std::int64_t>(at) < length;) {
    // Padding is no fault, nor is a zero that ends a list.
    if (at > bytes.size() || bytes.size() - at < kHeaderSize) return;
    const auto size = static_cast<std::int32_t>(NumberAt(bytes, at, 4));
    const FourCC type(NumberAt(bytes, at + 4, 4));
    if (type == kFree || size == 0) return;
    const auto whole = static_cast<std::size_t>(size);
    if (size < static_cast<std::int32_t>(kHeaderSize) ||
        static_cast<std::int64_t>(at + whole) > length || whole > bytes.size() - at) {
      SayMalformed(type, size, at, length);
      return;
    }
    const ByteSpan atom = bytes.subspan(at, whole), behind = bytes.subspan(at + kHeaderSize);
    if (depth > 0 && whole >= kBeforeValue) StoreTag(data, type, atom.subspan(kBeforeValue));
    // The list's size counts its header, so the walk looks as far as the header of what follows:
    // the 'free' that is often there ends it.
    if (type == kItemList && depth < kDeepestList) Walk(data, behind, size, depth + 1);
    at += whole;
  }
}

// What of a string converts to an encoding, up to the first character that does not.
struct Rendering {
  CFStringEncoding encoding = 0;
  std::int16_t language = 0;
  std::int64_t characters = 0, bytes = 0;
};

// The first language that has all of the string, or the first of those that have most of it; no
// characters when none has any.
Rendering BestRendering(toolbox::CFStringRef string, std::int64_t length) {
  Rendering best;
  std::set<CFStringEncoding> tried;
  for (std::int16_t language = 0; language < kLanguages; ++language) {
    Rendering one{.language = language};
    if (toolbox::GetTextEncodingFromScriptInfo(toolbox::kTextScriptDontCare, language,
                                               toolbox::kTextRegionDontCare,
                                               &one.encoding) != toolbox::noErr ||
        !tried.insert(one.encoding).second) {
      continue;  // a later language of the same encoding has no more of it
    }
    one.characters = toolbox::CFStringGetBytes(string, {0, length}, one.encoding, 0, false, nullptr,
                                               0, &one.bytes);
    if (one.characters > best.characters) best = one;
    if (one.characters == length && one.bytes > 0) break;
  }
  return best;
}

void AddRendering(UserData data, FourCC type, toolbox::CFStringRef string, std::int64_t length,
                  const Rendering& as) {
  const OwnedHandle text(as.bytes);
  if (text == nullptr) return;
  toolbox::CFStringGetBytes(string, {0, length}, as.encoding, kQuestionMark, false,
                            text->bytes.data(), as.bytes, nullptr);
  std::ignore = toolbox::AddUserDataText(data, text, type, 1, as.language);
}

}  // namespace

void ConvertMovieTags(toolbox::Movie movie) {
  const UserData data = toolbox::GetMovieUserData(movie);
  if (data == nullptr) return;
  const OwnedHandle meta(0);
  if (meta == nullptr) return;
  const toolbox::OSErr code = toolbox::GetUserData(data, meta, kMeta, 1);
  if (code == toolbox::userDataItemNotFound) return;
  if (code != toolbox::noErr) {
    clipjoin::Report({"GetMoviesError", clipjoin::kClipjoinSource, 507}, toolbox::GetMoviesError());
  }
  constexpr std::size_t kVersionAndFlags = 4;
  const ByteSpan payload = meta->bytes;
  if (payload.size() < kVersionAndFlags) return;
  const ByteSpan atoms = payload.subspan(kVersionAndFlags);
  ConvertTagAtoms(data, atoms, static_cast<std::int64_t>(atoms.size()), false);
}

void ConvertTagAtoms(UserData data, ByteSpan bytes, std::int64_t length, bool insideItemList) {
  Walk(data, bytes, length, insideItemList ? 1 : 0);
}

void AddUserDataTextUtf8(UserData data, FourCC type, const std::string& text) {
  const OwnString string(toolbox::CFStringCreateWithBytes(
      nullptr, reinterpret_cast<const std::uint8_t*>(text.data()),
      static_cast<std::int64_t>(text.size()), toolbox::kCFStringEncodingUTF8, true));
  const std::int64_t length = toolbox::CFStringGetLength(string.get());
  const Rendering best = BestRendering(string.get(), length);
  if (best.characters == 0) {
    const OwnedHandle raw(0);
    if (raw == nullptr) return;
    raw->bytes.assign(text.begin(), text.end());
    std::ignore = toolbox::AddUserDataText(data, raw, type, 1, 0);
    return;
  }
  if (best.encoding != toolbox::kCFStringEncodingMacRoman) {
    Rendering roman = best;
    roman.encoding = toolbox::kCFStringEncodingMacRoman;
    roman.language = 0;
    AddRendering(data, type, string.get(), length, roman);
  }
  AddRendering(data, type, string.get(), length, best);
}

std::string GetMovieFullName(toolbox::Movie movie) {
  const UserData data = toolbox::GetMovieUserData(movie);
  const OwnedHandle name(0);
  if (data == nullptr || name == nullptr ||
      toolbox::GetUserDataText(data, name, kFullName, 1, 0) != toolbox::noErr) {
    return {};
  }
  return ConvertTextEncoding(TextFrom(name->bytes), toolbox::kCFStringEncodingMacRoman,
                             toolbox::kCFStringEncodingUTF8);
}

bool HasAnnotations(toolbox::Movie movie) {
  const UserData data = toolbox::GetMovieUserData(movie);
  if (data == nullptr) return false;
  FourCC type;
  do {
    type = toolbox::GetNextUserDataType(data, type);
  } while (type == kWindowLocation);
  return type != FourCC();
}

}  // namespace chapter
