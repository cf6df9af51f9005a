#include "toolbox/read/read_adts.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "toolbox/atoms/adts.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/disk/block_reader.h"
#include "toolbox/movie/new_media.h"

namespace toolbox {
namespace {

constexpr std::uint32_t kBlockLength = 1024;  // samples of sound in a raw data block

// Finds the frames of a file and collects them as rows of samples.
class AdtsReader {
 public:
  explicit AdtsReader(const ByteSource& source) : source_(source) {}

  // Reads all frames. Returns false if the file has no AAC; then do not call the other functions.
  bool Read() {
    while (const auto tag = Id3TagSize(block_.At(source_, at_, kId3HeaderSize))) at_ += *tag;
    const auto first = FrameAt(at_);
    if (!first) return false;
    config_ = first->config;
    // Two frames in a row are required: other data can look like one header by chance.
    if (!IsFrameAt(at_ + first->frameSize)) return false;
    do {
      while (const auto frame = FrameAt(at_)) {
        if (frame->config != config_) return true;
        Add(*frame);
      }
    } while (FindNext());
    return true;
  }

  std::uint32_t Rate() const { return config_.rate; }
  std::shared_ptr<const SampleRows> Rows() { return rows_; }
  // The 'mp4a' description of all samples, ISO/IEC 14496-14 5.6, made from the headers of frames.
  SampleDescription Description() const {
    const double seconds = static_cast<double>(rows_->duration.units) / Rate();
    const auto bitRate = static_cast<std::uint32_t>(
        std::min(static_cast<double>(bytes_) * 8 / seconds, double{UINT32_MAX}));
    SoundEntry entry;
    entry.format = FourCC{"mp4a"};
    if (config_.channels != 0) entry.channels = static_cast<std::uint16_t>(config_.channels);
    // A rate of 65,536 Hz or more does not fit into 16.16. Then only the decoder configuration has
    // it.
    entry.rate = Rate() > UINT16_MAX ? 0 : Rate() << 16U;
    entry.rest = EncodeElementaryStream(AacStream(config_, largest_, bitRate), LengthBytes::kOne);
    return {Encode(entry)};
  }

 private:
  // The header of the frame at `at`; nothing if there is no frame or the file ends inside it.
  std::optional<AdtsHeader> FrameAt(std::uint64_t at) {
    auto frame = ReadAdtsHeader(block_.At(source_, at, AdtsHeader::kSize));
    if (frame && frame->frameSize > source_.Size() - at) frame.reset();
    return frame;
  }

  // Whether a frame of the same kind as the first is at `at`.
  bool IsFrameAt(std::uint64_t at) {
    const auto frame = FrameAt(at);
    return frame && frame->config == config_;
  }

  // Adds the frame at at_ as a sample and moves to its end.
  void Add(const AdtsHeader& frame) {
    if (rows_->count == UINT32_MAX) throw Malformed("the file has too many frames");
    const std::uint32_t size = frame.frameSize - frame.headerSize;
    rows_->AddSample(frame.blocks * kBlockLength, size, at_ + frame.headerSize, 0);
    bytes_ += size;
    largest_ = std::max(largest_, size);
    at_ += frame.frameSize;
  }

  // Skips damaged bytes: moves to the next frame of the same kind that is followed by another such
  // frame or by the end of the file. Returns false if there is none.
  bool FindNext() {
    for (++at_; at_ + AdtsHeader::kSize <= source_.Size(); ++at_) {
      const auto frame = FrameAt(at_);
      if (!frame || frame->config != config_) continue;
      const std::uint64_t end = at_ + frame->frameSize;
      if (end == source_.Size() || IsFrameAt(end)) return true;
    }
    return false;
  }

  const ByteSource& source_;
  BlockReader block_{256 << 10};
  std::uint64_t at_ = 0;  // of the next frame, in bytes
  AudioConfig config_;
  std::shared_ptr<SampleRows> rows_ = std::make_shared<SampleRows>();
  std::uint64_t bytes_ = 0;  // bytes of all samples
  std::uint32_t largest_ = 0;  // bytes of the largest sample
};

}  // namespace

std::unique_ptr<MovieRecord> ReadAdtsFile(const ByteSource& source) {
  AdtsReader reader(source);
  if (!reader.Read()) return nullptr;
  auto movie = std::make_unique<MovieRecord>();
  movie->header.created = movie->header.modified = Now();
  TrackRecord& track = movie->AddTrack();
  track.header.volume = 0x100;  // 8.8: full volume
  track.header.created = track.header.modified = movie->header.created;
  const auto scale = static_cast<std::int32_t>(reader.Rate());
  MediaRecord& media = track.SetMedia(NewMedia(FourCC{"soun"}, scale, ThisFile{}, false));
  media.descriptions = {reader.Description()};
  media.samples = SampleTable(reader.Rows());
  const Clock clock = track.TimeClock();
  track.edits.Append(clock.Lasting(media.samples.Duration(), 1.0), {0}, 1.0, clock);
  return movie;
}

}  // namespace toolbox
