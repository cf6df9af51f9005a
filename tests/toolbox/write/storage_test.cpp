// Movie files that change, or that something still needs, while they are written.
#include "toolbox/write/storage.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/read/read_movie.h"

namespace toolbox {
namespace {

class Storage : public InFolder {
 protected:
  // Stores a movie with `size` bytes of media data.
  boost::filesystem::path StoreMovie(const std::string& name, std::uint32_t size) const {
    return Store(
        name, Join(Atom("mdat", Zeros(size)),
                   Atom("moov", MovieHeaderAtom(),
                        TrackAtom({.duration = 600, .table = PlainTable(6, 100, size / 6, 8)}))));
  }
  static std::unique_ptr<MovieRecord> Opened(const boost::filesystem::path& path) {
    return ReadMovieFile(path, References::kResolve);
  }
};

TEST_F(Storage, NothingIsWrittenFromAFileThatHasChanged) {
  const auto input = folder_ / "in.mov", output = Store("out.mov", Text("old"));
  const std::function<void(const MovieRecord&)> writers[] = {
      [&](const MovieRecord& movie) { WriteSelfContained(movie, {}, output, Existing::kReplace); },
      [&](const MovieRecord& movie) {
        StorageRecord* storage = CreateStorage(output, Existing::kReplace);
        AddToStorage(movie, storage);
        CloseStorage(storage);
      },
      [&](const MovieRecord& movie) {
        const auto close = [](StorageRecord* storage) { CloseStorage(storage); };
        const std::unique_ptr<StorageRecord, decltype(close)> storage(
            OpenStorage(input, StorageAccess::kUpdate), close);
        UpdateStorage(movie, storage.get());
      }};
  for (const auto& write : writers) {
    StoreMovie("in.mov", 60);
    const auto movie = Opened(input);
    StoreMovie("in.mov", 66);
    EXPECT_EQ(CodeOf([&] { write(*movie); }), fBsyErr);
  }
  // A change while the file is copied is noticed at the end.
  const auto movie = Opened(StoreMovie("in.mov", 12 << 20));
  bool isCopying = false;
  movie->progress = [&](std::uint64_t, std::uint64_t) {
    isCopying = true;
    boost::filesystem::last_write_time(input, 1'000'000'000);
  };
  EXPECT_EQ(CodeOf([&] { writers[0](*movie); }), fBsyErr);
  EXPECT_TRUE(isCopying);
  EXPECT_EQ(Stored(output), Text("old"));
}

// The second new header may overwrite the tables of the movie that is still open.
TEST_F(Storage, CanBeUpdatedAgainAndAgain) {
  constexpr std::uint32_t kSamples = 600'000;
  MovieRecord made;
  const auto media = Store("media", {}), path = folder_ / "movie.mov";
  made.file = OtherFile{media};
  boost::filesystem::resize_file(media, std::uint64_t{kSamples} * 100);
  auto rows = PlainRows(kSamples, 10, 0);
  rows->sizes = {};
  for (std::uint32_t i = 0; i < kSamples; ++i) rows->sizes.Add(1 + i % 97);
  TrackRecord& track = AddPlainTrack(made, FourCC{"vide"}, 600, rows, OtherFile{media});
  track.edits.Append({600}, {0}, 1.0, track.TimeClock());
  StorageRecord* storage = CreateStorage(path, Existing::kRefuse);
  AddToStorage(made, storage);
  CloseStorage(storage);

  const auto movie = Opened(path);
  storage = OpenStorage(path, StorageAccess::kUpdate);
  for (std::int16_t time = 0; time < 4; ++time) {
    movie->tracks[0]->header.layer = time;
    // The tables move towards the start of the file.
    if (time == 1) movie->tracks[0]->edits.Delete({0}, {6'000'000}, track.TimeClock());
    UpdateStorage(*movie, storage);
    const auto saved = Opened(path);
    ASSERT_EQ(saved->tracks[0]->header.layer, time);
    std::uint32_t sample = 0;
    ForEachEncodedSize(saved->tracks[0]->media->samples, [&](ByteSpan sizes) {
      Rows<SampleSize>(sizes).ForEach(
          [&](const SampleSize& row) { ASSERT_EQ(row.size, 1 + sample++ % 97); });
    });
    ASSERT_EQ(sample, kSamples);
  }
  CloseStorage(storage);
}

}  // namespace
}  // namespace toolbox
