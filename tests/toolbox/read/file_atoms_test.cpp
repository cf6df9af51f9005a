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
    return Behind(*Opened("in.mov", front, tail));
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
  const Bytes own = Made("uuid{ '0123456789abcdef' 'kept' }");
  const Bytes places = Made("free{ *99 'N 48.2' } skip{ 'x' }");
  EXPECT_EQ(Copied(own, places), Join(places, own));
  for (const char* room :
       {"free{ }", "free{ *5000 }", "skip{ *1 }", "*40", "*3", "free{ mvhd{ *100 } }",
        "free{ cmov{ } }", "skip{ 'hdlr' *4 'mdirappl' }", "wide{ }", "mdat{ 'media' }",
        "pnot{ *12 }", "moof{ }", "sidx{ *4 }", "4000 'mdat' 'cut off'", "40 'moof'"}) {
    EXPECT_EQ(Copied(Made(room)), Bytes()) << room;
  }
}

TEST_F(FileAtoms, EndBeforeMediaThatNoAtomContains) {
  const Bytes media = Join(U32(7), Text(std::string(80, 'm')));
  const auto before = static_cast<std::uint32_t>(
      Atom("moov", MovieHeaderAtom(), TrackAtom({.table = PlainTable(6, 100, 10, 0)})).size());
  EXPECT_EQ(Behind(*Opened("in.mov", {}, media, before - 60)), media);
  EXPECT_EQ(Behind(*Opened("in.mov", {}, media, before - 59)), Bytes());
}

TEST_F(FileAtoms, EndWithATrailerUntilMediaOfAnotherMovieIsAdded) {
  const Bytes own = Made("uuid{ '0123456789abcdef' }"), all = Join(own, Made("7 'a trailer'"));
  const auto movie = Opened("in.mov", {}, all), other = Opened("other.mov", {}, all);
  EXPECT_EQ(Behind(*movie), all);
  movie->tracks[0]->edits.Delete({0}, {300}, movie->tracks[0]->TimeClock());
  EXPECT_EQ(Behind(*movie), all) << "it is still that movie";
  const auto second = movie->Clone(), third = movie->Clone();
  InsertMovieSegment(*other, *movie, {}, {600}, {300});
  EXPECT_EQ(Behind(*movie), own);
  InsertTrackSegment(*other->tracks[0], *second->tracks[0], {}, {600}, {300});
  EXPECT_EQ(Behind(*second), own);
  std::ignore = third->tracks[0]->media->Append(other->tracks[0]->media->Copy(0, 6), 0, 6);
  EXPECT_EQ(Behind(*third), own);
  AddMovieSelection(*movie, *other);
  EXPECT_EQ(Behind(*other), own);
}

// A 'meta' with items: 1 has two pieces, 2 is the second of them, 3 is in the atom itself.
std::string Items(int version, int at) {
  const std::string width = version == 2 ? "/4 " : "/2 ", method = version == 0 ? "" : "0/2 ";
  return "meta{ " + std::string(version == 1 ? "" : "0 ") + "hdlr{ *24 } iloc{ " +
         std::to_string(version) + "/1 0/3 0x4440/2 " + (version == 0 ? "2" : "3") + width +  //
         "1" + width + method + "0/2 " + std::to_string(at) + " 2/2  0 3  5 4  " +  //
         "2" + width + method + "0/2 0 1/2 " + std::to_string(at + 5) + " 4 " +
         (version == 0 ? "" : "3" + width + "1/2 0/2 0 1/2  2 1 ") + "} idat{ 'inside' } } ";
}

TEST_F(FileAtoms, FindItemsAtTheirNewPlaces) {
  for (const int version : {0, 1, 2}) {
    const Bytes copied = Copied({}, Made("mdat{ '....one..four....' } " + Items(version, 12)));
    ASSERT_EQ(Bytes(copied.begin(), copied.begin() + 23), Made("wide{ } mdat{ 'onefour' }"));
    const std::uint64_t at = Stored(folder_ / "out.mov").size() - copied.size() + 16;
    EXPECT_TRUE(Contains(copied, Join(U64(at), U64(3), U64(at + 3), U64(4))));
    EXPECT_TRUE(Contains(copied, Made("idat{ 'inside' }")));
    EXPECT_EQ(Contains(copied, Made("2/8 1/8 idat{ 'inside' }")), version != 0);
  }
  EXPECT_EQ(Copied(Made("meta{ 0 hdlr{ *24 } }")), Made("meta{ 0 hdlr{ *24 } }"));
}

TEST_F(FileAtoms, RefuseItemsThatAreNotThereOrWouldMove) {
  EXPECT_EQ(CodeOf([&] { Copied(Made(Items(0, 100000))); }), eofErr);
  EXPECT_EQ(CodeOf([&] { Copied(Made("meta{ 0 iloc{ 0x03000000 *20 } }")); }), featureUnsupported);
  const auto movie = Opened("in.mov", {}, Made(Items(0, 0) + "'trailer'"));
  const FileSource file(folder_ / "in.mov", O_RDWR);
  EXPECT_EQ(CodeOf([&] { UpdateFile(*movie, folder_ / "in.mov", file, true); }),
            featureUnsupported);
}

}  // namespace
}  // namespace toolbox
