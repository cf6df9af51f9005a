#include "clipinfo/tags.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "chapter/genres.h"
#include "clipinfo/formats.h"
#include "toolbox/atoms/auxiliary_atoms.h"
#include "toolbox/atoms/tag_atoms.h"
#include "toolbox/atoms/text_atoms.h"
#include "toolbox/text/encoding.h"
#include "toolbox/text/language.h"

namespace clipinfo {
namespace {

using toolbox::ByteSpan;
using toolbox::FourCC;
using toolbox::Tag;

constexpr FourCC kMeta{"meta"};

bool IsCopyrightText(FourCC type) { return type.value >> 24 == 0xA9; }

bool HasUtf16Mark(ByteSpan text) {
  return text.size() >= 2 && std::min(text[0], text[1]) == 0xFE &&
         std::max(text[0], text[1]) == 0xFF;
}

// The text of user data in that language. Most writers of ISO files use UTF-8 with any language, so
// that is tried before the encoding of a Macintosh language.
std::string TextIn(std::uint16_t language, ByteSpan bytes) {
  if (HasUtf16Mark(bytes)) {
    if (auto text = toolbox::DecodeText(bytes, toolbox::kUtf16, true)) return *std::move(text);
  }
  if (auto text = toolbox::DecodeText(bytes, toolbox::kUtf8, true)) return *std::move(text);
  const auto encoding =
      language < toolbox::kFirstIsoLanguage
          ? toolbox::EncodingOf(toolbox::kAnyScriptOrLanguage, static_cast<std::int16_t>(language))
          : std::nullopt;
  auto text = encoding ? toolbox::DecodeText(bytes, *encoding, false) : std::nullopt;
  return text ? *std::move(text) : TextFrom(bytes);
}

// "3/12", or "3" if there is no total.
std::string NumberText(const Tag& tag) {
  const auto [number, total] = tag.NumberAndTotal();
  std::string text = std::to_string(number);
  if (total != 0) text += '/' + std::to_string(total);
  return text;
}

// The bytes as text, if they look like one: valid UTF-8 without control characters, except those
// of lines.
std::optional<std::string> WholeText(ByteSpan bytes) {
  const auto isControl = [](std::uint8_t byte) {
    return (byte < 0x20 && byte != '\n' && byte != '\r' && byte != '\t') || byte == 0x7F;
  };
  if (bytes.empty() || std::ranges::any_of(bytes, isControl)) return std::nullopt;
  return toolbox::DecodeText(bytes, toolbox::kUtf8, false);
}

// The text of a value; nothing for a binary one.
std::optional<std::string> TextOf(const Tag& tag) {
  if (tag.kind == Tag::kUtf8Text) return TextFrom(tag.value);
  if (tag.kind == Tag::kUtf16Text) return toolbox::DecodeText(tag.value, toolbox::kUtf16, true);
  if (const auto number = tag.Integer()) return std::to_string(*number);
  if (const auto number = tag.Real()) {
    std::ostringstream text;
    text << *number;
    return text.str();
  }
  if (tag.type == FourCC{"trkn"} || tag.type == FourCC{"disk"}) return NumberText(tag);
  if (tag.type == FourCC{"gnre"}) {
    const std::string genre = chapter::GenreName(tag.Genre());
    return genre.empty() ? std::to_string(tag.Genre()) : genre;
  }
  // Some writers do not state that the value of a text is one.
  return tag.kind == Tag::kImplicit ? WholeText(tag.value) : std::nullopt;
}

TagFacts FactsOf(const Tag& tag) {
  TagFacts facts{.type = TypeText(tag.type), .text = TextOf(tag)};
  if (const char* known = TagName(tag.type)) facts.name = known;
  if (!tag.name.empty()) {
    facts.type = tag.domain.empty() ? "" : TextFrom(tag.domain) + ':';
    facts.type += TextFrom(tag.name);
    // The part after the last dot is enough for people: "com.apple.quicktime.make".
    facts.name = TextFrom(tag.name);
    facts.name.erase(0, facts.name.find_last_of('.') + 1);
  }
  if (facts.name.empty()) facts.name = facts.type;
  if (!facts.text) facts.bytes.assign(tag.value.begin(), tag.value.end());
  if (tag.kind == Tag::kJpeg) facts.media = "image/jpeg";
  if (tag.kind == Tag::kPng) facts.media = "image/png";
  return facts;
}

void AddTags(ByteSpan meta, std::vector<TagFacts>& tags) {
  for (const Tag& tag : toolbox::ReadTags(meta)) tags.push_back(FactsOf(tag));
}

}  // namespace

std::string TextFrom(ByteSpan bytes) {
  for (const toolbox::TextEncoding encoding : {toolbox::kUtf8, toolbox::kMacRoman}) {
    if (auto text = toolbox::DecodeText(bytes, encoding, false)) return *std::move(text);
  }
  return {};
}

std::string TypeText(FourCC type) {
  const std::string text = type.Text();
  return IsCopyrightText(type) ? "\u00A9" + text.substr(4) : text;
}

std::vector<TagFacts> TextsOf(const toolbox::UserDataItem& item) {
  const char* known = TagName(item.type);
  const TagFacts empty{.type = TypeText(item.type), .name = known ? known : TypeText(item.type)};
  std::vector<TagFacts> texts;
  const auto add = [&](std::string text, std::string language) {
    TagFacts& added = texts.emplace_back(empty);
    added.text = std::move(text);
    added.language = std::move(language);
  };
  const auto addIn = [&](std::uint16_t language, ByteSpan text) {
    add(TextIn(language, text), LanguageCode(language));
  };
  if (IsCopyrightText(item.type)) {
    const auto entries = toolbox::ReadTextEntries(item.payload);
    if (entries) {
      for (const toolbox::TextEntry& entry : *entries) addIn(entry.language, entry.text);
      return texts;
    }
  } else if (const auto asset = toolbox::ReadAssetText(item.type, item.payload)) {
    addIn(asset->language, asset->text);
    return texts;
  }
  if (auto text = WholeText(item.payload)) add(*std::move(text), "");
  return texts;
}

std::vector<TagFacts> TagsIn(const toolbox::UserDataRecord& data,
                             const toolbox::Siblings& siblings) {
  std::vector<TagFacts> tags;
  for (const toolbox::UserDataItem& item : data.items) {
    if (item.type == kMeta) {
      AddTags(item.payload, tags);
    } else {
      std::ranges::move(TextsOf(item), std::back_inserter(tags));
    }
  }
  for (const toolbox::Sibling& sibling : siblings) {
    if (const auto content = toolbox::ContentOf(sibling, kMeta)) AddTags(*content, tags);
  }
  return tags;
}

}  // namespace clipinfo
