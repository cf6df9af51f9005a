#include "toolbox/read/read_adts.h"
#include "toolbox/movie/sample_places.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

constexpr std::uint8_t kStereo = 0x80, kMono = 0x40;  // in the fourth byte
constexpr std::uint8_t k44100 = 0x50, k48000 = 0x4C, kNoRate = 0x7C;  // AAC LC, in the third

// A frame with a header of 7 bytes and `size` bytes of data.
Bytes Frame(std::uint32_t size, std::uint8_t rate = k44100, std::uint8_t channels = kStereo,
            std::uint8_t blocks = 1) {
  const std::uint32_t all = 7 + size;
  return Join(U8(0xFF), U8(0xF1), U8(rate), U8(static_cast<std::uint8_t>(channels | all >> 11)),
              U8(static_cast<std::uint8_t>(all >> 3)),
              U8(static_cast<std::uint8_t>(all << 5 | 0x1F)),
              U8(static_cast<std::uint8_t>(0xFC | (blocks - 1))), Zeros(size));
}

std::unique_ptr<MovieRecord> Read(const Bytes& file) { return ReadAdtsFile(MemorySource(file)); }

// The offset, size and duration of each sample.
using Place = std::tuple<std::uint64_t, std::uint64_t, std::int64_t>;
std::vector<Place> Places(const Bytes& file) {
  std::vector<Place> places;
  const auto movie = Read(file);
  if (!movie) return places;
  const SampleTable& samples = movie->tracks.at(0)->media->samples;
  ForEachPiece(samples, {0, samples.Count()}, [&](const SamplePiece& piece) {
    places.emplace_back(piece.offset, piece.size, samples.DurationOf(piece.sample).units);
  });
  return places;
}

TEST(ReadAdts, MakesATrackOfFrames) {
  const Bytes file = Join(Frame(20), Frame(3000), Frame(0, k44100, kStereo, 3));
  EXPECT_EQ(Places(file), (std::vector<Place>{{7, 20, 1024}, {34, 3000, 1024}, {3041, 0, 3072}}));
  const auto movie = Read(file);
  const TrackRecord& track = *movie->tracks.at(0);
  EXPECT_TRUE(track.IsEnabled());
  EXPECT_EQ(std::pair(movie->header.scale, track.media->header.scale), std::pair(600, 44100));
  EXPECT_EQ(track.edits.Edits(), (std::vector<Edit>{{{0}, {70}, {0}}}));
  const Bytes setup = Join(U8(4), U8(17), U8(0x40), U8(0x15), U8(0), U16(3000), U32(0),
                           U32(3020 * 8 * 44100 / 5120), U8(5), U8(2), U16(0x1210));
  EXPECT_EQ(track.media->descriptions.at(0).bytes,
            Atom("mp4a", Zeros(6), U16(1), Zeros(8), U16(2), U16(16), U32(0), U32(44100U << 16),
                 Atom("esds", U32(0), U8(3), U8(25), Zeros(3), setup, U8(6), U8(1), U8(2))));
}

TEST(ReadAdts, FindsItsWayThroughWhatIsNoFrame) {
  const Bytes frame = Frame(5);
  const Bytes tag = Join(Text("ID3"), U16(0x0400), U8(0), U32(0x0102), Zeros(130));
  const Bytes footed = Join(Text("ID3"), U16(0x0400), U8(0x10), U32(1), Zeros(11));
  EXPECT_EQ(Places(Join(tag, footed, frame, frame)),
            (std::vector<Place>{{168, 5, 1024}, {180, 5, 1024}}));
  const Bytes lonely = Frame(5);  // a header in rubbish, which nothing follows
  EXPECT_EQ(Places(Join(frame, frame, Text("rub"), lonely, Text("bish"), frame, frame)).back(),
            (Place{62, 5, 1024}));
  EXPECT_EQ(Places(Join(frame, frame, Text("TAG"), Zeros(125))).size(), 2U);
  EXPECT_EQ(Places(Join(frame, frame, Bytes(frame.begin(), frame.end() - 1))).size(), 2U);
  Bytes checked = Join(frame, frame, frame);
  for (const std::size_t at : {1U, 13U, 25U}) checked[at] = 0xF0;
  EXPECT_EQ(Places(checked).at(1), (Place{21, 3, 1024})) << "a checksum before the data";
}

TEST(ReadAdts, EndsWhereSoundOfAnotherKindFollows) {
  const Bytes two = Join(Frame(5), Frame(5));
  for (const Bytes& other : {Frame(5, k48000), Frame(5, k44100, kMono)}) {
    EXPECT_EQ(Places(Join(two, other, two)).size(), 2U);
    EXPECT_EQ(Read(Join(Frame(5), other, two)), nullptr) << "one frame may be chance";
  }
}

TEST(ReadAdts, TakesNothingElseForSound) {
  for (const Bytes& file : {Bytes(), Text("some text that is longer than a header"), Frame(5),
                            Join(Frame(5, kNoRate), Frame(5, kNoRate)), Text("ID3"),
                            Join(Text("ID3"), U16(4), U8(0), U32(0x7F7F7F7F), Frame(5), Frame(5)),
                            Join(Text("x"), Frame(5), Frame(5)), Bytes(1000, 0xFF)}) {
    EXPECT_EQ(Read(file), nullptr);
  }
}

}  // namespace
}  // namespace toolbox
