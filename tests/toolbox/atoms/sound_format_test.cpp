#include "toolbox/atoms/sound_format.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

// Such as "2x16 48000 signed little".
std::string Described(ByteSpan entry) {
  const SoundFormat format = ReadSoundFormat(entry);
  std::ostringstream text;
  text << format.channels << 'x' << format.bits << ' ' << format.rate;
  text << (format.isFloat ? " float" : format.isSigned ? " signed" : " unsigned");
  if (format.isLittleEndian) text << " little";
  return text.str();
}

// The start of an entry, up to its version; its usual fields: stereo, 16 bits, 44100 Hz; the start
// of an AAC configuration.
#define V0 " *7 1/1 0/2 *6 "
#define USUAL "2/2 16/2 0 44100/2 0/2 "
#define AAC " esds{ 0 x0319 1/2 x0004 17/1 x4015 *11 x0502"

// Entries of every kind, each with the format that it states.
const std::pair<const char*, const char*> kCases[] = {
    {"twos{" V0 USUAL "}", "2x16 44100 signed"},
    {"sowt{" V0 "1/2 16/2 0 8000/2 0x8000/2 }", "1x16 8000.5 signed little"},
    {"raw{" V0 "1/2 8/2 0 11025/2 0/2 }", "1x8 11025 unsigned"},
    {"in24{" V0 USUAL "}", "2x24 44100 signed"},
    {"fl64{" V0 USUAL "}", "2x64 44100 float"},
    // Version 1 has 16 bytes of sizes before the atoms.
    {"fl32{ *7 1/1 1/2 *6 " USUAL "*16 wave{ frma{ 'fl32' } enda{ 1/2 } } }",
     "2x32 44100 float little"},
    // Version 2: its size, 96000 Hz as a double, 6 channels, a constant, 24 bits, flags, sizes.
    {"lpcm{ *7 1/1 2/2 *6 3/2 16/2 -2/2 0/2 0x10000 72 x40F7700000000000 6 0x7F000000 24 12 18 1 }",
     "6x24 96000 signed little"},
    {"ipcm{" V0 USUAL "pcmC{ 0 x0118 } }", "2x24 44100 signed little"},
    {"samr{" V0 USUAL "}", "1x16 44100 signed"},
    {"ac-3{" V0 USUAL "dac3{ x103DE0 } }", "6x16 44100 signed"},
    {"ac-3{" V0 USUAL "dac3{ x10 } }", "2x16 44100 signed"},
    {"ec-3{" V0 USUAL "dec3{ x0600200200 } }", "1x16 44100 signed"},
    {"alac{" V0 USUAL "alac{ 0 4096 x0018280A0E06 x00FF 0 0 96000 } }", "6x24 96000 signed"},
    {"fLaC{" V0 USUAL "dfLa{ 0 x80000022 4096/2 4096/2 *6 x1770037000000000 } }",
     "2x24 96000 signed"},
    {"Opus{" V0 USUAL "dOps{ x0001 312/2 16000 *3 } }", "1x16 48000 signed"},
    {"mp4a{" V0 USUAL AAC " x1208 x060102 } }", "1x16 44100 signed"},
    {"mp4a{" V0 USUAL AAC " x11B8 x060102 } }", "8x16 48000 signed"},
    // The rate in the entry is right if it is twice that of the configuration, 24000 Hz.
    {"mp4a{" V0 "2/2 16/2 0 48000/2 0/2" AAC " x1310 x060102 } }", "2x16 48000 signed"},
};

TEST(SoundFormat, IsThatOfTheDecoderIfTheEntryHasAWholeConfiguration) {
  for (const auto& [text, expected] : kCases) {
    const Bytes entry = Made(text);
    EXPECT_EQ(Described(entry), expected) << text;
    for (std::size_t size = 0; size < entry.size(); ++size) {
      const SoundFormat cut = ReadSoundFormat(ByteSpan(entry).first(size));
      EXPECT_EQ(cut.channels == 0, size < 36) << text << " " << size;
    }
  }
}

}  // namespace
}  // namespace toolbox
