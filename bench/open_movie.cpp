// How long it takes to open a movie of two million samples, and to write it as a reference movie.
#include <boost/filesystem/operations.hpp>
#include <cstdlib>

#include "bench/measure.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/movie/movie.h"
#include "toolbox/plan/reference.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/write/write_file.h"

namespace {

using namespace toolbox;

// Frames as a camera writes them: one a chunk, every third with a place of its own in display
// order.
std::shared_ptr<const SampleRows> Frames(std::uint32_t count) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = count;
  rows->AddTimes(count, 1001);
  rows->sync.emplace();
  for (std::uint32_t sample = 0; sample < count; ++sample) {
    rows->AddOffsets(1, sample % 3 == 0 ? 2002 : 0);
    rows->sizes.push_back(1000 + sample % 777);
    rows->chunkOffsets.push_back(std::uint64_t{sample} * 2000);
    if (sample % 60 == 0) rows->sync->push_back(sample);
  }
  rows->AddChunks(0, count, 1, 0);
  return rows;
}

void WriteMovieOf(std::uint32_t samples, const boost::filesystem::path& path) {
  MovieRecord movie;
  movie.file = OtherFile{"/media/clip.mov"};
  TrackRecord& track = movie.AddTrack();
  MediaRecord& media = track.SetMedia({});
  media.scale = 30000;
  media.handler.subtype = FourCC{"vide"};
  media.dataReferences.push_back(*movie.file);
  media.descriptions.push_back({Bytes(86), 0});
  media.descriptions[0].bytes[3] = 86;
  media.samples = SampleTable(Frames(samples));
  track.edits.Append({media.samples.Duration() * 600 / 30000}, {0}, 1.0, track.TimeClock());
  OutputFile output(path);
  WriteFile(PlanReference(movie), {.movieFirst = false, .compress = false}, path, output);
  output.Commit();
}

}  // namespace

int main() {
  const auto folder = boost::filesystem::temp_directory_path() / boost::filesystem::unique_path();
  boost::filesystem::create_directories(folder);
  const auto movie = folder / "movie.mov", copy = folder / "copy.mov";
  WriteMovieOf(2'000'000, movie);
  bench::Measure("open 2 000 000 samples",
                 [&] { std::ignore = ReadMovieFile(movie, References::kLeave); });
  const auto opened = ReadMovieFile(movie, References::kLeave);
  bench::Measure("write them as a reference movie", [&] {
    OutputFile output(copy);
    WriteFile(PlanReference(*opened), {.movieFirst = false, .compress = false}, copy, output);
    output.Commit();
  });
  boost::filesystem::remove_all(folder);
}
