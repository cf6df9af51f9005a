#include "toolbox/movie/sample_description.h"

#include <algorithm>
#include <optional>

namespace toolbox {
namespace {

constexpr std::size_t kReferenceAt = 14;  // size, format, six bytes
constexpr std::size_t kHead = 8;  // size and type of an atom

std::uint32_t NumberAt(ByteSpan bytes, std::size_t at) {
  std::uint32_t number = 0;
  for (const std::uint8_t byte : bytes.subspan(at, 4)) number = number << 8 | byte;
  return number;
}

// Where the atoms in a description start; nothing for media that have none we know of.
std::optional<std::size_t> AtomsAt(ByteSpan description, FourCC mediaType) {
  constexpr std::size_t kPicture = 86, kSound = 36, kSound1 = 52;
  if (mediaType == FourCC{"vide"}) return kPicture;
  if (mediaType != FourCC{"soun"} || description.size() < kSound) return std::nullopt;
  const int version = description[16] << 8 | description[17];
  if (version == 0) return kSound;
  if (version == 1) return kSound1;
  // QuickTime: version 2 says how long its fields are.
  if (version == 2 && description.size() >= kSound + 4) return NumberAt(description, kSound);
  return std::nullopt;
}

// Goes over the length of an MPEG-4 descriptor of that tag, ISO/IEC 14496-1 8.3.3.
bool TakeDescriptor(Bytes& bytes, std::size_t& at, std::uint8_t tag) {
  if (at >= bytes.size() || bytes[at] != tag) return false;
  do ++at;
  while (at < bytes.size() && (bytes[at] & 0x80) != 0);
  return ++at <= bytes.size();
}

// Clears buffer size and bit rates in the decoder's part of an 'esds' atom.
void ClearRates(Bytes& atom) {
  constexpr std::uint8_t kStream = 3, kDecoder = 4;
  constexpr std::size_t kRates = 11;  // 24 bits and twice 32
  std::size_t at = kHead + 4;
  if (!TakeDescriptor(atom, at, kStream) || at + 3 > atom.size()) return;
  const std::uint8_t flags = atom[at + 2];
  at += 3;
  if ((flags & 0x80) != 0) at += 2;
  if ((flags & 0x40) != 0 && at < atom.size()) at += std::size_t{1} + atom[at];
  if ((flags & 0x20) != 0) at += 2;
  if (!TakeDescriptor(atom, at, kDecoder) || at + 2 + kRates > atom.size()) return;
  std::fill_n(atom.begin() + static_cast<std::ptrdiff_t>(at) + 2, kRates, std::uint8_t{0});
}

// Appends the atoms of `bytes` to `kept` without what they say of bit rates; false when they are no
// atoms. Four zero bytes may end them.
bool KeepEssence(ByteSpan bytes, Bytes& kept) {
  while (bytes.size() >= kHead) {
    const std::uint32_t size = NumberAt(bytes, 0);
    const FourCC type(NumberAt(bytes, 4));
    if (size < kHead || size > bytes.size()) return false;
    Bytes atom(bytes.begin(), bytes.begin() + size);
    bytes = bytes.subspan(size);
    if (type == FourCC{"btrt"}) continue;
    if (type == FourCC{"esds"}) ClearRates(atom);
    if (type == FourCC{"wave"}) {
      const Bytes whole = atom;
      atom.resize(kHead);
      if (!KeepEssence(ByteSpan(whole).subspan(kHead), atom)) atom = whole;
    }
    kept.insert(kept.end(), atom.begin(), atom.end());
  }
  kept.insert(kept.end(), bytes.begin(), bytes.end());
  return bytes.empty() || (bytes.size() == 4 && NumberAt(bytes, 0) == 0);
}

// What has to be equal, without size and data reference; nothing where it cannot be told.
std::optional<Bytes> Essence(const SampleDescription& description, FourCC mediaType) {
  const ByteSpan bytes(description.bytes);
  const auto atoms = AtomsAt(bytes, mediaType);
  if (!atoms || *atoms < kReferenceAt + 2 || *atoms > bytes.size()) return std::nullopt;
  Bytes kept(bytes.begin() + 4, bytes.begin() + static_cast<std::ptrdiff_t>(*atoms));
  std::fill_n(kept.begin() + kReferenceAt - 4, 2, std::uint8_t{0});
  if (!KeepEssence(bytes.subspan(*atoms), kept)) return std::nullopt;
  return kept;
}

}  // namespace

FourCC SampleDescription::Format() const {
  return bytes.size() < kHead ? FourCC() : FourCC(NumberAt(bytes, 4));
}

bool SampleDescription::HoldsReference() const {
  if (bytes.size() < kReferenceAt + 2) return false;
  return std::all_of(bytes.begin() + 8, bytes.begin() + kReferenceAt,
                     [](std::uint8_t byte) { return byte == 0; });
}

bool SampleDescription::IsProtected() const {
  // 'encv', 'enca', 'enct' and so on, one for each kind of media.
  return Format().value >> 8 == FourCC{"encv"}.value >> 8;
}

Bytes SampleDescription::Numbered() const {
  Bytes numbered = bytes;
  if (HoldsReference()) {
    const std::uint32_t number = dataReference + 1;
    numbered[kReferenceAt] = static_cast<std::uint8_t>(number >> 8);
    numbered[kReferenceAt + 1] = static_cast<std::uint8_t>(number);
  }
  return numbered;
}

bool SampleDescription::SameAs(const SampleDescription& other, FourCC mediaType) const {
  if (!HoldsReference() || !other.HoldsReference()) return bytes == other.bytes;
  const ByteSpan a(bytes), b(other.bytes);
  if (std::ranges::equal(a.first(kReferenceAt), b.first(kReferenceAt)) &&
      std::ranges::equal(a.subspan(kReferenceAt + 2), b.subspan(kReferenceAt + 2))) {
    return true;
  }
  if (Format() != other.Format()) return false;
  const auto essence = Essence(*this, mediaType);
  return essence && essence == Essence(other, mediaType);
}

}  // namespace toolbox
