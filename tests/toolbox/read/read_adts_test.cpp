#include "toolbox/read/read_adts.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/told.h"

namespace toolbox {
namespace {

constexpr std::uint8_t kStereo = 0x80, kMono = 0x40;  // in the fourth byte
constexpr std::uint8_t k44100 = 0x50, k48000 = 0x4C, kNoRate = 0x7C;  // AAC LC, in the third

// A frame with a header of 7 bytes and `size` bytes of data.
Bytes Frame(std::uint32_t size, std::uint8_t rate = k44100, std::uint8_t channels = kStereo,
            std::uint8_t blocks = 1) {
  const std::uint32_t all = 7 + size;
  return Join(Bytes{0xFF, 0xF1, rate, static_cast<std::uint8_t>(channels | all >> 11),
                    static_cast<std::uint8_t>(all >> 3), static_cast<std::uint8_t>(all << 5 | 0x1F),
                    static_cast<std::uint8_t>(0xFC | (blocks - 1))},
              Zeros(size));
}

std::unique_ptr<MovieRecord> Read(const Bytes& file) { return ReadAdtsFile(MemorySource(file)); }

std::string Samples(const Bytes& file) {
  const auto movie = Read(file);
  return movie ? Told(movie->tracks.at(0)->media->samples) : "none";
}

TEST(ReadAdts, MakesATrackOfFrames) {
  const auto movie = Read(Join(Frame(20), Frame(3000), Frame(0, k44100, kStereo, 3)));
  const MediaRecord& media = *movie->tracks.at(0)->media;
  EXPECT_EQ(Told(media.samples), "7+20:1024 34+3000:1024 3041+0:3072");
  EXPECT_EQ(Told(*movie), "0+70") << "of 600 units a second";
  EXPECT_EQ(media.descriptions.at(0).bytes,
            Made("mp4a{ *6 1/2 *8 2/2 16/2 0 44100/2 0/2 esds{ 0 3/1 25/1 *3 4/1 17/1 x401500"
                 " 3000/2 0 $ 5/1 2/1 x1210 6/1 1/1 2/1 } }",
                 {U32(3020 * 8 * 44100 / 5120)}));
}

TEST(ReadAdts, FindsItsWayThroughWhatIsNoFrame) {
  const Bytes frame = Frame(5);
  const Bytes cut = First(frame, frame.size() - 1);
  EXPECT_EQ(Samples(Made("'ID3' x0400 0/1 0x0102 *130 'ID3' x0400 x10 1 *11 $ $", {frame, frame})),
            "168+5:1024 180+5:1024");
  // A header in rubbish, which nothing follows.
  EXPECT_EQ(Samples(Made("$ $ 'rub' $ 'bish' $ $", {frame, frame, frame, frame, frame})),
            "7+5:1024 19+5:1024 50+5:1024 62+5:1024");
  for (const Bytes& end : {Made("'TAG' *125"), cut}) {
    EXPECT_EQ(Samples(Join(frame, frame, end)), "7+5:1024 19+5:1024");
  }
  for (const Bytes& other : {Frame(5, k48000), Frame(5, k44100, kMono)}) {  // it ends there
    EXPECT_EQ(Samples(Join(frame, frame, other, frame)), "7+5:1024 19+5:1024");
    EXPECT_EQ(Samples(Join(frame, other, frame)), "none") << "one frame may be chance";
  }
  Bytes checked = Join(frame, frame);
  for (const std::size_t at : {1U, 13U}) checked[at] = 0xF0;
  EXPECT_EQ(Samples(checked), "9+3:1024 21+3:1024") << "a checksum before the data";
}

TEST(ReadAdts, TakesNothingElseForSound) {
  for (const Bytes& file : {Bytes(), Text("some text that is longer than a header"), Frame(5),
                            Join(Frame(5, kNoRate), Frame(5, kNoRate)), Text("ID3"),
                            Made("'ID3' 4/2 0/1 0x7F7F7F7F $ $", {Frame(5), Frame(5)}),
                            Join(Text("x"), Frame(5), Frame(5)), Bytes(1000, 0xFF)}) {
    EXPECT_EQ(Read(file), nullptr);
  }
}

}  // namespace
}  // namespace toolbox
