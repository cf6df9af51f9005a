#include "toolbox/disk/output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "toolbox/disk/piece_writer.h"
#include "toolbox/disk/system_error.h"
#include "toolbox/references/sources.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;

Bytes Noise(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  std::ranges::generate(bytes, [&] { return static_cast<std::uint8_t>(random()); });
  return bytes;
}

Bytes Text(const std::string& text) { return {text.begin(), text.end()}; }

void Store(const fs::path& path, const Bytes& bytes) {
  std::ofstream(path.string(), std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

Bytes Stored(const fs::path& path) {
  std::ifstream file(path.string(), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

mode_t ModeOf(const fs::path& path) { return StatusOf(path).value().st_mode & 07777; }

// The code that `body` is refused with; noErr if it is not refused.
OSErr CodeOf(const std::function<void()>& body) try {
  body();
  return noErr;
} catch (const Refused& refused) {
  return refused.code;
}

void Append(OutputFile& file, const Bytes& bytes) { file.Write(file.Position(), bytes); }
void Append(OutputFile& file, const ByteSource& source, std::uint64_t from, std::uint64_t length) {
  file.Copy(file.Position(), source, from, length);
}

// Runs `body` in a child process. Returns how that ended, as waitpid does.
int EndOfChild(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    body();
    _exit(0);
  }
  int end = 0;
  waitpid(child, &end, 0);
  return end;
}

// Like CodeOf, in a child process.
OSErr CodeInChild(const std::function<void()>& body) {
  int channel[2];
  if (pipe(channel) != 0) throw RefusedBy(errno);
  EndOfChild([&] {
    const OSErr code = CodeOf(body);
    if (write(channel[1], &code, sizeof code) != sizeof code) _exit(1);
  });
  close(channel[1]);
  OSErr code = paramErr;  // nothing here is refused with it: the child did not come so far
  if (read(channel[0], &code, sizeof code) != sizeof code) code = paramErr;
  close(channel[0]);
  return code;
}

// Root may write anywhere, so a child process becomes another user.
void DropPrivileges() {
  if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(1);
}

class Output : public testing::Test {
 protected:
  Output() {
    std::string folder = (fs::temp_directory_path() / "output_file_XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) throw RefusedBy(errno);
    folder_ = folder;
    fs::permissions(folder_, fs::perms(0777));
    target_ = folder_ / "out.mov";
  }
  ~Output() override {
    fs::permissions(folder_, fs::perms(0777));
    fs::remove_all(folder_);
  }

  OSErr CodeOfOpening(Existing existing = Existing::kReplace) const {
    return CodeOf([&] { OutputFile(target_, existing); });
  }
  std::ptrdiff_t FilesInFolder() const {
    return std::distance(fs::directory_iterator(folder_), fs::directory_iterator());
  }

  fs::path folder_, target_;
};

TEST_F(Output, ReplacesOnlyAtCommitAndThenWhole) {
  Store(target_, Text("old"));
  {
    OutputFile given(target_);
    Append(given, Text("given up"));
    EXPECT_EQ(Stored(target_), Text("old"));
  }
  EXPECT_EQ(FilesInFolder(), 1);
  EXPECT_EQ(Stored(target_), Text("old"));

  OutputFile file(target_);
  Append(file, Text("new "));
  Append(file, Text("one"));
  EXPECT_EQ(file.Position(), 7u);
  file.Commit();
  EXPECT_EQ(Stored(target_), Text("new one"));
  EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(Output, KeepsTheModeOfTheOldFileAndGivesNewOnesTheUsual) {
  const mode_t before = umask(027);
  OutputFile(target_).Commit();
  EXPECT_EQ(ModeOf(target_), 0640u);
  fs::permissions(target_, fs::perms(0606));
  OutputFile(target_).Commit();
  EXPECT_EQ(ModeOf(target_), 0606u);
  umask(before);
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
    EXPECT_EQ(StateOf(target_), StateOf(folder_ / "real.mov"));
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
  EXPECT_TRUE(fs::exists(target_));
  EXPECT_EQ(FilesInFolder(), 1);
  target_ += "z";
  EXPECT_EQ(CodeOf([&] { OutputFile(target_).Commit(); }), bdNamErr);
}

TEST_F(Output, SaysWhyItCannotStandThere) {
  EXPECT_EQ(CodeOf([&] { OutputFile(folder_ / "none" / "out.mov"); }), dirNFErr);
  EXPECT_EQ(CodeOf([&] { OutputFile{folder_}; }), notAFileErr);
  EXPECT_EQ(CodeOfOpening(Existing::kRefuse), noErr);
  Store(target_, Text("old"));
  EXPECT_EQ(CodeOf([&] { OutputFile(target_ / "out.mov"); }), dirNFErr);
  EXPECT_EQ(CodeOfOpening(Existing::kRefuse), dupFNErr);
  EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(Output, NeverReplacesAFileThatAppearedMeanwhile) {
  OutputFile refusing(target_, Existing::kRefuse), replacing(target_);
  Store(target_, Text("somebody else's"));
  EXPECT_EQ(CodeOf([&] { refusing.Commit(); }), dupFNErr);
  EXPECT_EQ(CodeOf([&] { replacing.Commit(); }), fBsyErr);

  OutputFile late(target_);
  EXPECT_EQ(CodeOfOpening(), fBsyErr);  // the first one has locked it
  fs::rename(target_, folder_ / "moved.mov");
  Store(target_, Text("another one"));
  EXPECT_EQ(CodeOf([&] { late.Commit(); }), fBsyErr);
  EXPECT_EQ(Stored(target_), Text("another one"));
}

TEST_F(Output, KeepsOwnerAndExtendedAttributesOfTheOldFile) {
  Store(target_, Text("old"));
  if (setxattr(target_.c_str(), "user.note", "mine", 4, 0) != 0) GTEST_SKIP() << "none here";
  if (geteuid() == 0) {
    ASSERT_EQ(chown(target_.c_str(), 65534, 65534), 0);
    ASSERT_EQ(chmod(target_.c_str(), 06755), 0);
  }
  const struct stat old = StatusOf(target_).value();
  OutputFile(target_).Commit();
  const struct stat now = StatusOf(target_).value();
  EXPECT_NE(now.st_ino, old.st_ino);
  EXPECT_EQ(std::tie(now.st_uid, now.st_gid, now.st_mode),
            std::tie(old.st_uid, old.st_gid, old.st_mode));
  char note[4] = {};
  EXPECT_EQ(getxattr(target_.c_str(), "user.note", note, sizeof note), 4);
  EXPECT_EQ(std::string(note, 4), "mine");
}

TEST_F(Output, WantsPermissionForTheFileAndForTheFolder) {
  Store(target_, Text("old"));
  fs::permissions(target_, fs::perms(0444));
  const auto openUnprivileged = [&] {
    DropPrivileges();
    OutputFile{target_};
  };
  EXPECT_EQ(CodeInChild(openUnprivileged), afpAccessDenied);
  fs::permissions(target_, fs::perms(0666));
  EXPECT_EQ(CodeInChild(openUnprivileged), noErr);
  fs::permissions(folder_, fs::perms(0555));
  EXPECT_EQ(CodeInChild(openUnprivileged), afpAccessDenied);
  EXPECT_EQ(Stored(target_), Text("old"));
}

TEST_F(Output, IsBusyWhileAnotherHoldsTheLock) {
  Store(target_, Text("old"));
  Descriptor other(target_, O_RDONLY);
  ASSERT_EQ(flock(other.Number(), LOCK_SH), 0);
  EXPECT_EQ(CodeOfOpening(), fBsyErr);
  other.Close();
  EXPECT_EQ(CodeOfOpening(), noErr);
}

TEST_F(Output, IsBusyWhileAnotherProcessReadsTheFile) {
  Store(target_, Text("old"));
  {
    const Descriptor probe(target_, O_RDONLY);
    if (fcntl(probe.Number(), F_SETLEASE, F_WRLCK) != 0) GTEST_SKIP() << "no leases here";
  }
  int ready[2], done[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(done), 0);
  const pid_t reader = fork();
  if (reader == 0) {
    close(done[1]);
    const FileSource source(target_);
    char byte = 0;
    if (write(ready[1], &byte, 1) != 1) _exit(1);
    _exit(read(done[0], &byte, 1) == 0 ? 0 : 1);  // until the other end closes
  }
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  EXPECT_EQ(CodeOfOpening(), fBsyErr);
  for (const int end : {ready[0], ready[1], done[0], done[1]}) close(end);
  waitpid(reader, nullptr, 0);
  EXPECT_EQ(CodeOfOpening(), noErr);
}

TEST_F(Output, CutsOffWhatWasReservedInVain) {
  OutputFile file(target_);
  file.Reserve(5 << 20);
  Append(file, Text("short"));
  file.Reserve(1 << 10);
  file.Commit();
  EXPECT_EQ(Stored(target_), Text("short"));
}

TEST_F(Output, WritesDevicesAndPipesDirectly) {
  OutputFile nowhere("/dev/null");
  Append(nowhere, Noise(3 << 20, 1));
  nowhere.Commit();
  EXPECT_TRUE(fs::is_other("/dev/null"));

  OutputFile full("/dev/full");
  EXPECT_EQ(CodeOf([&] { Append(full, Text("no room")); }), dskFulErr);

  const Bytes content = Noise(300'000, 2);
  Store(folder_ / "in", content);
  ASSERT_EQ(mkfifo(target_.c_str(), 0600), 0);
  auto received = std::async(std::launch::async, [&] { return Stored(target_); });
  OutputFile pipe(target_);
  pipe.Reserve(content.size());
  const FileSource source(folder_ / "in");
  Append(pipe, source, 0, content.size());
  pipe.Commit();
  EXPECT_EQ(received.get(), content);
  EXPECT_EQ(FilesInFolder(), 2);
}

// A file with this content on another file system. The kernel may be unable to copy from it.
class ForeignFile {
 public:
  explicit ForeignFile(const Bytes& content) : descriptor_(memfd_create("foreign", MFD_CLOEXEC)) {
    Store(Path(), content);
  }
  ~ForeignFile() { close(descriptor_); }
  fs::path Path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

TEST_F(Output, HasSmallAndLargePiecesOfManySourcesInOrder) {
  const std::vector<Bytes> contents = {Noise(3'000'000, 1), Noise(700'000, 2), Noise(400'000, 3)};
  Store(folder_ / "a", contents[0]);
  const ForeignFile foreign(contents[1]);
  const FileSource first(folder_ / "a"), second(foreign.Path());
  const MemorySource third(contents[2]);
  const std::vector<const ByteSource*> sources = {&first, &second, &third};
  constexpr std::size_t kLengths[] = {0, 1, 150, 8000, 65535, 65536, 65537, 262'144, 300'000};

  for (unsigned seed = 0; seed < 6; ++seed) {
    std::mt19937 random(seed);
    Bytes expected;
    OutputFile file(target_);
    PieceWriter writer(file);
    if (seed % 2 == 0) file.Reserve(20 << 20);
    std::size_t near = 0;  // many pieces are close together, which is what the blocks are for
    for (int piece = 0; piece < 3000; ++piece) {
      const std::size_t which = random() % 3;
      const bool isRare = random() % 50 == 0;
      const std::size_t length = kLengths[isRare ? random() % std::size(kLengths) : 2];
      if (random() % 100 == 0) near = random() % 2'900'000;
      const std::size_t at = (near + random() % 100'000) % (contents[which].size() - length + 1);
      writer.Copy(expected.size(), *sources[which], at, length);
      const auto from = contents[which].begin() + static_cast<std::ptrdiff_t>(at);
      expected.insert(expected.end(), from, from + static_cast<std::ptrdiff_t>(length));
      if (piece % 500 == 0) writer.Flush();
    }
    writer.Flush();
    file.Commit();
    ASSERT_TRUE(Stored(target_) == expected) << "seed " << seed;
  }
}

TEST_F(Output, HasTheBytesOfASourceAtTheAddressOfAnOlderOne) {
  Store(folder_ / "a", Noise(50'000, 1));
  Store(folder_ / "b", Noise(50'000, 2));
  OutputFile file(target_);
  PieceWriter writer(file);
  std::optional<FileSource> source;
  std::uint64_t position = 0;
  for (const char* name : {"a", "b"}) {
    source.emplace(folder_ / name);
    for (std::uint64_t at = 0; at < 50'000; at += 100, position += 100) {
      writer.Copy(position, *source, at, 100);
    }
    writer.ForgetSources();
  }
  writer.Flush();
  file.Commit();
  Bytes expected = Noise(50'000, 1);
  std::ranges::copy(Noise(50'000, 2), std::back_inserter(expected));
  EXPECT_TRUE(Stored(target_) == expected);
}

TEST_F(Output, RefusesASourceThatEndsTooSoonAndIsNeverCommittedAfter) {
  const fs::path input = folder_ / "in";
  for (const std::uint64_t pieceSize : {150u, 50'000u, 200'000u}) {
    Store(input, Noise(1'000'000, 1));
    const FileSource source(input);
    fs::resize_file(input, 700'000);
    Store(target_, Text("old"));
    OutputFile file(target_);
    EXPECT_EQ(CodeOf([&] {
                for (std::uint64_t at = 0; at < 1'000'000; at += pieceSize) {
                  Append(file, source, at, std::min(pieceSize, 1'000'000 - at));
                }
              }),
              eofErr);
    EXPECT_EQ(CodeOf([&] { Append(file, Text("more")); }), ioErr);
    EXPECT_EQ(CodeOf([&] { file.Commit(); }), ioErr);
    EXPECT_EQ(Stored(target_), Text("old"));
  }
  EXPECT_EQ(FilesInFolder(), 2);
}

TEST_F(Output, LeavesNothingWhenTheFileGrowsTooLarge) {
  Store(target_, Text("old"));
  const Bytes content = Noise(300'000, 1);
  Store(folder_ / "in", content);
  const FileSource source(folder_ / "in");
  const auto limited = [&](const std::function<void(OutputFile&)>& write) {
    return CodeInChild([&] {
      std::signal(SIGXFSZ, SIG_IGN);
      const rlimit most = {100'000, 100'000};
      setrlimit(RLIMIT_FSIZE, &most);
      OutputFile file(target_);
      write(file);
      file.Commit();
    });
  };
  EXPECT_EQ(limited([&](OutputFile& file) { file.Reserve(300'000); }), ioErr);
  EXPECT_EQ(limited([&](OutputFile& file) { Append(file, content); }), ioErr);
  EXPECT_EQ(limited([&](OutputFile& file) { Append(file, source, 0, 300'000); }), ioErr);
  EXPECT_EQ(Stored(target_), Text("old"));
  EXPECT_EQ(FilesInFolder(), 2);
}

TEST_F(Output, ReadsSourcesWithinTheirBoundsOnly) {
  Store(target_, Text("0123456789"));
  const FileSource file(target_);
  const Bytes content = Text("0123456789");
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
  EXPECT_EQ(CodeOf([&] { FileSource(folder_ / "none"); }), fnfErr);
  EXPECT_EQ(CodeOf([&] { FileSource{folder_}; }), notAFileErr);
  EXPECT_EQ(StateOf(folder_ / "none"), std::nullopt);
  EXPECT_EQ(StateOf(folder_ / "." / "out.mov"), StateOf(target_));
}

}  // namespace
}  // namespace toolbox
