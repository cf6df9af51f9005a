// Measures how long it takes to append movies to one another. Twice as many movies should take
// twice as long.
#include <memory>
#include <string>
#include <utility>

#include "bench/measure.h"
#include "toolbox/movie/segments.h"

namespace {

using namespace toolbox;

// A movie of ten seconds: 300 frames, each in its own chunk.
std::unique_ptr<MovieRecord> Clip(int number) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = 300;
  rows->AddTimes(300, 1001);
  for (std::uint32_t sample = 0; sample < 300; ++sample) {
    rows->sizes.Add(1000);
    rows->chunkOffsets.Add(std::uint64_t{sample} * 1000);
  }
  rows->AddChunks(0, 300, 1, 0);
  auto movie = std::make_unique<MovieRecord>();
  movie->file = OtherFile{"/media/clip" + std::to_string(number) + ".mov"};
  TrackRecord& track = movie->AddTrack();
  MediaRecord& media = track.SetMedia({});
  media.header.scale = 30000;
  media.handler.subtype = FourCC{"vide"};
  media.dataReferences.push_back(ThisFile{});
  media.descriptions.push_back({Bytes(86), 0});
  media.samples = SampleTable(std::move(rows));
  track.edits.Append({6006}, {0}, 1.0, track.TimeClock());
  return movie;
}

// Joins `count` movies.
void Append(int count) {
  const auto output = Clip(0);
  for (int i = 1; i < count; ++i) {
    const auto clip = Clip(i);
    InsertMovieSegment(*clip, *output, {}, clip->Duration(), output->Duration());
  }
}

}  // namespace

int main() {
  for (const int count : {100, 1000, 2000}) {
    bench::Measure(("append " + std::to_string(count) + " movies").c_str(), [&] { Append(count); });
  }
}
