#include "toolbox/mpeg4/mpeg4_descriptions.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>

#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kAvc{"avc1"}, kVisual{"mp4v"}, kAudio{"mp4a"};

// The atoms of a picture entry that ISO/IEC 14496-12 12.1.3 and 14496-15 define, in the order of
// the source. Only the first decoder configuration is kept. Throws Refused:
// invalidSampleDescription (it is missing or cannot be read).
Bytes IsoAtoms(ByteSpan description, const PictureEntry& entry) {
  static constexpr FourCC kKept[] = {{"pasp"}, {"btrt"}, {"clap"}};
  const bool isAvc = entry.format == kAvc;
  const FourCC configType = isAvc ? FourCC{"avcC"} : FourCC{"esds"};
  Bytes kept, stream;
  if (isAvc) {
    // An 'avcC' is copied unchanged, but it must be readable.
    ValueOrRefuse(AvcConfigIn(description));
  } else {
    stream = EncodeElementaryStream(ValueOrRefuse(StreamIn(description)), LengthBytes::kFour);
  }
  const auto keep = [&](ByteSpan atom) { kept.insert(kept.end(), atom.begin(), atom.end()); };
  bool hasConfig = false;
  for (const AtomView& atom : entry.Atoms()) {
    if (atom.type == configType) {
      if (!hasConfig) keep(isAvc ? atom.whole : ByteSpan(stream));
      hasConfig = true;
    } else if (atom.type == FourCC{"colr"}) {
      keep(IsoColors(atom));
    } else if (std::ranges::find(kKept, atom.type) != std::end(kKept)) {
      keep(atom.whole);
    }
  }
  return kept;
}

// Converts a picture description. The fields that are not set here have the values that ISO
// requires.
Bytes PictureDescription(ByteSpan description) {
  const PictureEntry stated = ValueOrRefuse(ReadPictureEntry(description));
  return Encode(PictureEntry{.format = stated.format,
                             .reserved = stated.reserved,
                             .dataReference = stated.dataReference,
                             .width = stated.width,
                             .height = stated.height,
                             .name = stated.ValidName(),
                             .atoms = IsoAtoms(description, stated)});
}

// Builds an entry of version 0, whatever version QuickTime uses. `scale` is the sample rate in Hz,
// unless an entry of version 2 states the rate.
Bytes SoundDescription(ByteSpan description, std::int32_t scale) {
  const SoundEntry stated = ValueOrRefuse(ReadSoundEntry(description));
  const ElementaryStream stream = ValueOrRefuse(StreamIn(description));
  const auto wide = stated.Wide();
  const double rate = wide ? wide->Rate() : scale;
  std::uint32_t channels = wide ? wide->channels : stated.channels;
  const auto config = ReadAudioConfig(stream.Specific());
  // The decoder configuration is more reliable than the entry. 0 channels there means that only the
  // coded sound states the number.
  if (stream.objectType == ElementaryStream::kAudio && config && config->channels != 0) {
    channels = config->channels;
  }
  if (channels == 0 || channels > UINT16_MAX) channels = 2;

  // A rate of 65,536 Hz or more does not fit into 16.16. Then the entry has 0, and decoders take
  // the rate from the decoder configuration.
  const bool fits = rate >= 0 && rate < 65536;
  return Encode(SoundEntry{.format = stated.format,
                           .reserved = stated.reserved,
                           .dataReference = stated.dataReference,
                           .channels = static_cast<std::uint16_t>(channels),
                           .rate = fits ? static_cast<std::uint32_t>(std::floor(rate * 65536)) : 0U,
                           .rest = EncodeElementaryStream(stream, LengthBytes::kFour)});
}

}  // namespace

Bytes Mpeg4Description(ByteSpan description, std::int32_t scale) {
  if (description.size() < 16) throw Refused{invalidSampleDescription, "it is too short"};
  const FourCC format = EntryFormat(description);
  if (format == kAudio) return SoundDescription(description, scale);
  if (format == kAvc || format == kVisual) return PictureDescription(description);
  throw Refused{featureUnsupported, "MPEG-4 files cannot contain this coding"};
}

}  // namespace toolbox
