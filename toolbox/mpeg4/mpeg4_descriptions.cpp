#include "toolbox/mpeg4/mpeg4_descriptions.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <vector>

#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/framing.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kStream{"esds"}, kAvc{"avc1"}, kAvcConfig{"avcC"}, kVisual{"mp4v"}, kAudio{"mp4a"};
// Bytes up to the atoms behind a description of pictures, and one of sound in versions 0 to 2.
constexpr std::size_t kPictureSize = 86, kSoundSizes[] = {36, 52, 72};

template <class T>
T At(ByteSpan bytes, std::size_t at) {
  return FromBigEndian<T>(&bytes[at]);
}

std::vector<AtomView> AtomsFrom(ByteSpan description, std::size_t at) {
  ByteSpan tail;
  if (at > description.size()) return {};
  return SplitAtoms(description.subspan(at), &tail);
}

const AtomView* Find(const std::vector<AtomView>& atoms, FourCC type) {
  const auto found = std::ranges::find(atoms, type, &AtomView::type);
  return found == atoms.end() ? nullptr : &*found;
}

ElementaryStream StreamOf(const AtomView* atom) {
  auto stream = atom == nullptr ? std::nullopt : ReadElementaryStream(atom->content);
  if (!stream) throw Refused{invalidSampleDescription};
  return *stream;
}

// QuickTime: 'nclc' has no word on the range of the numbers, which is then not the full one.
Bytes Colours(const AtomView& atom) {
  constexpr std::size_t kSize = 10;
  if (atom.content.size() < kSize || At<std::uint32_t>(atom.content, 0) != FourCC{"nclc"}.value) {
    return {atom.whole.begin(), atom.whole.end()};
  }
  return Encoded([&](auto& io) {
    io.Atom(atom.type, [&] {
      io("kind", FourCC{"nclx"});
      io.Append(atom.content.subspan(4, kSize - 4));
      io("isFullRange", std::uint8_t{0});
    });
  });
}

// ISO/IEC 14496-12 12.1.3 and 14496-15: what stands behind the fields, in the order it had.
std::vector<Bytes> PictureExtensions(ByteSpan description, FourCC format) {
  static constexpr FourCC kKept[] = {{"pasp"}, {"btrt"}, {"clap"}};
  std::vector<Bytes> kept;
  bool hasConfig = false;
  for (const AtomView& atom : AtomsFrom(description, kPictureSize)) {
    if (atom.type == (format == kAvc ? kAvcConfig : kStream)) {
      if (hasConfig) continue;
      hasConfig = true;
      if (format == kVisual) {
        kept.push_back(EncodeElementaryStream(StreamOf(&atom)));
        continue;
      }
      if (!ReadAvcConfig(atom.content)) throw Refused{invalidSampleDescription};
      kept.emplace_back(atom.whole.begin(), atom.whole.end());
    } else if (atom.type == FourCC{"colr"}) {
      kept.push_back(Colours(atom));
    } else if (std::ranges::find(kKept, atom.type) != std::end(kKept)) {
      kept.emplace_back(atom.whole.begin(), atom.whole.end());
    }
  }
  if (!hasConfig) throw Refused{invalidSampleDescription};
  return kept;
}

Bytes PictureDescription(ByteSpan description, FourCC format) {
  if (description.size() < kPictureSize) throw Refused{invalidSampleDescription};
  constexpr std::uint32_t kDotsAnInch = 72 << 16;
  std::array<std::uint8_t, 32> name{};
  std::ranges::copy(description.subspan(50, name.size()), name.begin());
  if (name[0] >= name.size()) name = {};
  const std::vector<Bytes> extensions = PictureExtensions(description, format);
  return Encoded([&](auto& io) {
    io.Atom(format, [&] {
      io.Append(description.subspan(8, 8));
      io.Append(Bytes(16));  // version, revision, vendor, qualities
      io.Append(description.subspan(32, 4));  // width and height
      io("horizontal", kDotsAnInch);
      io("vertical", kDotsAnInch);
      io("dataSize", std::uint32_t{0});
      io("frames", std::uint16_t{1});
      io("name", name);
      io("depth", std::uint16_t{24});
      io("colourTable", std::uint16_t{0xFFFF});
      for (const Bytes& extension : extensions) io.Append(extension);
    });
  });
}

