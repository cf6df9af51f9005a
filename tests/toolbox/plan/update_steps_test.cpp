// Where a save puts the new movie, and with which steps. The CutShort tests try what is left if any
// of them fails.
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

UpdateSteps StepsFor(const ByteSource& source, std::uint64_t unit = 1) {
  FilePlan plan;
  plan.movie = std::make_unique<MovieRecord>();
  Header header(100);
  return StepsForUpdate(plan, ReadOutline(source), header, [unit] { return unit; });
}

const Bytes kMovie = Atom("moov", MovieHeaderAtom());  // 116 bytes
const Bytes kMedia = Atom("mdat", Zeros(12));

TEST(UpdateSteps, MakeANewFileWhereNothingCanBeAppended) {
  const Bytes type = Atom("ftyp", Text("qt  "), Zeros(4)), large = Atom("mdat", Zeros(1 << 20));
  const auto after = [&](const Bytes& media) { return Join(type, kMovie, media, Text("junk")); };
  const Bytes small = after(kMedia), file = after(large);
  const MemorySource source(small), largeSource(file);
  const UpdateSteps steps = StepsFor(source);
  EXPECT_TRUE(steps.inPlace.empty());
  EXPECT_EQ(
      steps.newFile,
      (std::vector<Stage>{{{CopyBytes{0, &source, 0, 16}, WritePart{16, 100, kMovieHeader, 116},
                            CopyBytes{116, &source, 132, 24}},
                           {}},
                          NamingStage(140)}));
  // If blocks can be shared, the media data goes to the same place in a block: again to byte 132.
  const auto shared = StepsFor(largeSource, 4096).newFile.at(0).steps;
  EXPECT_EQ(shared.at(2), Step(WriteBytes{116, Atom("free", Zeros(8))}));
  EXPECT_EQ(std::get<CopyBytes>(shared.at(3)).at, 132U);
  EXPECT_EQ(StepsFor(largeSource, 16).newFile.at(0).steps.size(), 3U);
}

class UpdateOfALongFile : public InFolder {};

TEST_F(UpdateOfALongFile, GivesMediaToTheEndASizeOf64Bits) {
  const auto path = Store("in.mov", Join(kMovie, Atom("wide"), U32(0), Text("mdat")));
  boost::filesystem::resize_file(path, 5ULL << 30);
  const FileSource source(path);
  EXPECT_EQ(StepsFor(source).inPlace.at(0).steps.at(0),
            Step(WriteBytes{116, Join(U32(1), Text("mdat"), U64((5ULL << 30) - 116))}));
}

TEST_F(UpdateOfALongFile, GivesGpsDataNewOffsetsOrLeavesItOutBeyond4GiB) {
  const Bytes start = Join(kMovie, WideAtom("mdat"));
  constexpr std::uint64_t kEnd = (4ULL << 30) + 1000;
  const auto path = Store("in.mov", start);
  boost::filesystem::resize_file(path, kEnd);
  const FileSource source(path);
  // The last 1000 bytes are no atom, so a new file is necessary. Its movie is 884 bytes larger.
  FileOutline outline = ReadOutline(MemorySource(start));
  outline.source = &source;
  outline.size = kEnd;
  outline.end = outline.atoms.back().at + (outline.atoms.back().size = kEnd - 1000 - 116);
  const auto atom = [](std::uint32_t at) {
    return Atom("gps ", U64(0x0000010100000002), Zeros(8), U32(at), U32(16));
  };
  for (const std::uint32_t offset : {200U, UINT32_MAX - 884, UINT32_MAX - 883}) {
    FilePlan plan;
    plan.movie = std::make_unique<MovieRecord>();
    plan.movie->siblings = {{FourCC{"gps "}, atom(offset)}, {FourCC{"????"}, Atom("????")}};
    Header header(1000);
    StepsForUpdate(plan, outline, header, [] { return 1; });
    const bool fits = offset <= UINT32_MAX - 884;
    ASSERT_EQ(plan.movie->siblings.size(), fits ? 2U : 1U);
    EXPECT_EQ(plan.movie->siblings[0].bytes, fits ? atom(offset + 884) : Atom("????"));
  }
}

}  // namespace
}  // namespace toolbox
