// Movie files that change, or that something still needs, while they are written.
#include "toolbox/write/storage.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"
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
  const auto input = StoreMovie("in.mov", 60);
  const auto changed = [&](const std::function<void(MovieRecord&)>& write) {
    StoreMovie("in.mov", 60);
    const auto movie = Opened(input);
    StoreMovie("in.mov", 66);
    return CodeOf([&] { write(*movie); });
  };
  const auto output = Store("out.mov", Text("old"));
  EXPECT_EQ(changed([&](MovieRecord& movie) {
              WriteSelfContained(movie, {}, output, Existing::kReplace);
            }),
            fBsyErr);
  EXPECT_EQ(changed([&](MovieRecord& movie) {
              StorageRecord* storage = CreateStorage(output, Existing::kReplace);
              AddToStorage(movie, storage);
              CloseStorage(storage);
            }),
            fBsyErr);
  EXPECT_EQ(changed([&](MovieRecord& movie) {
              StorageRecord* storage = OpenStorage(input, StorageAccess::kUpdate);
              const OSErr code = CodeOf([&] { UpdateStorage(movie, storage); });
              CloseStorage(storage);
              if (code != noErr) throw Refused{code};
            }),
            fBsyErr);
  EXPECT_EQ(Stored(output), Text("old"));
}

TEST_F(Storage, AFileThatChangesWhileItIsCopiedIsNoticedAtTheEnd) {
  const auto input = StoreMovie("in.mov", 12 << 20);
  const auto movie = Opened(input);
  bool isCopying = false;
  movie->progress = [&](std::uint64_t, std::uint64_t) {
    isCopying = true;
    boost::filesystem::last_write_time(input, 1'000'000'000);
  };
  const auto output = Store("out.mov", Text("old"));
  EXPECT_EQ(CodeOf([&] { WriteSelfContained(*movie, {}, output, Existing::kReplace); }), fBsyErr);
  EXPECT_TRUE(isCopying);
  EXPECT_EQ(Stored(output), Text("old"));
}

TEST_F(Storage, CanBeUpdatedAgainAndAgain) {
  const auto path = StoreMovie("in.mov", 60);
  const auto movie = Opened(path);
  StorageRecord* storage = OpenStorage(path, StorageAccess::kUpdate);
  for (std::int16_t layer = 3; layer < 5; ++layer) {
    movie->tracks[0]->header.layer = layer;
    UpdateStorage(*movie, storage);
    EXPECT_EQ(Opened(path)->tracks[0]->header.layer, layer);
  }
  CloseStorage(storage);
  // The movie knows the state of the file that it has changed itself.
  WriteSelfContained(*movie, {}, folder_ / "out.mov", Existing::kReplace);
}

}  // namespace
}  // namespace toolbox
