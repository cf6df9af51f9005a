#include "toolbox/read/read_adts.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <optional>
#include <utility>

#include "toolbox/atoms/fields.h"
#include "toolbox/disk/block_reader.h"
#include "toolbox/movie/new_media.h"
#include "toolbox/references/sources.h"

namespace toolbox {
namespace {

constexpr std::uint32_t kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                    22050, 16000, 12000, 11025, 8000,  7350};
// Channels by their layout; layout 0 is told in the frames.
constexpr std::uint16_t kChannels[] = {2, 1, 2, 3, 4, 5, 6, 8};
constexpr std::uint32_t kBlockLength = 1024;  // samples of sound in a raw data block
constexpr std::size_t kHeaderSize = 7;

// What all frames of a track have in common.
struct Config {
  std::uint32_t objectType = 0, rateIndex = 0, channels = 0;
  friend bool operator==(const Config&, const Config&) = default;
};

struct Frame {
  Config config;
  std::uint32_t headerSize = kHeaderSize, size = 0;  // the header is part of the frame
  std::uint32_t blocks = 1;
};

// The frame whose header stands in `bytes`; nothing where none does.
//
//   12 sync | 1 MPEG-2 | 2 layer | 1 no checksum | 2 profile | 4 rate | 1 private | 3 channels
//   1 original | 1 home | 2 copyright | 13 frame size | 11 fullness | 2 blocks - 1
std::optional<Frame> ReadHeader(ByteSpan bytes) {
  if (bytes.size() < kHeaderSize || bytes[0] != 0xFF || (bytes[1] & 0xF6) != 0xF0) return {};
  Frame frame;
  frame.config.objectType = (bytes[2] >> 6U) + 1U;
  frame.config.rateIndex = bytes[2] >> 2U & 15U;
  frame.config.channels = (bytes[2] & 1U) << 2U | bytes[3] >> 6U;
  frame.headerSize = (bytes[1] & 1U) != 0 ? 7 : 9;
  frame.size = (bytes[3] & 3U) << 11U | std::uint32_t{bytes[4]} << 3U | bytes[5] >> 5U;
  frame.blocks = (bytes[6] & 3U) + 1U;
  if (frame.config.rateIndex >= std::size(kRates) || frame.size < frame.headerSize) return {};
  return frame;
}

class AdtsReader {
 public:
  explicit AdtsReader(const ByteSource& source) : source_(source) {}

  // False when the file holds no AAC.
  bool Read() {
    at_ = AfterTags();
    const auto first = FrameAt(at_);
    if (!first) return false;
    config_ = first->config;
    // One header may be chance.
    const auto second = FrameAt(at_ + first->size);
    if (!second || second->config != config_) return false;
    do {
      while (const auto frame = FrameAt(at_)) {
        if (frame->config != config_) return true;
        Add(*frame);
      }
    } while (FindNext());
    return true;
  }

  std::uint32_t Rate() const { return kRates[config_.rateIndex]; }
  std::shared_ptr<const SampleRows> Rows() { return rows_; }
  SampleDescription Description() const;

 private:
  // Tags in front state their length in seven bits a byte, without their header and footer.
  std::uint64_t AfterTags() {
    std::uint64_t at = 0;
    for (;;) {
      const ByteSpan tag = block_.At(source_, at, 10);
      if (tag.size() < 10 || tag[0] != 'I' || tag[1] != 'D' || tag[2] != '3') return at;
      std::uint64_t size = 0;
      for (const std::uint8_t byte : tag.subspan(6, 4)) size = size << 7U | (byte & 0x7FU);
      at += 10 + size + ((tag[5] & 0x10U) != 0 ? 10 : 0);
    }
  }

  // The frame at `at` that is all there.
  std::optional<Frame> FrameAt(std::uint64_t at) {
    auto frame = ReadHeader(block_.At(source_, at, kHeaderSize));
    if (frame && frame->size > source_.Size() - at) frame.reset();
    return frame;
  }

  void Add(const Frame& frame) {
    if (rows_->count == UINT32_MAX) throw Malformed("the frames cannot be counted");
    const std::uint32_t size = frame.size - frame.headerSize;
    rows_->AddSample(frame.blocks * kBlockLength, size, at_ + frame.headerSize, 0);
    bytes_ += size;
    largest_ = std::max(largest_, size);
    at_ += frame.size;
  }

