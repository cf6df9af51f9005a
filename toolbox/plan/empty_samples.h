// Samples that show nothing: silence, and text without letters. They fill gaps in what a track
// shows, because many players do not know gaps.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "toolbox/bytes.h"
#include "toolbox/movie/media.h"

namespace toolbox {

// Each function returns an empty sample for a track with that description, or nothing if none is
// known.

// A packet of AAC-LC, mono or stereo.
std::optional<Bytes> SilentPacket(ByteSpan description);
// The value of every byte of silence in uncompressed sound.
std::optional<std::uint8_t> SilentByte(ByteSpan description);
// Text that is shown as nothing.
std::optional<Bytes> EmptyText(ByteSpan description);

// Makes tables of empty samples for one media. Their data is in memory only once for each
// description, however many samples there are.
class EmptySamples {
 public:
  // The media gets descriptions and data references for the samples. It must outlive this object.
  explicit EmptySamples(MediaRecord& media) : media_(media) {}

  // `count` > 0 samples that last `length` together, with the description of the sample `like`.
  // `bytes` is one of them; it is the same in each call with that description.
  SampleTable Make(std::uint64_t like, const Bytes& bytes, std::uint32_t count, MediaTime length);

 private:
  // Copies of one empty sample.
  struct Block {
    std::uint32_t description = 0, samples = 0;
  };

  MediaRecord& media_;
  std::map<std::uint32_t, Block> blocks_;  // by the description of `like`
};

}  // namespace toolbox
