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

using Fault = MemoryDisk::Fault;

const Bytes kMedia = Text("the bytes of the six samples, ten for each of them, in all..");

// A movie of one track. Its samples start at byte `media` of the file.
Bytes MovieAtom(std::uint32_t media) {
  return Atom("moov", MovieHeaderAtom(),
              TrackAtom({.duration = 600, .table = PlainTable(6, 100, 10, media)}));
}

enum class Which { kOld, kNew, kBroken };

class CutShort : public InFolder {
 protected:
  // A function that writes a new movie to a disk. The first track of the new movie has layer 7.
  struct Case {
    std::string name;
    Bytes old;
    std::function<void(MemoryDisk& disk)> write;
    bool isNew = false;
  };

  // What a reader finds in the file. A movie counts only with all of its samples.
  Which Found(const Bytes& file) const try {
    const auto movie = ReadMovieFile(Store("found.mov", file), References::kResolve);
    const MediaRecord& media = *movie->tracks.at(0)->media;
    Bytes samples;
    ForEachPiece(media.samples, {0, media.samples.Count()}, [&](const SamplePiece& piece) {
      const auto from = file.begin() + static_cast<std::ptrdiff_t>(piece.offset);
      samples.insert(samples.end(), from, from + static_cast<std::ptrdiff_t>(piece.size));
    });
    if (samples != kMedia) return Which::kBroken;
    return movie->tracks[0]->header.layer == 7 ? Which::kNew : Which::kOld;
  } catch (...) {
    return Which::kBroken;
  }

  // Kills the writer, and fails the disk, at every operation.
  void Check(const Case& tested) const {
    SCOPED_TRACE(tested.name);
    MemoryDisk whole(tested.old, tested.isNew);
    tested.write(whole);
    ASSERT_EQ(Found(tested.old), Which::kOld);
    ASSERT_EQ(Found(whole.Seen()), Which::kNew);
    for (const Bytes& left : whole.AfterPowerCut()) EXPECT_NE(Found(left), Which::kBroken);
    const int operations = whole.Operations();
    ASSERT_GT(operations, 2);
    for (int i = 0; i < operations; ++i) {
      SCOPED_TRACE("operation " + std::to_string(i));
      MemoryDisk killed(tested.old, tested.isNew);
      killed.BreakAt(i, Fault::kKill);
      EXPECT_THROW(tested.write(killed), MemoryDisk::Killed);
      EXPECT_NE(Found(killed.Seen()), Which::kBroken);
      for (const Bytes& left : killed.AfterPowerCut()) EXPECT_NE(Found(left), Which::kBroken);

      MemoryDisk failed(tested.old, tested.isNew);
      failed.BreakAt(i, Fault::kFail);
      EXPECT_EQ(CodeOf([&] { tested.write(failed); }), dskFulErr);
      const Which found = Found(failed.Seen());
      EXPECT_NE(found, Which::kBroken);
      if (found == Which::kOld) {
        EXPECT_LE(failed.Seen().size(), tested.old.size());
      }
    }
  }

  // Saves the movie of a file into it. With `hasMemory` it also has a track in memory.
  Case Saving(const std::string& name, const Bytes& file, bool hasMemory = false) {
    return {name, file, [this, file, hasMemory](MemoryDisk& disk) {
              const auto path = Store("in.mov", file);
              const auto movie = ReadMovieFile(path, References::kResolve);
              movie->tracks[0]->header.layer = 7;
              if (hasMemory) {
                AddPlainTrack(*movie, FourCC{"text"}, 600, PlainRows(6, 100, 10),
                              InMemory{std::make_shared<Bytes>(60)});
              }
              FilePlan plan = PlanUpdate(*movie);
              MovieWriter header(plan, path);
              const MemorySource source(file);
              const auto steps =
                  StepsForUpdate(plan, ReadOutline(source), header, [] { return 1; });
              PartsWriter parts(plan, header);
              parts.Perform(steps.newFile.empty() ? steps.inPlace : steps.newFile, disk);
            }};
  }
};

TEST_F(CutShort, ASaveInPlaceLeavesTheOldMovieOrTheNewOne) {
  const Bytes type = Atom("ftyp", Text("qt  "), Zeros(4)), media = Atom("mdat", kMedia);
  const auto at = [](std::size_t place) { return static_cast<std::uint32_t>(place + 8); };
  const std::size_t size = MovieAtom(0).size();
  const Bytes inFront = Join(type, MovieAtom(at(type.size() + size)));
  const Bytes atEnd = Join(type, media, MovieAtom(at(type.size())));
  const Bytes room = Atom("free", Zeros(2000));
  const Bytes afterRoom = Join(room, media, MovieAtom(at(room.size())));
  Check(Saving("movie at the end", atEnd));
  Check(Saving("movie in front", Join(inFront, media)));
  Check(Saving("media from memory", atEnd, true));
  Check(Saving("room in front", afterRoom));
  Check(Saving("room after it", Join(atEnd, room)));
  Check(Saving("a save that was cut short", Join(atEnd, MovieAtom(0), Atom("uuid", Zeros(16)))));
  Check(Saving("a save that was cut short inside an atom",
               Join(atEnd, U32(5000), Text("moov"), Zeros(100))));
  // Its head starts 4 bytes before the end of a sector, so a write to it can tear.
  const Bytes padding = Atom("uuid", Zeros(1024 - 12 - atEnd.size()));
  Check(Saving("room across two sectors", Join(atEnd, padding, room)));
  Check(Saving("media to the end", Join(inFront, U32(0), Text("mdat"), kMedia)));
}

TEST_F(CutShort, ANewFileIsThereWholeOrNotAtAll) {
  const Bytes old = Join(Atom("mdat", kMedia), MovieAtom(8));
  Case trailing = Saving("trailing bytes", Join(old, Text("not an atom")));
  trailing.isNew = true;
  Check(trailing);
  for (const bool movieFirst : {false, true}) {
    for (const bool compress : {false, true}) {
      const auto write = [&](MemoryDisk& disk) {
        const auto movie = ReadMovieFile(Store("in.mov", old), References::kResolve);
        movie->tracks[0]->header.layer = 7;
        const FileLayout layout{.movieFirst = movieFirst, .compress = compress};
        WriteFile(PlanFlattened(*movie, {}), layout, folder_ / "out.mov", disk);
        Perform({NamingStage(disk.Size())}, disk, nullptr);
      };
      Check({"self-contained", old, write, true});
    }
  }
}

}  // namespace
}  // namespace toolbox
