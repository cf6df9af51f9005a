#include "chapter/annotations.h"

#include <cstdint>
#include <iostream>
#include <set>
#include <tuple>
#include <utility>

#include "chapter/genres.h"
#include "chapter/text.h"
#include "clipjoin/report.h"
#include "utils/owned.h"
#include "utils/visible.h"

namespace chapter {
namespace {

using toolbox::ByteSpan;
using toolbox::CFStringEncoding;
using toolbox::FourCC;
using toolbox::UserData;
using utils::OwnedHandle;

constexpr FourCC kFullName{"\251nam"}, kItemList{"ilst"}, kFree{"free"}, kMeta{"meta"};
constexpr FourCC kCover{"covr"}, kTrackNumber{"trkn"}, kGenre{"gnre"};

constexpr char kQuestionMark = '?';
constexpr std::int16_t kLanguages = 152;  // languages are numbered from 0
// Item lists are not nested. This limit keeps a malicious file from exhausting the stack.
constexpr int kDeepestList = 4;

// Types of texts start with the copyright sign.
bool IsText(FourCC type) { return type.value >> 24 == 0xA9; }

std::string TextFrom(ByteSpan bytes) { return {bytes.begin(), bytes.end()}; }

// The big-endian number of `size` bytes at `at`. Bytes after the end are zero: writers leave out
// zeros at the end of a track number.
std::uint32_t NumberAt(ByteSpan bytes, std::size_t at, std::size_t size) {
  std::uint32_t number = 0;
  for (std::size_t end = at + size; at < end; ++at) {
    number = number << 8 | (at < bytes.size() ? bytes[at] : 0);
  }
  return number;
}

// The type of the QuickTime annotation for an MPEG-4 tag.
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

// The text of a tag: numbers become "3/12" or the name of a genre.
std::string AnnotationText(FourCC tag, ByteSpan value) {
  if (tag == kTrackNumber) {
    return std::to_string(NumberAt(value, 2, 2)) + "/" + std::to_string(NumberAt(value, 4, 2));
  }
  if (tag == kGenre) return GenreName(static_cast<std::uint16_t>(NumberAt(value, 0, 2)));
  return TextFrom(value);
}

// Adds the tag to the user data. Cover pictures are left out: no annotation can hold them.
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

void PrintMalformed(FourCC type, std::int32_t size, std::size_t at, std::int64_t length) {
  std::string name;
  for (int shift = 24; shift >= 0; shift -= 8) name += static_cast<char>(type.value >> shift);
  std::cerr << "Error processing user data; atom " << utils::Visible(name) << " length " << size
            << " at " << at << " exceeds container length " << length << '\n';
}

// Converts the tags in the atoms of `bytes`. `length`, in bytes, is the size that the container
// claims. `depth` is the number of item lists around the atoms. If it is 0, the atoms are not tags,
// and only the item lists among them are converted.
void Walk(UserData data, ByteSpan bytes, std::int64_t length, int depth) {
  constexpr std::size_t kHeaderSize = 8;
  // The value of a tag is in a 'data' atom, after its header, type and locale.
  constexpr std::size_t kBeforeValue = 24;
  for (std::size_t at = 0; static_cast<std::int64_t>(at) < length;) {
    // Neither padding nor a zero that ends a list is an error.
    if (at > bytes.size() || bytes.size() - at < kHeaderSize) return;
    const auto size = static_cast<std::int32_t>(NumberAt(bytes, at, 4));
    const FourCC type(NumberAt(bytes, at + 4, 4));
    if (type == kFree || size == 0) return;
    const auto whole = static_cast<std::size_t>(size);
    if (size < static_cast<std::int32_t>(kHeaderSize) ||
        static_cast<std::int64_t>(at + whole) > length || whole > bytes.size() - at) {
      PrintMalformed(type, size, at, length);
      return;
    }
    const ByteSpan atom = bytes.subspan(at, whole), content = bytes.subspan(at + kHeaderSize);
    if (depth > 0 && whole >= kBeforeValue) StoreTag(data, type, atom.subspan(kBeforeValue));
    // PrintMalformed must print the size of the list with its header, so that size is passed. It is
    // longer than the content, so the walk also reads the header of the next atom. That is often a
    // 'free', which ends the walk.
    if (type == kItemList && depth < kDeepestList) Walk(data, content, size, depth + 1);
    at += whole;
  }
}

// How much of a string an encoding can represent, up to the first character that it cannot.
struct Rendering {
  CFStringEncoding encoding = 0;
  std::int16_t language = 0;
  std::int64_t characters = 0, bytes = 0;  // characters are units of UTF-16
};

// The first language whose encoding can represent all of the string. If there is none, the first of
// those that can represent the longest part of it. If no encoding can represent its first
// character, `characters` is 0.
Rendering BestRendering(toolbox::CFStringRef string, std::int64_t length) {
  Rendering best;
  std::set<CFStringEncoding> tried;
  for (std::int16_t language = 0; language < kLanguages; ++language) {
    Rendering one{.language = language};
    if (toolbox::GetTextEncodingFromScriptInfo(toolbox::kTextScriptDontCare, language,
                                               toolbox::kTextRegionDontCare,
                                               &one.encoding) != toolbox::noErr ||
        !tried.insert(one.encoding).second) {
      continue;  // no encoding, or that of an earlier language
    }
    one.characters = toolbox::CFStringGetBytes(string, {0, length}, one.encoding, 0, false, nullptr,
                                               0, &one.bytes);
    if (one.characters > best.characters) best = one;
    if (one.characters == length && one.bytes > 0) break;
  }
  return best;
}

// Adds the string as a text of that language, with '?' for each character that its encoding cannot
// represent. The text is cut off after `as.bytes` bytes.
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
  const OwnedHandle meta;
  if (data == nullptr || meta == nullptr) return;
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
  const utils::OwnedString string(toolbox::CFStringCreateWithBytes(
      nullptr, reinterpret_cast<const std::uint8_t*>(text.data()),
      static_cast<std::int64_t>(text.size()), toolbox::kCFStringEncodingUTF8, true));
  const std::int64_t length = toolbox::CFStringGetLength(string.get());
  const Rendering best = BestRendering(string.get(), length);
  if (best.characters == 0) {
    const OwnedHandle raw;
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
  const OwnedHandle name;
  const toolbox::OSErr code =
      toolbox::GetUserDataText(toolbox::GetMovieUserData(movie), name, kFullName, 1, 0);
  if (code != toolbox::noErr) return {};
  return ConvertTextEncoding(TextFrom(name->bytes), toolbox::kCFStringEncodingMacRoman,
                             toolbox::kCFStringEncodingUTF8);
}

}  // namespace chapter
