#include "toolbox/read/file_atoms.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "tests/toolbox/bytes.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/movie/segments.h"
#include "toolbox/plan/reference.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/write/update_file.h"
#include "toolbox/write/write_file.h"

namespace toolbox {
namespace {

bool Contains(const Bytes& bytes, const Bytes& part) {
  return std::search(bytes.begin(), bytes.end(), part.begin(), part.end()) != bytes.end();
}

class FileAtoms : public InFolder {
 protected:
  // What follows the movie header in a reference movie of a file that ends with `tail`.
  Bytes Copied(const Bytes& tail, const Bytes& front = {}) {
    const auto movie = Opened("in.mov", front, tail);
    return Behind(*movie);
  }
  std::unique_ptr<MovieRecord> Opened(const std::string& name, const Bytes& front,
                                      const Bytes& tail, std::uint32_t samplesAt = 0) {
    const Bytes track = TrackAtom({.duration = 600, .table = PlainTable(6, 100, 10, samplesAt)});
    const Bytes file = Join(front, Atom("moov", MovieHeaderAtom(), track), tail);
    return ReadMovieFile(Store(name, file), References::kResolve);
  }
  Bytes Behind(const MovieRecord& movie) {
    OutputFile output(folder_ / "out.mov");
    WriteFile(PlanReference(movie), {.movieFirst = true, .compress = false}, folder_ / "out.mov",
              output);
    output.Commit();
    Bytes file = Stored(folder_ / "out.mov");
    const auto head = FromBigEndian<std::uint32_t>(file.data());
    file.erase(file.begin(), file.begin() + head);
    file.erase(file.begin(), file.begin() + FromBigEndian<std::uint32_t>(file.data()));
    return file;
  }
};

TEST_F(FileAtoms, AreKeptUnlessTheyAreRoom) {
  const Bytes own = Atom("uuid", Text("0123456789abcdef"), Text("kept"));
  const Bytes places = Join(Atom("free", Zeros(99), Text("N 48.2")), Atom("skip", Text("x")));
  EXPECT_EQ(Copied(own, places), Join(places, own));
  for (const Bytes& room :
       {Atom("free"), Atom("free", Zeros(5000)), Atom("skip", Zeros(1)), Zeros(40), Zeros(3),
        Atom("free", MovieHeaderAtom()), Atom("free", Atom("cmov")),
        Atom("skip", Text("hdlr"), Zeros(4), Text("mdirappl")), Atom("wide"),
        Atom("mdat", Text("media")), Atom("pnot", Zeros(12)), Atom("moof"), Atom("sidx", Zeros(4)),
        Join(U32(4000), Text("mdat"), Text("cut off")), Join(U32(40), Text("moof"))}) {
    EXPECT_EQ(Copied(room), Bytes()) << std::string(room.begin(), room.end());
  }
}

TEST_F(FileAtoms, EndBeforeMediaThatNoAtomContains) {
  const Bytes media = Join(U32(7), Text(std::string(80, 'm')));
  const auto before = static_cast<std::uint32_t>(
      Atom("moov", MovieHeaderAtom(), TrackAtom({.table = PlainTable(6, 100, 10, 0)})).size());
  EXPECT_EQ(Behind(*Opened("in.mov", {}, media, before - 60)), media);
  EXPECT_EQ(Behind(*Opened("in.mov", {}, media, before - 59)), Bytes());
}

TEST_F(FileAtoms, EndWithATrailer) {
  const Bytes trailer = Join(U32(7), Text("the camera's own"));
  const Bytes own = Atom("uuid", Text("0123456789abcdef"));
  const auto movie = Opened("in.mov", {}, Join(own, trailer));
  const auto other = Opened("other.mov", {}, Join(own, trailer));
  EXPECT_EQ(Behind(*movie), Join(own, trailer));
  movie->tracks[0]->edits.Delete({0}, {300}, movie->tracks[0]->TimeClock());
  EXPECT_EQ(Behind(*movie), Join(own, trailer)) << "it is still that movie";
  InsertMovieSegment(*other, *movie, {}, {600}, {300});
  EXPECT_EQ(Behind(*movie), own);
  AddMovieSelection(*movie, *other);
  EXPECT_EQ(Behind(*other), own);

  const auto again = Opened("in.mov", {}, Join(own, trailer));
  InsertTrackSegment(*other->tracks[0], *again->tracks[0], {}, {600}, {600});
  EXPECT_EQ(Behind(*again), own);
  const auto table = other->tracks[0]->media->Copy(0, 6);
  const auto third = Opened("in.mov", {}, Join(own, trailer));
  std::ignore = third->tracks[0]->media->Append(table, 0, 6);
  EXPECT_EQ(Behind(*third), own);
}

// A 'meta' with items: 1 has two pieces, 2 is the second of them, 3 is in the atom itself.
Bytes Items(std::uint32_t version, std::uint32_t at, bool isQuickTime) {
  const auto number = [&](std::uint32_t value) {
    return version == 2 ? U32(value) : U16(static_cast<std::uint16_t>(value));
  };
  const auto method = [&](std::uint16_t value) { return version == 0 ? Bytes() : U16(value); };
  Bytes items = Join(number(1), method(0), U16(0), U32(at), U16(2), U32(0), U32(3), U32(5), U32(4),
                     number(2), method(0), U16(0), U32(0), U16(1), U32(at + 5), U32(4));
  if (version != 0)
    items = Join(items, number(3), method(1), U16(0), U32(0), U16(1), U32(2), U32(1));
  return Atom("meta", isQuickTime ? Bytes() : U32(0), Atom("hdlr", Zeros(24)),
              Atom("iloc", U32(version << 24), U16(0x4440), number(version == 0 ? 2 : 3), items),
              Atom("idat", Text("inside")));
}

TEST_F(FileAtoms, FindItemsAtTheirNewPlaces) {
  const Bytes media = Atom("mdat", Text("....one..four...."));
  for (const std::uint32_t version : {0U, 1U, 2U}) {
    const Bytes copied = Copied({}, Join(media, Items(version, 12, version == 1)));
    const Bytes file = Stored(folder_ / "out.mov");
    ASSERT_EQ(Bytes(copied.begin(), copied.begin() + 23),
              Join(Atom("wide"), Atom("mdat", Text("onefour"))));
    const auto at = static_cast<std::uint32_t>(file.size() - copied.size() + 16);
    EXPECT_TRUE(Contains(copied, Join(U64(at), U64(3), U64(at + 3), U64(4))));
    EXPECT_TRUE(Contains(copied, Atom("idat", Text("inside"))));
    const Bytes third = Join(U64(2), U64(1), Atom("idat", Text("inside")));
    EXPECT_EQ(Contains(copied, third), version != 0);
  }
  EXPECT_EQ(Copied(Atom("meta", U32(0), Atom("hdlr", Zeros(24)))),
            Atom("meta", U32(0), Atom("hdlr", Zeros(24))));
}

// A new file would move the items.
TEST_F(FileAtoms, KeepItemsFromMoving) {
  const auto movie = Opened("in.mov", {}, Join(Items(0, 0, false), Text("trailer")));
  const FileSource file(folder_ / "in.mov", O_RDWR);
  EXPECT_EQ(CodeOf([&] { UpdateFile(*movie, folder_ / "in.mov", file, true); }),
            featureUnsupported);
}

TEST_F(FileAtoms, RefuseItemsThatAreNotThere) {
  EXPECT_EQ(CodeOf([&] { Copied(Items(0, 100000, false)); }), eofErr);
  const Bytes odd = Atom("meta", U32(0), Atom("iloc", U32(3 << 24), Zeros(20)));
  EXPECT_EQ(CodeOf([&] { Copied(odd); }), featureUnsupported);
}

}  // namespace
}  // namespace toolbox
