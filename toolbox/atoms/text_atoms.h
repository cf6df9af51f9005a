// QuickTime text: the atoms and samples of text media, and the texts in user data.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/fields.h"

namespace toolbox {

struct GenericMediaInformation {  // 'gmin'
  static constexpr FourCC kType{"gmin"};
  std::uint32_t versionAndFlags = 0;
  std::uint16_t mode = 0x40;  // how it is drawn over the layers below; 0x40: dither copy
  std::array<std::uint16_t, 3> opColor{0x8000, 0x8000, 0x8000};  // red, green, blue
  std::int16_t balance = 0;
  std::uint16_t reserved = 0;
  static void Fields(auto& io, auto& information) {
    io("mode", information.mode);
    for (auto& component : information.opColor) io("opColor", component);
    io("balance", information.balance);
    io("reserved", information.reserved);
  }
};

struct TextMediaInformation {  // 'text' in 'gmhd'
  static constexpr FourCC kType{"text"};
  std::array<std::int32_t, 9> matrix{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};
  static void Fields(auto& io, auto& information) {
    for (auto& element : information.matrix) io("matrix", element);
  }
};

struct TextDescription {  // 'text' in 'stsd'
  static constexpr FourCC kType{"text"};
  using Color = std::array<std::uint16_t, 3>;  // red, green, blue
  std::array<std::uint8_t, 6> reserved{};
  std::uint16_t dataReference = 1;  // number
  std::uint32_t displayFlags = 0;
  std::int32_t justification = 0;
  Color background{}, foreground{};
  std::array<std::int16_t, 4> box{};  // top, left, bottom, right
  std::array<std::uint8_t, 8> reserved2{};
  std::uint16_t font = 0, face = 0;
  std::array<std::uint8_t, 3> reserved3{};
  Bytes fontName{0};  // its length, then the name

  static void Fields(auto& io, auto& text) {
    io("reserved", text.reserved);
    io("dataReference", text.dataReference);
    io("displayFlags", text.displayFlags);
    io("justification", text.justification);
    for (auto& component : text.background) io("background", component);
    for (auto& side : text.box) io("box", side);
    io("reserved", text.reserved2);
    io("font", text.font);
    io("face", text.face);
    io("reserved", text.reserved3);
    for (auto& component : text.foreground) io("foreground", component);
    io.Rest("fontName", text.fontName);
  }
};

struct TextEncodingMark {  // 'encd', after the text in a sample
  static constexpr FourCC kType{"encd"};
  std::uint32_t encoding = 0;
  static void Fields(auto& io, auto& mark) { io("encoding", mark.encoding); }
};

// Makes a sample of a text media: a 16-bit count of bytes, the text, and a mark if there is an
// encoding. A text of more than 65,535 bytes is cut between two characters of UTF-8.
Bytes EncodeTextSample(ByteSpan text, std::optional<std::uint32_t> encoding);

// The text of a user data item in one language. The types of such items start with the copyright
// sign. In the file: the size of the text and the language, each in 16 bits, then the text.
struct TextEntry {
  std::uint16_t language = 0;
  Bytes text;  // at most 65,535 bytes
  friend bool operator==(const TextEntry&, const TextEntry&) = default;
};

// Decodes the entries of an item. Returns nothing if the payload is not a list of entries.
std::optional<std::vector<TextEntry>> ReadTextEntries(ByteSpan payload);
// Makes the payload of an item.
Bytes EncodeTextEntries(const std::vector<TextEntry>& entries);

}  // namespace toolbox
