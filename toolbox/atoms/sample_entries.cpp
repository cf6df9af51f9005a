#include "toolbox/atoms/sample_entries.h"

#include <algorithm>

#include "toolbox/atoms/fields.h"

namespace toolbox {
namespace {

constexpr std::size_t kHead = 8;  // size and type of an atom
constexpr std::size_t kReferenceAt = 14;  // after size, format and six bytes
constexpr FourCC kStream{"esds"}, kWave{"wave"};

std::uint32_t NumberAt(ByteSpan bytes, std::size_t at) {
  return FromBigEndian<std::uint32_t>(&bytes[at]);
}

template <class Entry>
std::optional<Entry> ReadEntry(ByteSpan bytes, std::size_t smallest) {
  if (bytes.size() < smallest) return std::nullopt;
  Entry entry;
  FieldReader reader(bytes.subspan(kHead));
  Entry::Fields(reader, entry);
  entry.format = EntryFormat(bytes);
  return entry;
}

template <class Entry>
Bytes EncodeEntry(const Entry& entry) {
  return Encoded([&](auto& io) { io.Atom(entry.format, [&] { Entry::Fields(io, entry); }); });
}

// The fields that `version` adds. They are at the start of the rest of the entry.
template <class Added>
std::optional<Added> ReadAdded(const SoundEntry& entry, std::uint16_t version) {
  const std::size_t size = SoundEntry::kSizes[version] - SoundEntry::kSizes[0];
  if (entry.version != version || entry.rest.size() < size) return std::nullopt;
  Added added;
  FieldReader reader(entry.rest);
  Added::Fields(reader, added);
  return added;
}

// The atoms in `bytes` from `at` on. Bytes after the last whole atom are ignored.
std::vector<AtomView> AtomsFrom(ByteSpan bytes, std::size_t at) {
  ByteSpan tail;
  return SplitAtoms(bytes.subspan(at), &tail);
}

const AtomView* Find(const std::vector<AtomView>& atoms, FourCC type) {
  const auto found = std::ranges::find(atoms, type, &AtomView::type);
  return found == atoms.end() ? nullptr : &*found;
}

std::optional<ElementaryStream> StreamAmong(const std::vector<AtomView>& atoms) {
  const AtomView* stream = Find(atoms, kStream);
  return stream == nullptr ? std::nullopt : ReadElementaryStream(stream->content);
}

std::optional<ElementaryStream> SoundStreamIn(const SoundEntry& entry) {
  const std::size_t version = entry.Packets() ? 1 : entry.Wide() ? 2 : 0;
  // In ISO files an entry of version 1 can exist without the QuickTime fields, so the atoms are
  // also searched for where version 0 has them.
  for (const std::size_t size : {SoundEntry::kSizes[version], SoundEntry::kSizes[0]}) {
    const std::vector<AtomView> atoms = AtomsFrom(entry.rest, size - SoundEntry::kSizes[0]);
    if (Find(atoms, kStream) != nullptr) return StreamAmong(atoms);
    if (const AtomView* wave = Find(atoms, kWave)) return StreamAmong(AtomsFrom(wave->content, 0));
  }
  return std::nullopt;
}

// The offset of the atoms in an entry. Returns nothing for media types whose entries have no known
// atoms.
std::optional<std::size_t> AtomsAt(ByteSpan bytes, FourCC mediaType) {
  if (mediaType == FourCC{"vide"}) return PictureEntry::kSize;
  if (mediaType != FourCC{"soun"}) return std::nullopt;
  const auto entry = ReadSoundEntry(bytes);
  if (!entry) return std::nullopt;
  if (entry->version < 2) return SoundEntry::kSizes[entry->version];
  // QuickTime: version 2 states how many bytes come before the atoms.
  if (entry->version == 2 && entry->rest.size() >= 4) return NumberAt(entry->rest, 0);
  return std::nullopt;
}

// Appends the atoms in `bytes` to `kept` without their bit rates. Four zero bytes can come after
// the last atom. Returns false if `bytes` are not atoms.
bool KeepDecodingParts(ByteSpan bytes, Bytes& kept) {
  while (bytes.size() >= kHead) {
    const std::uint32_t size = NumberAt(bytes, 0);
    const FourCC type(NumberAt(bytes, 4));
    if (size < kHead || size > bytes.size()) return false;
    Bytes atom(bytes.begin(), bytes.begin() + size);
    bytes = bytes.subspan(size);
    if (type == FourCC{"btrt"}) continue;
    if (type == kStream) ClearNumberAndRates(std::span(atom).subspan(kHead));
    if (type == kWave) {
      const Bytes whole = atom;
      atom.resize(kHead);
      if (!KeepDecodingParts(ByteSpan(whole).subspan(kHead), atom)) atom = whole;
    }
    kept.insert(kept.end(), atom.begin(), atom.end());
  }
  kept.insert(kept.end(), bytes.begin(), bytes.end());
  return bytes.empty() || (bytes.size() == 4 && NumberAt(bytes, 0) == 0);
}

// The parts of an entry that must be equal for the same decoding: all but the size, the data
// reference and the bit rates. Returns nothing if these cannot be located.
std::optional<Bytes> DecodingParts(ByteSpan bytes, FourCC mediaType) {
  const auto atoms = AtomsAt(bytes, mediaType);
  if (!atoms || *atoms < kReferenceAt + 2 || *atoms > bytes.size()) return std::nullopt;
  Bytes kept(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(*atoms));
  SetReferenceNumber(kept, 0);
  kept.erase(kept.begin(), kept.begin() + 4);
  if (!KeepDecodingParts(bytes.subspan(*atoms), kept)) return std::nullopt;
  return kept;
}

}  // namespace

FourCC EntryFormat(ByteSpan entry) {
  return entry.size() < kHead ? FourCC() : FourCC(NumberAt(entry, 4));
}

std::optional<std::uint16_t> ReferenceNumber(ByteSpan entry) {
  if (entry.size() < kReferenceAt + 2) return std::nullopt;
  const auto isSet = [](std::uint8_t byte) { return byte != 0; };
  if (std::ranges::any_of(entry.subspan(kHead, 6), isSet)) return std::nullopt;
  return FromBigEndian<std::uint16_t>(&entry[kReferenceAt]);
}

void SetReferenceNumber(Bytes& entry, std::uint32_t number) {
  if (ReferenceNumber(entry)) ToBigEndian(static_cast<std::uint16_t>(number), &entry[kReferenceAt]);
}

bool DecodeAlike(ByteSpan a, ByteSpan b, FourCC mediaType) {
  if (!ReferenceNumber(a) || !ReferenceNumber(b)) return std::ranges::equal(a, b);
  if (std::ranges::equal(a.first(kReferenceAt), b.first(kReferenceAt)) &&
      std::ranges::equal(a.subspan(kReferenceAt + 2), b.subspan(kReferenceAt + 2))) {
    return true;
  }
  if (EntryFormat(a) != EntryFormat(b)) return false;
  const auto parts = DecodingParts(a, mediaType);
  return parts && parts == DecodingParts(b, mediaType);
}

std::array<std::uint8_t, 32> PictureEntry::ValidName() const {
  return name[0] < name.size() ? name : std::array<std::uint8_t, 32>{};
}

std::vector<AtomView> PictureEntry::Atoms() const { return AtomsFrom(atoms, 0); }

std::optional<PictureEntry> ReadPictureEntry(ByteSpan entry) {
  return ReadEntry<PictureEntry>(entry, PictureEntry::kSize);
}
Bytes Encode(const PictureEntry& entry) { return EncodeEntry(entry); }

std::optional<SoundPackets> SoundEntry::Packets() const {
  return ReadAdded<SoundPackets>(*this, 1);
}
std::optional<WideSound> SoundEntry::Wide() const { return ReadAdded<WideSound>(*this, 2); }

std::optional<SoundEntry> ReadSoundEntry(ByteSpan entry) {
  return ReadEntry<SoundEntry>(entry, SoundEntry::kSizes[0]);
}
Bytes Encode(const SoundEntry& entry) { return EncodeEntry(entry); }

std::vector<AtomView> AtomsIn(ByteSpan entry, FourCC mediaType) {
  const auto at = AtomsAt(entry, mediaType);
  if (!at || *at > entry.size()) return {};
  std::vector<AtomView> atoms = AtomsFrom(entry, *at);
  // In ISO files an entry of version 1 can exist without the QuickTime fields.
  if (atoms.empty() && mediaType == FourCC{"soun"} && *at > SoundEntry::kSizes[0]) {
    atoms = AtomsFrom(entry, SoundEntry::kSizes[0]);
  }
  if (const AtomView* wave = Find(atoms, kWave)) {
    const std::vector<AtomView> inside = AtomsFrom(wave->content, 0);
    atoms.insert(atoms.end(), inside.begin(), inside.end());
  }
  return atoms;
}

FourCC OriginalFormat(ByteSpan entry, FourCC mediaType) {
  const std::vector<AtomView> atoms = AtomsIn(entry, mediaType);
  const AtomView* protection = Find(atoms, FourCC{"sinf"});
  if (protection != nullptr) {
    const std::vector<AtomView> inside = AtomsFrom(protection->content, 0);
    const AtomView* original = Find(inside, FourCC{"frma"});
    if (original != nullptr && original->content.size() >= 4) {
      return FourCC(NumberAt(original->content, 0));
    }
  }
  return EntryFormat(entry);
}

std::optional<ElementaryStream> StreamIn(ByteSpan entry) {
  if (EntryFormat(entry) == FourCC{"mp4a"}) {
    const auto sound = ReadSoundEntry(entry);
    return sound ? SoundStreamIn(*sound) : std::nullopt;
  }
  const auto picture = ReadPictureEntry(entry);
  return picture ? StreamAmong(picture->Atoms()) : std::nullopt;
}

std::optional<AvcConfig> AvcConfigIn(ByteSpan entry) {
  const auto picture = ReadPictureEntry(entry);
  if (!picture) return std::nullopt;
  const std::vector<AtomView> atoms = picture->Atoms();
  const AtomView* config = Find(atoms, FourCC{"avcC"});
  return config == nullptr ? std::nullopt : ReadAvcConfig(config->content);
}

Bytes IsoColors(const AtomView& colors) {
  constexpr std::size_t kSize = 10;  // kind, then three numbers
  if (colors.content.size() < kSize || FourCC(NumberAt(colors.content, 0)) != FourCC{"nclc"}) {
    return {colors.whole.begin(), colors.whole.end()};
  }
  return Encoded([&](auto& io) {
    io.Atom(colors.type, [&] {
      io("kind", FourCC{"nclx"});
      io.Append(colors.content.subspan(4, kSize - 4));
      io("isFullRange", std::uint8_t{0});  // QuickTime has no such field; its range is never full
    });
  });
}

}  // namespace toolbox