// QuickTime keeps it in 'wave' from version 1 on. An ISO writer may number the version 1 and put no
// QuickTime fields there.
ElementaryStream SoundStream(ByteSpan description, std::size_t version) {
  for (const std::size_t at : {kSoundSizes[version], kSoundSizes[0]}) {
    const std::vector<AtomView> atoms = AtomsFrom(description, at);
    if (const AtomView* stream = Find(atoms, kStream)) return StreamOf(stream);
    if (const AtomView* wave = Find(atoms, FourCC{"wave"})) {
      return StreamOf(Find(AtomsFrom(wave->content, 0), kStream));
    }
  }
  throw Refused{invalidSampleDescription};
}

Bytes SoundDescription(ByteSpan description, std::int32_t scale) {
  if (description.size() < kSoundSizes[0]) throw Refused{invalidSampleDescription};
  std::size_t version = At<std::uint16_t>(description, 16);
  if (version > 2 || description.size() < kSoundSizes[version]) version = 0;
  const ElementaryStream stream = SoundStream(description, version);

  auto rate = static_cast<double>(scale);
  std::uint32_t channels = At<std::uint16_t>(description, 24);
  if (version == 2) {
    rate = std::bit_cast<double>(At<std::uint64_t>(description, 40));
    channels = At<std::uint32_t>(description, 48);
  }
  const auto config = ReadAudioConfig(stream.specific);
  if (stream.objectType == ElementaryStream::kAudio && config && config->channels != 0) {
    channels = config->channels;
  }
  if (channels == 0 || channels > UINT16_MAX) channels = 2;
  // A field of 16.16 has no room for more.
  const bool hasRoom = rate >= 0 && rate < 65536;
  const auto stated = hasRoom ? static_cast<std::uint32_t>(std::floor(rate * 65536)) : 0U;
  return Encoded([&](auto& io) {
    io.Atom(kAudio, [&] {
      io.Append(description.subspan(8, 8));
      io.Append(Bytes(8));  // version, revision, vendor
      io("channels", static_cast<std::uint16_t>(channels));
      io("bits", std::uint16_t{16});
      io("compression", std::uint16_t{0});
      io("packetSize", std::uint16_t{0});
      io("rate", stated);
      io.Append(EncodeElementaryStream(stream));
    });
  });
}

}  // namespace

Bytes Mpeg4Description(ByteSpan description, std::int32_t scale) {
  if (description.size() < 16) throw Refused{invalidSampleDescription};
  const FourCC format(At<std::uint32_t>(description, 4));
  if (format == kAudio) return SoundDescription(description, scale);
  if (format == kAvc || format == kVisual) return PictureDescription(description, format);
  throw Refused{featureUnsupported};
}

std::optional<ElementaryStream> StreamIn(ByteSpan description) {
  const bool isSound = At<std::uint32_t>(description, 4) == kAudio.value;
  const std::vector<AtomView> atoms =
      AtomsFrom(description, isSound ? kSoundSizes[0] : kPictureSize);
  const AtomView* stream = Find(atoms, kStream);
  if (stream == nullptr) return std::nullopt;
  return ReadElementaryStream(stream->content);
}

std::optional<AvcConfig> AvcConfigIn(ByteSpan description) {
  const std::vector<AtomView> atoms = AtomsFrom(description, kPictureSize);
  const AtomView* config = Find(atoms, kAvcConfig);
  if (config == nullptr) return std::nullopt;
  return ReadAvcConfig(config->content);
}

}  // namespace toolbox
