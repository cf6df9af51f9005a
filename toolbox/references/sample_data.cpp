#include "toolbox/references/sample_data.h"

#include "toolbox/movie/sample_places.h"
#include "toolbox/references/sources.h"
#include "toolbox/refused.h"

namespace toolbox {

SampleData ReadSample(const MediaRecord& media, std::uint64_t sample, std::uint64_t maxSize) {
  const auto [from, to] = WholePackets(media.samples, {sample, sample + 1});
  CheckLocated(media.samples, {from, to});
  SampleData data;
  data.first = from;
  ForEachPiece(media.samples, {from, to}, [&](const SamplePiece& piece) {
    if (maxSize != 0 && piece.size > maxSize) throw Refused{maxSizeToGrowTooSmall};
    const auto source = OpenSource(media.ReferenceOf(piece.description), media.MovieFile());
    CheckEnd(piece.offset, piece.size, source->Size(), source->Path());
    data.count = piece.count;
    data.description = piece.description;
    data.bytes.resize(piece.size);
    source->Read(piece.offset, data.bytes);
  });
  return data;
}

}  // namespace toolbox
