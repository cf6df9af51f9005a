// Measures how long it takes to open a movie with two million samples, and to write it as a
// reference movie.
#include <boost/filesystem/operations.hpp>
#include <memory>
#include <tuple>

#include "bench/measure.h"
#include "toolbox/movie/movie.h"
#include "toolbox/plan/reference.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/write/storage.h"

namespace {

using namespace toolbox;

// Frames as a camera writes them: one in each chunk, every 60th a key frame, and every third frame
// shown later than it is decoded.
std::shared_ptr<const SampleRows> Frames(std::uint32_t count) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = count;
  rows->AddTimes(count, 1001);
  rows->sync.emplace();
  for (std::uint32_t sample = 0; sample < count; ++sample) {
    rows->AddOffsets(1, sample % 3 == 0 ? 2002 : 0);
    rows->sizes.Add(1000 + sample % 777);
    rows->chunkOffsets.Add(std::uint64_t{sample} * 2000);
    if (sample % 60 == 0) rows->sync->push_back(sample);
  }
  rows->AddChunks(0, count, 1, 0);
  return rows;
}

void WriteReference(const MovieRecord& movie, const boost::filesystem::path& path) {
  WriteNewFile(movie, {.movieFirst = false, .compress = false}, path, Existing::kReplace,
               [&movie](std::uint64_t) { return PlanReference(movie); });
}

void WriteMovieOf(std::uint32_t samples, const boost::filesystem::path& path) {
  MovieRecord movie;
  movie.file = OtherFile{"/media/clip.mov"};
  TrackRecord& track = movie.AddTrack();
  MediaRecord& media = track.SetMedia({});
  media.header.scale = 30000;
  media.handler.subtype = FourCC{"vide"};
  media.dataReferences.push_back(*movie.file);
  media.descriptions.push_back({Bytes(86), 0});
  media.descriptions[0].bytes[3] = 86;
  media.samples = SampleTable(Frames(samples));
  track.edits.Append({media.samples.Duration().units * 600 / 30000}, {0}, 1.0, track.TimeClock());
  WriteReference(movie, path);
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
  bench::Measure("write them as a reference movie", [&] { WriteReference(*opened, copy); });
  boost::filesystem::remove_all(folder);
}
