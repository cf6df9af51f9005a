#include "toolbox/atoms/sound_format.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

// The usual fields of an entry: stereo, 16 bits, 44100 Hz.
const Bytes kUsual = {0, 2, 0, 16, 0, 0, 0, 0, 0xAC, 0x44, 0, 0};

Bytes Entry(const char* format, const Bytes& fields, const Bytes& rest = {},
            std::uint8_t version = 0) {
  return Atom(format, Bytes{0, 0, 0, 0, 0, 0, 0, 1, 0, version, 0, 0, 0, 0, 0, 0}, fields, rest);
}

// An AAC entry with the usual fields.
Bytes Aac(std::uint8_t first, std::uint8_t second, const Bytes& fields = kUsual) {
  return Entry("mp4a", fields,
               Atom("esds", Bytes{0, 0, 0, 0, 3, 0x19, 0, 1, 0, 4, 0x11,  0x40,   0x15, 0, 0, 0,
                                  0, 0, 0, 0, 0, 0,    0, 0, 5, 2, first, second, 6,    1, 2}));
}

// Such as "2x16 48000 signed little".
std::string Described(const SoundFormat& format) {
  std::ostringstream text;
  text << format.channels << 'x' << format.bits << ' ' << format.rate;
  text << (format.isFloat ? " float" : format.isSigned ? " signed" : " unsigned");
  if (format.isLittleEndian) text << " little";
  return text.str();
}

struct Case {
  Bytes entry;
  const char* expected;
};

// Entries of every kind, each with the format that it states.
const Case kCases[] = {
    {Entry("twos", kUsual), "2x16 44100 signed"},
    {Entry("sowt", {0, 1, 0, 16, 0, 0, 0, 0, 0x1F, 0x40, 0x80, 0}), "1x16 8000.5 signed little"},
    {Entry("raw ", {0, 1, 0, 8, 0, 0, 0, 0, 0x2B, 0x11, 0, 0}), "1x8 11025 unsigned"},
    {Entry("in24", kUsual), "2x24 44100 signed"},
    {Entry("fl64", kUsual), "2x64 44100 float"},
    // Version 1 has 16 bytes of sizes before the atoms.
    {Entry("fl32", kUsual,
           Join(Zeros(16), Atom("wave", Atom("frma", Text("fl32")), Atom("enda", U16(1)))), 1),
     "2x32 44100 float little"},
    // Version 2: its size, 96000 Hz as a double, 6 channels, a constant, 24 bits, flags, sizes.
    {Entry("lpcm", {0, 3, 0, 16, 0xFF, 0xFE, 0, 0, 0, 1, 0, 0},
           {0, 0, 0, 72, 0x40, 0xF7, 0x70, 0, 0, 0,  0, 0, 0, 0,  0, 6, 0x7F, 0,
            0, 0, 0, 0,  0,    24,   0,    0, 0, 12, 0, 0, 0, 18, 0, 0, 0,    1},
           2),
     "6x24 96000 signed little"},
    {Entry("ipcm", kUsual, Atom("pcmC", Bytes{0, 0, 0, 0, 1, 24})), "2x24 44100 signed little"},
    {Entry("samr", kUsual), "1x16 44100 signed"},
    {Entry("ac-3", kUsual, Atom("dac3", Bytes{0x10, 0x3D, 0xE0})), "6x16 44100 signed"},
    {Entry("ec-3", kUsual, Atom("dec3", Bytes{6, 0, 0x20, 2, 0})), "1x16 44100 signed"},
    {Entry("alac", kUsual, Atom("alac", Bytes{0, 0,   0, 0, 0, 0, 16, 0, 0, 24, 40, 10, 14,   6,
                                              0, 255, 0, 0, 0, 0, 0,  0, 0, 0,  0,  1,  0x77, 0})),
     "6x24 96000 signed"},
    {Entry("fLaC", kUsual,
           Atom("dfLa", Bytes{0, 0, 0, 0, 0x80, 0,    0,    34,   16,   0, 16, 0, 0,
                              0, 0, 0, 0, 0,    0x17, 0x70, 0x03, 0x70, 0, 0,  0, 0})),
     "2x24 96000 signed"},
    {Entry("Opus", kUsual, Atom("dOps", Bytes{0, 1, 1, 56, 0, 0, 0x3E, 0x80, 0, 0, 0})),
     "1x16 48000 signed"},
    {Aac(0x12, 0x08), "1x16 44100 signed"},
    {Aac(0x11, 0xB8), "8x16 48000 signed"},
    // The rate in the entry is right if it is twice that of the configuration, 24000 Hz.
    {Aac(0x13, 0x10, {0, 2, 0, 16, 0, 0, 0, 0, 0xBB, 0x80, 0, 0}), "2x16 48000 signed"},
};

TEST(SoundFormat, IsThatOfTheDecoderIfTheEntryHasOne) {
  for (const Case& one : kCases) {
    EXPECT_EQ(Described(ReadSoundFormat(one.entry)), one.expected) << &one - kCases;
  }
}

TEST(SoundFormat, IsThatOfTheFieldsIfTheConfigurationIsCut) {
  for (const Case& one : kCases) {
    for (std::size_t size = 0; size < one.entry.size(); ++size) {
      const SoundFormat cut = ReadSoundFormat(ByteSpan(one.entry).first(size));
      EXPECT_EQ(cut.channels == 0, size < 36) << &one - kCases << " " << size;
    }
  }
  EXPECT_EQ(Described(ReadSoundFormat(Entry("ac-3", kUsual, Atom("dac3", Bytes{0x10})))),
            "2x16 44100 signed");
}

}  // namespace
}  // namespace toolbox
