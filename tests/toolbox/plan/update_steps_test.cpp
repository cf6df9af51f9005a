#include "toolbox/plan/update_steps.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
#include "toolbox/movie/movie.h"
#include "toolbox/read/file_outline.h"

namespace toolbox {
namespace {

// A header that always has that many bytes.
class Header final : public PlannedHeader {
 public:
  explicit Header(std::uint64_t size) : size_(size) {}
  std::uint64_t SizeAt(std::uint64_t) override { return size_; }
  Bytes Encode(std::uint64_t) override { return Atom("moov", Zeros(size_ - 8)); }
  Bytes Compress(std::uint64_t dataStart) override { return Encode(dataStart); }

 private:
  std::uint64_t size_;
};

UpdateSteps StepsFor(const MemorySource& source, std::uint64_t dataSize = 0,
                     std::uint64_t unit = 1) {
  FilePlan plan;
  plan.movie = std::make_unique<MovieRecord>();
  plan.dataSize = dataSize;
  Header header(100);
  return StepsForUpdate(plan, ReadOutline(source), header, [unit] { return unit; });
}

const Bytes kMovie = Atom("moov", MovieHeaderAtom());  // 116 bytes
const Bytes kMedia = Atom("mdat", Zeros(12));
WriteBytes Freed(std::uint64_t atom) { return {atom + 4, Text("free")}; }
const WriteBytes kOldAgain{4, Text("moov")};
const Stage kSynced{{Sync{}}, {}};

TEST(UpdateSteps, AppendTheMovieAndThenFreeTheOldOne) {
  const Bytes file = Join(kMovie, kMedia);
  const UpdateSteps steps = StepsFor(MemorySource(file), 30);
  const std::uint64_t end = file.size(), data = end + 16;
  EXPECT_EQ(steps.inPlace,
            (std::vector<Stage>{{{WriteBytes{end, Join(Atom("wide"), U32(38), Text("mdat"))},
                                  WritePart{data, 30, kCopiedMedia, 0},
                                  WritePart{data + 30, 100, kMovieHeader, data}, Sync{}},
                                 {CutOff{end}}},
                                {{Freed(0)}, {kOldAgain, CutOff{end}}},
                                kSynced}));
  EXPECT_TRUE(steps.newFile.empty());
}

TEST(UpdateSteps, FreeLeftoversFirstAndPutTheMovieThere) {
  const Bytes file = Join(kMovie, kMedia, kMovie);
  const std::uint64_t room = kMovie.size() + kMedia.size();
  EXPECT_EQ(StepsFor(MemorySource(file)).inPlace,
            (std::vector<Stage>{
                {{Freed(room), Sync{}}, {}},
                {{WriteBytes{room + 8, Zeros(92)}, WriteBytes{room + 100, Atom("free", Zeros(8))},
                  Sync{}, WriteBytes{room, Join(U32(100), Text("moov"))}, Sync{}},
                 {Freed(room)}},
                {{Freed(0)}, {kOldAgain, Freed(room)}},
                kSynced}));
}

TEST(UpdateSteps, GiveTheLastAtomASizeBeforeAnythingFollowsIt) {
  const Bytes file = Join(kMovie, U32(0), Text("mdat"), Zeros(12));
  const auto stages = StepsFor(MemorySource(file)).inPlace;
  ASSERT_EQ(stages.size(), 4U);
  EXPECT_EQ(stages[0], (Stage{{WriteBytes{kMovie.size(), Join(U32(20), Text("mdat"))}}, {}}));
}

TEST(UpdateSteps, MakeANewFileWhereNothingCanBeAppended) {
  const Bytes type = Atom("ftyp", Text("qt  "), Zeros(4)), trailer = Text("junk");
  const Bytes file = Join(type, kMovie, kMedia, trailer);
  const MemorySource source(file);
  const UpdateSteps steps = StepsFor(source);
  EXPECT_TRUE(steps.inPlace.empty());
  EXPECT_EQ(
      steps.newFile,
      (std::vector<Stage>{{{CopyBytes{0, &source, 0, 16}, WritePart{16, 100, kMovieHeader, 116},
                            CopyBytes{116, &source, 132, 24}},
                           {}},
                          NamingStage(140)}));
}

TEST(UpdateSteps, PutSharedBlocksAtTheSamePlaceInABlock) {
  const Bytes type = Atom("ftyp", Text("qt  "), Zeros(4)), media = Atom("mdat", Zeros(1 << 20));
  const Bytes file = Join(type, kMovie, media, Text("junk"));
  const MemorySource source(file);
  // The media data is at byte 132, and the new movie ends at byte 116.
  const auto steps = StepsFor(source, 0, 4096).newFile.at(0).steps;
  EXPECT_EQ(steps.at(2), Step(WriteBytes{116, Atom("free", Zeros(8))}));
  EXPECT_EQ(std::get<CopyBytes>(steps.at(3)).at, 132U);
  EXPECT_EQ(StepsFor(source, 0, 16).newFile.at(0).steps.size(), 3U);
}

class GpsDataInANewFile : public InFolder {};

TEST_F(GpsDataInANewFile, HasNewOffsetsOrIsLeftOutBeyond4GiB) {
  const auto path = Store("in.mov", Join(kMovie, WideAtom("mdat")));
  constexpr std::uint64_t kEnd = (4ULL << 30) + 1000;
  boost::filesystem::resize_file(path, kEnd);
  const FileSource source(path);
  // The last 1000 bytes are no atom, so a new file is necessary. Its movie is 884 bytes larger.
  FileOutline outline = ReadOutline(MemorySource(Join(kMovie, WideAtom("mdat"))));
  outline.source = &source;
  outline.size = kEnd;
  outline.end = outline.atoms.back().at + (outline.atoms.back().size = kEnd - 1000 - 116);
  const auto moved = [&](std::uint32_t offset) {
    const Bytes unused = Zeros(8), head = U64(0x0000010100000002);
    FilePlan plan;
    plan.movie = std::make_unique<MovieRecord>();
    const auto atom = [&](std::uint32_t at) {
      return Atom("gps ", head, unused, U32(at), U32(16));
    };
    plan.movie->siblings = {{FourCC{"gps "}, atom(offset)}, {FourCC{"????"}, Atom("????")}};
    Header header(1000);
    StepsForUpdate(plan, outline, header, [] { return 1; });
    const Sibling* found = FindSibling(plan.movie->siblings, FourCC{"gps "});
    EXPECT_NE(FindSibling(plan.movie->siblings, FourCC{"????"}), nullptr);
    if (found == nullptr) return std::string("left out");
    return std::string(found->bytes == atom(offset + 884) ? "moved" : "wrong");
  };
  EXPECT_EQ(moved(200), "moved");
  EXPECT_EQ(moved(UINT32_MAX - 884), "moved");
  EXPECT_EQ(moved(UINT32_MAX - 883), "left out");
}

}  // namespace
}  // namespace toolbox
