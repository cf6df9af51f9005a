// Files on the real file system: those that are written, and those that are read.
#include "toolbox/disk/output_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <future>

#include "tests/toolbox/bytes.h"
#include "toolbox/disk/piece_writer.h"
#include "toolbox/disk/system_error.h"
#include "toolbox/references/sources.h"

namespace toolbox {
namespace {

void Append(OutputFile& file, const Bytes& bytes) { file.Write(file.Position(), bytes); }
void Append(OutputFile& file, const ByteSource& source, std::uint64_t from, std::uint64_t length) {
  file.Copy(file.Position(), source, from, length);
}

class Output : public InFolder {
 protected:
  OSErr CodeOfOpening() const {
    return CodeOf([&] { OutputFile{target_}; });
  }
  std::ptrdiff_t FilesInFolder() const {
    return std::distance(fs::directory_iterator(folder_), fs::directory_iterator());
  }

  fs::path target_ = folder_ / "out.mov";
};

TEST_F(Output, ReplacesOnlyAtCommitAndThenWhole) {
  Store("out.mov", Text("old"));
  {
    OutputFile given(target_);
    Append(given, Text("given up"));
  }
  EXPECT_EQ(FilesInFolder(), 1);
  EXPECT_EQ(Stored(target_), Text("old"));

  OutputFile file(target_);
  file.Reserve(5 << 20);  // what is reserved in vain is cut off
  Append(file, Text("new "));
  file.Reserve(1 << 10);
  Append(file, Text("one"));
  EXPECT_EQ(file.Position(), 7u);
  file.Commit();
  EXPECT_EQ(Stored(target_), Text("new one"));
  EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(Output, KeepsModeOwnerAndExtendedAttributesOfTheOldFile) {
  const mode_t before = umask(027);
  OutputFile(target_).Commit();
  umask(before);
  EXPECT_EQ(StatusOf(target_).value().st_mode & 07777, 0640u) << "as usual for a new file";
  if (geteuid() == 0) ASSERT_EQ(chown(target_.c_str(), 65534, 65534), 0);
  ASSERT_EQ(chmod(target_.c_str(), 06705), 0);
  const bool hasNote = setxattr(target_.c_str(), "user.note", "mine", 4, 0) == 0;
  const struct stat old = StatusOf(target_).value();
  OutputFile(target_).Commit();
  const struct stat now = StatusOf(target_).value();
  EXPECT_NE(now.st_ino, old.st_ino);
  EXPECT_EQ(std::tie(now.st_uid, now.st_gid, now.st_mode),
            std::tie(old.st_uid, old.st_gid, old.st_mode));
  char note[5] = {};
  EXPECT_EQ(getxattr(target_.c_str(), "user.note", note, sizeof note), hasNote ? 4 : -1);
  EXPECT_STREQ(note, hasNote ? "mine" : "");
}

TEST_F(Output, FollowsSymbolicLinksAlsoToWhereNothingIsYet) {
  fs::create_directory(folder_ / "sub");
  fs::create_symlink("sub/link", target_);
  fs::create_symlink("../real.mov", folder_ / "sub/link");
  for (const char* content : {"first", "second"}) {
    OutputFile file(target_);
    Append(file, Text(content));
    file.Commit();
    EXPECT_TRUE(fs::is_symlink(target_));
    EXPECT_EQ(Stored(folder_ / "real.mov"), Text(content));
  }
  fs::remove(folder_ / "sub/link");
  fs::create_symlink("../out.mov", folder_ / "sub/link");
  EXPECT_EQ(CodeOfOpening(), ioErr);
}

TEST_F(Output, TakesTheLongestNameThereIsAndNoLonger) {
  std::string name;
  while (name.size() < 255) name += "\u20ac";
  target_ = folder_ / name;
  for (int i = 0; i < 2; ++i) OutputFile(target_).Commit();  // a new file, then a replaced one
  EXPECT_EQ(FilesInFolder(), 1);
  target_ += "z";
  EXPECT_EQ(CodeOf([&] { OutputFile(target_).Commit(); }), bdNamErr);
}

TEST_F(Output, NeverReplacesAFileThatAppearedMeanwhileOrIsInUse) {
  OutputFile refusing(target_, Existing::kRefuse), replacing(target_);
  Store("out.mov", Text("somebody else's"));
  EXPECT_EQ(CodeOf([&] { refusing.Commit(); }), dupFNErr);
  EXPECT_EQ(CodeOf([&] { replacing.Commit(); }), fBsyErr);
  {
    OutputFile late(target_);
    EXPECT_EQ(CodeOfOpening(), fBsyErr);  // the first one has locked it
    fs::rename(target_, folder_ / "moved.mov");
    Store("out.mov", Text("another one"));
    EXPECT_EQ(CodeOf([&] { late.Commit(); }), fBsyErr);
    EXPECT_EQ(Stored(target_), Text("another one"));
  }
  std::optional<Descriptor> other(std::in_place, target_, O_RDONLY);
  ASSERT_EQ(flock(other->Number(), LOCK_SH), 0);
  EXPECT_EQ(CodeOfOpening(), fBsyErr);
  flock(other->Number(), LOCK_UN);
  const Descriptor probe(folder_ / "moved.mov", O_RDONLY);
  const bool hasLeases = fcntl(probe.Number(), F_SETLEASE, F_WRLCK) == 0;
  EXPECT_EQ(CodeOfOpening(), hasLeases ? fBsyErr : noErr) << "somebody reads it";
  other.reset();
  EXPECT_EQ(CodeOfOpening(), noErr);
}

TEST_F(Output, WritesDevicesAndPipesDirectly) {
  OutputFile full("/dev/full");
  EXPECT_EQ(CodeOf([&] { Append(full, Text("no room")); }), dskFulErr);
  const Bytes content = Noise(300'000);
  ASSERT_EQ(mkfifo(target_.c_str(), 0600), 0);
  auto received = std::async(std::launch::async, [&] { return Stored(target_); });
  OutputFile pipe(target_);
  pipe.Reserve(content.size());
  Append(pipe, FileSource(Store("in", content)), 0, content.size());
  pipe.Commit();
  EXPECT_EQ(received.get(), content);
  EXPECT_EQ(FilesInFolder(), 2);
}

TEST_F(Output, HasSmallAndLargePiecesOfManySourcesInOrder) {
  // The second source is on another file system. The kernel may be unable to copy from it.
  const Descriptor foreign(fs::path("/proc/self/fd/" + std::to_string(memfd_create("f", 0))),
                           O_RDWR);
  Bytes contents[] = {Noise(3'000'000, 1), Noise(700'000, 2), Noise(400'000, 3)};
  WriteFully(foreign.Number(), 0, contents[1]);
  std::optional<FileSource> first(Store("a", contents[0]));
  const FileSource second("/proc/self/fd/" + std::to_string(foreign.Number()));
  const MemorySource third(contents[2]);
  const ByteSource* sources[] = {&*first, &second, &third};
  constexpr std::size_t kLengths[] = {0, 1, 150, 8000, 65535, 65536, 65537, 262'144, 300'000};

  for (unsigned seed = 0; seed < 4; ++seed) {
    Random random(seed);
    Bytes expected;
    OutputFile file(target_);
    PieceWriter writer(file);
    if (seed % 2 == 0) file.Reserve(20 << 20);
    std::size_t near = 0;  // many pieces are close together, which is what the blocks are for
    for (int piece = 0; piece < 2000; ++piece) {
      const std::size_t which = random.Below(3);
      const std::size_t length = kLengths[random.Below(50) == 0 ? random.Below(9) : 2];
      if (random.Below(100) == 0) near = random.Below(2'900'000);
      const std::size_t at = (near + random.Below(100'000)) % (contents[which].size() - length + 1);
      writer.Copy(expected.size(), *sources[which], at, length);
      const auto from = contents[which].begin() + static_cast<std::ptrdiff_t>(at);
      expected.insert(expected.end(), from, from + static_cast<std::ptrdiff_t>(length));
      if (piece % 500 == 0) writer.Flush();
      if (piece == 1000) {  // another source is at the address of an older one
        writer.ForgetSources();
        std::ranges::reverse(contents[0]);
        first.emplace(Store("a" + std::to_string(seed), contents[0]));
      }
    }
    writer.Flush();
    file.Commit();
    ASSERT_TRUE(Stored(target_) == expected) << "seed " << seed;
  }
}

TEST_F(Output, RefusesASourceThatEndsTooSoonAndIsNeverCommittedAfter) {
  Store("out.mov", Text("old"));
  for (const std::uint64_t pieceSize : {150u, 50'000u, 200'000u}) {
    const FileSource source(Store("in", Noise(1'000'000, 1)));
    fs::resize_file(folder_ / "in", 700'000);
    OutputFile file(target_);
    EXPECT_EQ(CodeOf([&] {
                for (std::uint64_t at = 0; at < 1'000'000; at += pieceSize) {
                  Append(file, source, at, std::min(pieceSize, 1'000'000 - at));
                }
              }),
              eofErr);
    EXPECT_EQ(CodeOf([&] { Append(file, Text("more")); }), ioErr);
    EXPECT_EQ(CodeOf([&] { file.Commit(); }), ioErr);
  }
  EXPECT_EQ(Stored(target_), Text("old"));
  EXPECT_EQ(FilesInFolder(), 2);
}

class Source : public InFolder {};

TEST_F(Source, IsReadWithinItsBoundsOnly) {
  const Bytes content = Text("0123456789");
  const FileSource file(Store("file", content));
  const MemorySource memory(content);
  for (const ByteSource* source :
       {static_cast<const ByteSource*>(&file), static_cast<const ByteSource*>(&memory)}) {
    EXPECT_EQ(source->Size(), 10u);
    Bytes three(3);
    source->Read(7, three);
    EXPECT_EQ(three, Text("789"));
    for (const std::uint64_t at : {std::uint64_t{8}, std::uint64_t{INT64_MAX}, UINT64_MAX - 1}) {
      EXPECT_EQ(CodeOf([&] { source->Read(at, three); }), eofErr) << at;
    }
  }
}

}  // namespace
}  // namespace toolbox
