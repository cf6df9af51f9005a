#include "toolbox/plan/update_steps.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"
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

UpdateSteps StepsFor(const MemorySource& source, std::uint64_t dataSize = 0) {
  FilePlan plan;
  plan.dataSize = dataSize;
  Header header(100);
  return StepsForUpdate(plan, ReadOutline(source), header);
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
                 {}},
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

}  // namespace
}  // namespace toolbox