  // Goes on to the next frame of the same kind that another follows, or the end of the file.
  bool FindNext() {
    for (++at_; at_ + kHeaderSize <= source_.Size(); ++at_) {
      if (block_.At(source_, at_, 1)[0] != 0xFF) continue;
      const auto frame = FrameAt(at_);
      if (!frame || frame->config != config_) continue;
      const std::uint64_t end = at_ + frame->size;
      const auto next = FrameAt(end);
      if (end == source_.Size() || (next && next->config == config_)) return true;
    }
    return false;
  }

  const ByteSource& source_;
  BlockReader block_{256 << 10};
  std::uint64_t at_ = 0;
  Config config_;
  std::shared_ptr<SampleRows> rows_ = std::make_shared<SampleRows>();
  std::uint64_t bytes_ = 0;  // of all samples
  std::uint32_t largest_ = 0;  // sample, in bytes
};

// 'mp4a' of version 0 with an elementary stream descriptor, ISO/IEC 14496-14 5.6: what the decoder
// has to know (ISO/IEC 14496-3 1.6.2.1) follows from the header of a frame.
SampleDescription AdtsReader::Description() const {
  const auto setup = static_cast<std::uint16_t>(config_.objectType << 11U |
                                                config_.rateIndex << 7U | config_.channels << 3U);
  const double seconds = static_cast<double>(rows_->duration.units) / Rate();
  const auto bitRate = static_cast<std::uint32_t>(
      std::min(static_cast<double>(bytes_) * 8 / seconds, double{UINT32_MAX}));
  constexpr std::uint8_t kStream = 3, kDecoder = 4, kSetup = 5, kSync = 6;
  constexpr std::uint8_t kAudio = 0x40, kAudioStream = 0x15, kNoTimes = 2;

  return {Encoded([&](auto& io) {
    const auto descriptor = [&](std::uint8_t tag, std::uint8_t size) {
      io("tag", tag);
      io("size", size);
    };
    io.Atom(FourCC{"mp4a"}, [&] {
      io.Append(Bytes(6));
      io("dataReference", std::uint16_t{1});
      io.Append(Bytes(8));
      io("channels", kChannels[config_.channels]);
      io("bits", std::uint16_t{16});
      io("packets", std::uint32_t{0});
      // No room for rates of 2^16 and more: they stand in the set-up alone.
      io("rate", Rate() > UINT16_MAX ? std::uint32_t{0} : Rate() << 16U);
      io.Atom(FourCC{"esds"}, [&] {
        io("version", std::uint32_t{0});
        descriptor(kStream, 3 + 2 + 13 + 2 + 2 + 2 + 1);
        io("id", std::uint16_t{0});
        io("flags", std::uint8_t{0});
        descriptor(kDecoder, 13 + 2 + 2);
        io("kind", kAudio);
        io("stream", kAudioStream);
        io("buffer", static_cast<std::uint8_t>(largest_ >> 16U));
        io("buffer", static_cast<std::uint16_t>(largest_));
        io("mostBits", std::uint32_t{0});
        io("bits", bitRate);
        descriptor(kSetup, 2);
        io("setup", setup);
        descriptor(kSync, 1);
        io("times", kNoTimes);
      });
    });
  })};
}

}  // namespace

std::unique_ptr<MovieRecord> ReadAdtsFile(const ByteSource& source,
                                          const boost::filesystem::path& path) {
  AdtsReader reader(source);
  if (!reader.Read()) return nullptr;
  auto movie = std::make_unique<MovieRecord>();
  movie->created = movie->modified = Now();
  movie->file = FileAt(path);
  movie->defaultDataReference = *movie->file;
  TrackRecord& track = movie->AddTrack();
  track.volume = 0x100;
  track.created = track.modified = movie->created;
  const auto scale = static_cast<std::int32_t>(reader.Rate());
  MediaRecord& media = track.SetMedia(NewMedia(FourCC{"soun"}, scale, ThisFile{}, false));
  media.descriptions = {reader.Description()};
  media.samples = SampleTable(reader.Rows());
  const Clock clock = track.TimeClock();
  track.edits.Append(clock.Lasting(media.samples.Duration(), 1.0), {0}, 1.0, clock);
  return movie;
}

}  // namespace toolbox
