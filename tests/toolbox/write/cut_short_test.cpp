// Files that are written on a disk that fails, or by a process that is killed, at any operation.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/memory_disk.h"
#include "tests/toolbox/movies.h"
#include "toolbox/disk/perform.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/flatten.h"
#include "toolbox/plan/reference.h"
#include "toolbox/plan/update_steps.h"
#include "toolbox/read/file_outline.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/write/write_file.h"
#include "toolbox/write/write_movie.h"
#include "toolbox/write/write_parts.h"

namespace toolbox {
namespace {

const Bytes kMedia = Text("the bytes of the six samples, ten for each of them, in all..");

// A movie of one track. Its samples start at byte `media` of the file.
Bytes MovieAtom(std::size_t media) {
  const auto at = static_cast<std::uint32_t>(media);
  return Atom("moov", MovieHeaderAtom(),
              TrackAtom({.duration = 600, .table = PlainTable(6, 100, 10, at)}));
}

enum class Which { kOld, kNew, kBroken };

class CutShort : public InFolder {
 protected:
  // Writes a new movie to a disk. The first track of the new movie has layer 7.
  using Writer = std::function<void(MovieRecord& movie, MemoryDisk& disk)>;

  // What a reader finds in the file. A movie counts only with all of its samples.
  Which Found(const Bytes& file) const try {
    const auto movie = ReadMovieFile(Store("found.mov", file), References::kResolve);
    const SampleTable& table = movie->tracks.at(0)->media->samples;
    Bytes samples;
    ForEachPiece(table, {0, table.Count()}, [&](const SamplePiece& piece) {
      const auto from = file.begin() + static_cast<std::ptrdiff_t>(piece.offset);
      samples.insert(samples.end(), from, from + static_cast<std::ptrdiff_t>(piece.size));
    });
    if (samples != kMedia) return Which::kBroken;
    return movie->tracks[0]->header.layer == 7 ? Which::kNew : Which::kOld;
  } catch (...) {
    return Which::kBroken;
  }

  // Kills the writer, and fails the disk, at every operation.
  void Check(const std::string& name, const Bytes& old, const Writer& writer,
             bool isNew = false) const {
    SCOPED_TRACE(name);
    const auto write = [&](MemoryDisk& disk) {
      const auto movie = ReadMovieFile(Store("in.mov", old), References::kResolve);
      movie->tracks[0]->header.layer = 7;
      writer(*movie, disk);
    };
    const auto expectWhole = [&](const MemoryDisk& disk) {
      EXPECT_NE(Found(disk.Seen()), Which::kBroken);
      for (const Bytes& left : disk.AfterPowerCut()) EXPECT_NE(Found(left), Which::kBroken);
    };
    MemoryDisk whole(old, isNew);
    write(whole);
    ASSERT_EQ(Found(old), Which::kOld);
    ASSERT_EQ(Found(whole.Seen()), Which::kNew);
    expectWhole(whole);
    ASSERT_GT(whole.Operations(), 2);
    for (int i = 0; i < whole.Operations(); ++i) {
      SCOPED_TRACE("operation " + std::to_string(i));
      MemoryDisk killed(old, isNew), failed(old, isNew);
      killed.BreakAt(i, MemoryDisk::Fault::kKill);
      EXPECT_THROW(write(killed), MemoryDisk::Killed);
      expectWhole(killed);
      failed.BreakAt(i, MemoryDisk::Fault::kFail);
      EXPECT_EQ(CodeOf([&] { write(failed); }), dskFulErr);
      const Which found = Found(failed.Seen());
      EXPECT_NE(found, Which::kBroken);
      EXPECT_TRUE(found == Which::kNew || failed.Seen().size() <= old.size());
    }
  }

  // Saves a movie into its file.
  static void Save(MovieRecord& movie, MemoryDisk& disk) {
    const FileSource source(movie.file->path);
    FilePlan plan = PlanUpdate(movie);
    MovieWriter header(plan, movie.file->path);
    const auto steps = StepsForUpdate(plan, ReadOutline(source), header, [] { return 1; });
    PartsWriter(plan, header).Perform(steps.newFile.empty() ? steps.inPlace : steps.newFile, disk);
  }
};

TEST_F(CutShort, ASaveInPlaceLeavesTheOldMovieOrTheNewOne) {
  const Bytes type = Atom("ftyp", Text("qt  "), Zeros(4)), media = Atom("mdat", kMedia);
  const Bytes first = Join(type, MovieAtom(type.size() + MovieAtom(0).size() + 8));
  const Bytes atEnd = Join(type, media, MovieAtom(type.size() + 8));
  const Bytes room = Atom("free", Zeros(2000));
  Check("movie at the end", atEnd, Save);
  Check("movie before the media", Join(first, media), Save);
  Check("media from memory", atEnd, [](MovieRecord& movie, MemoryDisk& disk) {
    AddPlainTrack(movie, FourCC{"text"}, 600, PlainRows(6, 100, 10),
                  InMemory{std::make_shared<Bytes>(60)});
    Save(movie, disk);
  });
  Check("room before it", Join(room, media, MovieAtom(room.size() + 8)), Save);
  Check("room after it", Join(atEnd, room), Save);
  Check("an unfinished save", Join(atEnd, MovieAtom(0), Atom("uuid", Zeros(16))), Save);
  Check("an unfinished atom", Join(atEnd, U32(5000), Text("moov"), Zeros(100)), Save);
  // Its head starts 4 bytes before the end of a sector, so a write to it can tear.
  const Bytes padding = Atom("uuid", Zeros(1024 - 12 - atEnd.size()));
  Check("room across two sectors", Join(atEnd, padding, room), Save);
  Check("media to the end", Join(first, U32(0), Text("mdat"), kMedia), Save);
}

TEST_F(CutShort, ANewFileIsThereWholeOrNotAtAll) {
  const Bytes old = Join(Atom("mdat", kMedia), MovieAtom(8));
  Check("trailing bytes", Join(old, Text("not an atom")), Save, true);
  for (const FileLayout layout :
       {FileLayout{false, false}, {false, true}, {true, false}, {true, true}}) {
    Check(
        "self-contained", old,
        [&](MovieRecord& movie, MemoryDisk& disk) {
          WriteFile(PlanFlattened(movie, {}), layout, folder_ / "out.mov", disk);
          Perform({NamingStage(disk.Size())}, disk, nullptr);
        },
        true);
  }
}

}  // namespace
}  // namespace toolbox
