#include "toolbox/atoms/sound_format.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/atoms/decoder_config.h"
#include "toolbox/atoms/sample_entries.h"

namespace toolbox {
namespace {

constexpr FourCC kSound{"soun"};

// The flags of version 2 of a sound entry, and their meaning for 'lpcm'.
enum FormatFlag : std::uint32_t { kFloat = 1, kBigEndian = 2, kSigned = 4 };

// The fields that an entry of any version has.
SoundFormat FromFields(const SoundEntry& entry) {
  SoundFormat format{.channels = entry.channels, .rate = entry.rate / 65536.0, .bits = entry.bits};
  if (const auto wide = entry.Wide()) {
    format.channels = wide->channels;
    format.rate = wide->Rate();
    format.bits = wide->bits;
    format.isFloat = (wide->formatFlags & kFloat) != 0;
    format.isSigned = (wide->formatFlags & kSigned) != 0;
    format.isLittleEndian = (wide->formatFlags & kBigEndian) == 0;
  }
  return format;
}

// What the name of the format fixes, whatever the fields say.
void ApplyName(FourCC name, SoundFormat& format) {
  if (name == FourCC{"sowt"}) format.isLittleEndian = true;
  if (name == FourCC{"raw "} || name == FourCC{"NONE"}) format.isSigned = format.bits > 8;
  if (name == FourCC{"samr"} || name == FourCC{"sawb"}) format.channels = 1;  // AMR is always mono
  if (name == FourCC{"in24"}) format.bits = 24;
  if (name == FourCC{"in32"} || name == FourCC{"fl32"}) format.bits = 32;
  if (name == FourCC{"fl64"}) format.bits = 64;
  format.isFloat =
      format.isFloat || name == FourCC{"fl32"} || name == FourCC{"fl64"} || name == FourCC{"fpcm"};
}

// ETSI TS 102 366 4.4.2.3: the full channels of each coding mode of AC-3, without the low-frequency
// channel.
std::uint32_t Ac3Channels(std::uint32_t mode, std::uint32_t lowFrequency) {
  static constexpr std::uint32_t kFull[] = {2, 1, 2, 3, 3, 4, 4, 5};
  return kFull[mode & 7] + lowFrequency;
}

// 'dac3', ETSI TS 102 366 F.4.
void ApplyAc3(ByteSpan content, SoundFormat& format) {
  BitReader bits(content);
  bits.Take(2 + 5 + 3);  // rate, identification and kind of the stream
  const std::uint32_t mode = bits.Take(3), lowFrequency = bits.Take(1);
  if (!bits.IsPastEnd()) format.channels = Ac3Channels(mode, lowFrequency);
}

// 'dec3', ETSI TS 102 366 F.6. Only the first independent substream is read.
void ApplyEnhancedAc3(ByteSpan content, SoundFormat& format) {
  BitReader bits(content);
  bits.Take(13 + 3);  // data rate and number of substreams
  bits.Take(2 + 5 + 1 + 1 + 3);  // rate, identification, reserved, service, kind of the stream
  const std::uint32_t mode = bits.Take(3), lowFrequency = bits.Take(1);
  if (!bits.IsPastEnd()) format.channels = Ac3Channels(mode, lowFrequency);
}

// 'alac': version and flags, then the configuration of the decoder.
void ApplyAlac(ByteSpan content, SoundFormat& format) {
  BitReader bits(content);
  bits.Take(32);  // version and flags
  bits.Take(32 + 8);  // length of frames, version
  const std::uint32_t width = bits.Take(8);
  bits.Take(3 * 8);  // parameters of the coding
  const std::uint32_t channels = bits.Take(8);
  bits.Take(16 + 32 + 32);  // longest run, largest frame, bit rate
  const std::uint32_t rate = bits.Take(32);
  if (bits.IsPastEnd()) return;
  format = {.channels = channels, .rate = static_cast<double>(rate), .bits = width};
}

// 'dfLa': version and flags, the head of a metadata block, then STREAMINFO (RFC 9639 8.2).
void ApplyFlac(ByteSpan content, SoundFormat& format) {
  BitReader bits(content);
  bits.Take(32);  // version and flags
  bits.Take(32);  // head
  bits.Take(16 + 16 + 24 + 24);  // sizes of blocks and frames
  const std::uint32_t rate = bits.Take(20), channels = bits.Take(3) + 1, width = bits.Take(5) + 1;
  if (bits.IsPastEnd()) return;
  format = {.channels = channels, .rate = static_cast<double>(rate), .bits = width};
}

// 'dOps': version, channels. Opus always plays at 48 kHz (RFC 7845).
void ApplyOpus(ByteSpan content, SoundFormat& format) {
  if (content.size() < 2) return;
  format.channels = content[1];
  format.rate = 48000;
}

// 'pcmC', ISO/IEC 23003-5: version and flags, the flags of the samples, their width.
void ApplyPcm(ByteSpan content, SoundFormat& format) {
  if (content.size() < 6) return;
  format.isLittleEndian = (content[4] & 1) != 0;
  format.bits = content[5];
}

// 'enda', QuickTime: 1 in 16 bits means that the samples are little-endian.
void ApplyByteOrder(ByteSpan content, SoundFormat& format) {
  if (content.size() >= 2) format.isLittleEndian = content[1] == 1;
}

struct Configuration {
  FourCC type;
  void (*apply)(ByteSpan content, SoundFormat& format) = nullptr;
};
constexpr Configuration kConfigurations[] = {
    {{"dac3"}, ApplyAc3},       {{"dec3"}, ApplyEnhancedAc3}, {{"alac"}, ApplyAlac},
    {{"dfLa"}, ApplyFlac},      {{"dOps"}, ApplyOpus},        {{"pcmC"}, ApplyPcm},
    {{"enda"}, ApplyByteOrder},
};

}  // namespace

SoundFormat ReadSoundFormat(ByteSpan entry) {
  const auto fields = ReadSoundEntry(entry);
  if (!fields) return {};
  SoundFormat format = FromFields(*fields);
  ApplyName(fields->format, format);
  for (const AtomView& atom : AtomsIn(entry, kSound)) {
    const auto* found = std::ranges::find(kConfigurations, atom.type, &Configuration::type);
    if (found != std::end(kConfigurations)) found->apply(atom.content, format);
  }
  const auto stream = StreamIn(entry);
  const auto config = stream && stream->objectType == ElementaryStream::kAudio
                          ? ReadAudioConfig(stream->Specific())
                          : std::nullopt;
  if (config && config->channels != 0) format.channels = config->channels;
  // With spectral band replication the configuration has half of the rate that plays, and the entry
  // may have either. No other rate in the entry is right.
  if (config && config->rate != 0 && format.rate != 2.0 * config->rate) format.rate = config->rate;
  return format;
}

}  // namespace toolbox
