// Files that are written on a disk that fails, or by a process that is killed, at any operation.
#include "tests/toolbox/movies.h"
#include "toolbox/disk/perform.h"
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

// A disk in memory with a file that is changed in place, or with a new file that replaces an old
// one. It notes all steps, so that a test can see what is left after any of them.
class MemoryDisk final : public Disk {
 public:
  // Operation `failing`, counted from 0, does half of its work and is refused.
  MemoryDisk(Bytes old, bool isNew, int failing = -1)
      : old_(std::move(old)), isNew_(isNew), failing_(failing) {}

  int Operations() const { return operations_; }
  std::size_t Steps() const { return steps_.size(); }

  // Every file that can be left after the first `count` steps: first the one that a program sees
  // then, and then those after a power cut. Any of the unsynced steps may have reached the disk.
  std::vector<Bytes> Left(std::size_t count) const {
    Bytes file = isNew_ ? Bytes() : old_, synced = file;
    bool isNamed = !isNew_;
    std::vector<Step> unsynced;
    for (const Step& step : std::span(steps_).first(count)) {
      Do(step, file);
      unsynced.push_back(step);
      if (std::holds_alternative<toolbox::Sync>(step)) {
        synced = file;
        unsynced.clear();
      }
      if (std::holds_alternative<toolbox::TakeName>(step)) isNamed = true;
    }
    if (!isNamed) return {old_};
    std::vector<Bytes> left{file, isNew_ ? old_ : file};
    const std::size_t any = std::min<std::size_t>(unsynced.size(), 6);
    for (std::size_t done = 0; done < std::size_t{1} << any; ++done) {
      Bytes& one = left.emplace_back(synced);
      for (std::size_t i = 0; i < unsynced.size(); ++i) {
        if (i >= any || (done >> i & 1) != 0) Do(unsynced[i], one);
      }
    }
    return left;
  }
  Bytes Seen() const { return Left(Steps()).front(); }

