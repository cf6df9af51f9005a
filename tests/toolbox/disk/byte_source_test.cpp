#include "toolbox/disk/byte_source.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/plan/reference.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/write/update_file.h"
#include "toolbox/write/write_file.h"

namespace toolbox {
namespace {

class ByteSourceTest : public InFolder {};

TEST_F(ByteSourceTest, WhatIsOwnedOutlastsItsFile) {
  Bytes bytes(3 << 20);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 >> 3);
  const boost::filesystem::path path = Store("file", bytes);
  const HeldBytes held = FileSource(path).Load(5, bytes.size() - 5);
  const std::uint8_t* before = held.Span().data();
  held.Detach();
  Store("file", {});
  EXPECT_EQ(held.Span().data(), before);
  EXPECT_TRUE(std::ranges::equal(held.Span(), ByteSpan(bytes).subspan(5)));
}

// The second new header may overwrite the tables of the movie that is still open.
TEST_F(ByteSourceTest, AnOpenMovieIsSavedAgainAndAgain) {
  constexpr std::uint32_t kSamples = 600'000;
  MovieRecord made;
  made.file = OtherFile{Store("media", {})};
  boost::filesystem::resize_file(folder_ / "media", std::uint64_t{kSamples} * 100);
  auto rows = PlainRows(kSamples, 10, 0);
  rows->sizes = {};
  for (std::uint32_t i = 0; i < kSamples; ++i) rows->sizes.Add(1 + i % 97);
  TrackRecord& track = AddPlainTrack(made, FourCC{"vide"}, 600, rows, OtherFile{folder_ / "media"});
  track.edits.Append({600}, {0}, 1.0, track.TimeClock());
  const boost::filesystem::path path = folder_ / "movie.mov";
  OutputFile output(path);
  WriteFile(PlanReference(made), {.movieFirst = true, .compress = false}, path, output);
  output.Commit();

  const auto movie = ReadMovieFile(path, References::kResolve);
  for (int time = 0; time < 4; ++time) {
    movie->tracks[0]->header.layer = static_cast<std::int16_t>(time);
    // The tables move towards the start of the file.
    if (time == 1) movie->tracks[0]->edits.Delete({0}, {6'000'000}, track.TimeClock());
    const FileSource file(path, O_RDWR);
    UpdateFile(*movie, path, file, true);
    movie->Renew(StateOf(path).value());
    const auto saved = ReadMovieFile(path, References::kResolve);
    ASSERT_EQ(saved->tracks[0]->header.layer, time);
    std::uint32_t sample = 0;
    ForEachEncodedSize(saved->tracks[0]->media->samples, [&](ByteSpan sizes) {
      Rows<SampleSize>(sizes).ForEach(
          [&](const SampleSize& row) { ASSERT_EQ(row.size, 1 + sample++ % 97); });
    });
    ASSERT_EQ(sample, kSamples);
  }
}

}  // namespace
}  // namespace toolbox
