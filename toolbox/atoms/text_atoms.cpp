#include "toolbox/atoms/text_atoms.h"

#include <algorithm>

namespace toolbox {

Bytes EncodeTextSample(ByteSpan text, std::optional<std::uint32_t> encoding) {
  std::size_t size = std::min<std::size_t>(text.size(), UINT16_MAX);
  if (size < text.size()) {
    // Every byte of a character but the first starts with the bits 10.
    while (size > 0 && (text[size] & 0xC0) == 0x80) --size;
  }
  return Encoded([&](auto& io) {
    io("size", static_cast<std::uint16_t>(size));
    io.Append(text.first(size));
    if (encoding) PutAtom(io, TextEncodingMark{*encoding});
  });
}

std::optional<std::vector<TextEntry>> ReadTextEntries(ByteSpan payload) {
  constexpr std::size_t kHeaderSize = 4;
  std::vector<TextEntry> entries;
  while (!payload.empty()) {
    if (payload.size() < kHeaderSize) return std::nullopt;
    const std::size_t size = FromBigEndian<std::uint16_t>(payload.data());
    const auto language = FromBigEndian<std::uint16_t>(&payload[2]);
    payload = payload.subspan(kHeaderSize);
    if (size > payload.size()) return std::nullopt;
    const ByteSpan text = payload.first(size);
    entries.push_back({language, Bytes(text.begin(), text.end())});
    payload = payload.subspan(size);
  }
  return entries;
}

Bytes EncodeTextEntries(const std::vector<TextEntry>& entries) {
  Bytes payload;
  for (const TextEntry& entry : entries) {
    AppendBigEndian(payload, static_cast<std::uint16_t>(entry.text.size()));
    AppendBigEndian(payload, entry.language);
    payload.insert(payload.end(), entry.text.begin(), entry.text.end());
  }
  return payload;
}

}  // namespace toolbox