  // A long write tears in its middle. A short one tears where a sector ends, which is the smallest
  // unit that a disk writes as a whole.
  void Write(std::uint64_t at, ByteSpan bytes) override {
    const std::size_t cut =
        bytes.size() > 16 ? bytes.size() / 2 : std::min<std::size_t>(bytes.size(), 512 - at % 512);
    const auto put = [](std::uint64_t where, ByteSpan part) {
      return WriteBytes{where, {part.begin(), part.end()}};
    };
    Note({put(at, bytes.first(cut)), put(at + cut, bytes.subspan(cut))});
  }
  void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
            std::uint64_t length) override {
    Bytes bytes(length);
    source.Read(from, bytes);
    Write(at, bytes);
  }
  void Reserve(std::uint64_t size) override { Note({toolbox::Reserve{size}}); }
  void Sync() override { Note({toolbox::Sync{}}); }
  void CutOff(std::uint64_t size) override { Note({toolbox::CutOff{size}}); }
  void TakeName() override { Note({toolbox::TakeName{}}); }

 private:
  static void Do(const Step& step, Bytes& file) {
    if (const auto* cut = std::get_if<toolbox::CutOff>(&step)) file.resize(cut->size);
    if (const auto* write = std::get_if<WriteBytes>(&step)) {
      file.resize(std::max<std::size_t>(file.size(), write->at + write->bytes.size()));
      std::ranges::copy(write->bytes, file.begin() + static_cast<std::ptrdiff_t>(write->at));
    }
  }
  void Note(const std::vector<Step>& steps) {
    const bool isBroken = operations_++ == failing_;
    const auto done = std::span(steps).first(steps.size() / (isBroken ? 2 : 1));
    steps_.insert(steps_.end(), done.begin(), done.end());
    if (isBroken) throw Refused{dskFulErr};
  }

  Bytes old_;
  bool isNew_;
  int failing_, operations_ = 0;
  std::vector<Step> steps_;
};

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

  void Write(const Writer& writer, const Bytes& file, MemoryDisk& disk) const {
    const auto movie = ReadMovieFile(Store("in.mov", file), References::kResolve);
    movie->tracks[0]->header.layer = 7;
    writer(*movie, disk);
  }

  // Kills the writer after every step, and lets every operation fail.
  void Check(const std::string& name, const Bytes& old, const Writer& writer,
             bool isNew = false) const {
    SCOPED_TRACE(name);
    ASSERT_EQ(Found(old), Which::kOld);
    MemoryDisk whole(old, isNew);
    Write(writer, old, whole);
    for (std::size_t count = 0; count <= whole.Steps(); ++count) {
      for (const Bytes& left : whole.Left(count)) EXPECT_NE(Found(left), Which::kBroken) << count;
    }
    ASSERT_EQ(Found(whole.Seen()), Which::kNew);
    ASSERT_GT(whole.Operations(), 2);
    for (int i = 0; i < whole.Operations(); ++i) {
      MemoryDisk failing(old, isNew, i);
      EXPECT_EQ(CodeOf([&] { Write(writer, old, failing); }), dskFulErr);
      const Bytes left = failing.Seen();
      const Which found = Found(left);
      EXPECT_TRUE(found == Which::kNew || (found == Which::kOld && left.size() <= old.size())) << i;
    }
    if (!isNew) CheckInPlace(old, whole.Seen(), name.starts_with("room"));
  }

  // All other atoms are where they were, and later saves use the same room again.
  void CheckInPlace(const Bytes& old, Bytes file, bool hasRoom) const {
    for (const auto& atom : ReadOutline(MemorySource(old)).atoms) {
      if (atom.type == FourCC{"moov"} || atom.type == FourCC{"free"}) continue;
      const auto content = [&](const Bytes& bytes) {
        return Text({bytes.begin() + static_cast<std::ptrdiff_t>(atom.at + 8),
                     bytes.begin() + static_cast<std::ptrdiff_t>(atom.at + atom.size)});
      };
      EXPECT_EQ(content(file), content(old)) << atom.type.Text();
    }
    if (hasRoom) EXPECT_EQ(file.size(), old.size());
    for (int i = 0; i < 6; ++i) {
      MemoryDisk disk(file, false);
      Write(Save, file, disk);
      const std::size_t size = std::exchange(file, disk.Seen()).size();
      if (i >= 4) EXPECT_EQ(file.size(), size);
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
  Check("room of an unfinished save",
        Join(atEnd, Atom("moov", Zeros(2000)), Atom("uuid", Zeros(16))), Save);
  Check("an unfinished atom", Join(atEnd, U32(5000), Text("moov"), Zeros(100)), Save);
  // Its head starts 4 bytes before the end of a sector, so a write to it can tear.
  const Bytes padding = Atom("uuid", Zeros(1024 - 12 - atEnd.size()));
  Check("free space across two sectors", Join(atEnd, padding, room), Save);
  Check("media to the end", Join(first, U32(0), Text("mdat"), kMedia), Save);
}

TEST_F(CutShort, ANewFileIsThereWholeOrNotAtAll) {
  const Bytes old = Join(Atom("mdat", kMedia), MovieAtom(8));
  Check("trailing bytes", Join(old, Text("not an atom")), Save, true);
  for (const FileLayout layout :
       {FileLayout{false, false}, {false, true}, {true, false}, {true, true}}) {
    const Writer writer = [&](MovieRecord& movie, MemoryDisk& disk) {
      WriteFile(PlanFlattened(movie, {}), layout, folder_ / "out.mov", disk);
      disk.Sync();
      disk.TakeName();
    };
    Check("self-contained", old, writer, true);
  }
}

// --- Where a save puts the new movie, and with which steps

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

TEST(UpdateSteps, MakeANewFileWhereNothingCanBeAppended) {
  const Bytes type = Atom("ftyp", Text("qt  "), Zeros(4)), large = Atom("mdat", Zeros(1 << 20));
  const auto after = [&](const Bytes& media) { return Join(type, kMovie, media, Text("junk")); };
  const Bytes small = after(Atom("mdat", Zeros(12))), file = after(large);
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
  fs::resize_file(path, 5ULL << 30);
  const FileSource source(path);
  EXPECT_EQ(StepsFor(source).inPlace.at(0).steps.at(0),
            Step(WriteBytes{116, Join(U32(1), Text("mdat"), U64((5ULL << 30) - 116))}));
}

TEST_F(UpdateOfALongFile, GivesGpsDataNewOffsetsOrLeavesItOutBeyond4GiB) {
  const Bytes start = Join(kMovie, Made("1 'mdat' 16/8"));
  constexpr std::uint64_t kEnd = (4ULL << 30) + 1000;
  const auto path = Store("in.mov", start);
  fs::resize_file(path, kEnd);
  const FileSource source(path);
  // The last 1000 bytes are no atom, so a new file is necessary. Its movie is 884 bytes larger.
  FileOutline outline = ReadOutline(MemorySource(start));
  outline.source = &source;
  outline.size = kEnd;
  outline.atoms.back().size = kEnd - 1000 - 116;
  outline.end = outline.atoms.back().at + outline.atoms.back().size;
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
