// Bytes taken for a movie file: opened, joined, written and opened again as the commands do it, or
// shown, checked, compared and drawn as clipinfo does it.
#include <sys/resource.h>

#include <boost/filesystem/operations.hpp>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>
#include <sstream>
#include <tuple>

#include "clipinfo/modes.h"
#include "tests/fuzz/seeds.h"
#include "toolbox/toolbox.h"

namespace {

using toolbox::FourCC;

// A folder that goes with the process.
class Folder {
 public:
  Folder() {
    const auto name = boost::filesystem::temp_directory_path() / "reelwork-%%%%%%%%";
    path_ = boost::filesystem::canonical(name.parent_path()) /
            boost::filesystem::unique_path(name.filename());
    boost::filesystem::create_directory(path_);
    boost::filesystem::create_symlink(GOOD_MOVIE, Path("good.mov"));
  }
  ~Folder() { boost::filesystem::remove_all(path_); }
  boost::filesystem::path Path(const char* name) const { return path_ / name; }

 private:
  boost::filesystem::path path_;
};

const Folder& Files() {
  static const Folder folder;
  return folder;
}

struct Dispose {
  void operator()(toolbox::Movie movie) const { toolbox::DisposeMovie(movie); }
  void operator()(toolbox::Handle handle) const { toolbox::DisposeHandle(handle); }
};
using OwnedMovie = std::unique_ptr<toolbox::MovieRecord, Dispose>;
using OwnedHandle = std::unique_ptr<toolbox::HandleRecord, Dispose>;

OwnedHandle ReferenceTo(const char* name) {
  const toolbox::CFStringRef text = toolbox::CFStringCreateWithCString(
      nullptr, Files().Path(name).c_str(), toolbox::kCFStringEncodingUTF8);
  toolbox::Handle handle = nullptr;
  FourCC type;
  fuzz::Check(toolbox::QTNewDataReferenceFromFullPathCFString(text, toolbox::kQTPOSIXPathStyle, 0,
                                                              &handle, &type) == toolbox::noErr,
              "a path becomes a data reference");
  toolbox::CFRelease(text);
  return OwnedHandle(handle);
}

// Null where the file cannot be opened.
OwnedMovie Open(const char* name, std::int16_t flags = 0) {
  toolbox::Movie movie = nullptr;
  std::ignore =
      toolbox::NewMovieFromDataRef(&movie, flags, nullptr, ReferenceTo(name).get(), FourCC{"alis"});
  return OwnedMovie(movie);
}

// Appends all of `source` to `movie`.
void Join(toolbox::Movie movie, toolbox::Movie source) {
  toolbox::SetMovieTimeScale(source, toolbox::GetMovieTimeScale(movie));
  std::ignore = toolbox::InsertMovieSegment(source, movie, 0, toolbox::GetMovieDuration(source),
                                            toolbox::GetMovieDuration(movie));
}

// Appends the first track of `source` to the first of `movie`, whatever their time scales.
void JoinTracks(toolbox::Movie movie, toolbox::Movie source) {
  const toolbox::Track track = toolbox::GetMovieIndTrack(movie, 1);
  const toolbox::Track other = toolbox::GetMovieIndTrack(source, 1);
  if (track == nullptr || other == nullptr) return;
  std::ignore = toolbox::InsertTrackSegment(other, track, 0, toolbox::GetTrackDuration(other),
                                            toolbox::GetTrackDuration(track));
}

toolbox::OSErr WriteReference(toolbox::Movie movie, toolbox::Handle target) {
  toolbox::DataHandler storage = nullptr;
  const toolbox::OSErr created =
      toolbox::CreateMovieStorage(target, FourCC{"alis"}, {}, toolbox::smSystemScript,
                                  toolbox::createMovieFileDeleteCurFile, &storage, nullptr);
  if (created != toolbox::noErr) return created;
  const toolbox::OSErr added = toolbox::AddMovieToStorage(movie, storage);
  const toolbox::OSErr closed = toolbox::CloseMovieStorage(storage);
  return added != toolbox::noErr ? added : closed;
}

toolbox::OSErr Flatten(toolbox::Movie movie, toolbox::Handle target, std::uint32_t flags) {
  toolbox::FlattenMovieDataToDataRef(movie, flags, target, FourCC{"alis"}, {},
                                     toolbox::smSystemScript,
                                     toolbox::createMovieFileDeleteCurFile);
  return toolbox::GetMoviesError();
}

// Writes an MPEG-4 file with hint tracks, where the movie can be one.
toolbox::OSErr Export(toolbox::Movie movie, toolbox::Handle target) {
  constexpr char kHead[] = "\0\0\0\x18hint\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\1";
  toolbox::MovieExportComponent exporter = nullptr;
  fuzz::Check(toolbox::OpenADefaultComponent("spit", "mpg4", &exporter) == toolbox::noErr,
              "there is an exporter");
  toolbox::HandleRecord settings;
  settings.bytes.resize(12);
  toolbox::Bytes root = {0, 0, 0, 44, 's', 'e', 'a', 'n', 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0};
  root.insert(root.end(), std::begin(kHead), std::end(kHead) - 1);
  settings.bytes.insert(settings.bytes.end(), root.begin(), root.end());
  fuzz::Check(
      toolbox::MovieExportSetSettingsFromAtomContainer(exporter, &settings) == toolbox::noErr,
      "the settings are taken");
  const toolbox::OSErr written =
      toolbox::ConvertMovieToDataRef(movie, nullptr, target, "alis", "mpg4", {}, 0, exporter);
  std::ignore = toolbox::CloseComponent(exporter);
  return written;
}

// Writes the movie in one of four forms and opens the file. Only in one, because writing takes most
// of the time of a run.
void WriteAndReopen(toolbox::Movie movie, unsigned form) {
  constexpr char kName[] = "output.mov";
  constexpr std::uint32_t kPlain = toolbox::flattenAddMovieToDataFork;
  constexpr std::uint32_t kFastStartCompressed = kPlain | toolbox::flattenCompressMovieResource |
                                                 toolbox::flattenForceMovieResourceBeforeMovieData;
  const OwnedHandle target = ReferenceTo(kName);
  const toolbox::OSErr written = form == 0   ? WriteReference(movie, target.get())
                                 : form == 1 ? Flatten(movie, target.get(), kPlain)
                                 : form == 2 ? Flatten(movie, target.get(), kFastStartCompressed)
                                             : Export(movie, target.get());
  if (written == toolbox::noErr)
    fuzz::Check(Open(kName) != nullptr, "a movie that was written opens");
  boost::filesystem::remove(Files().Path(kName));
}

// While it exists, what is printed to the stream goes to a text.
class Captured {
 public:
  explicit Captured(std::ostream& stream)
      : stream_(stream), original_(stream.rdbuf(text_.rdbuf())) {}
  ~Captured() { stream_.rdbuf(original_); }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;
  std::string Text() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::ostream& stream_;
  std::streambuf* original_;
};

// Does one of the things that clipinfo does with a movie, which need not be one that can be opened.
void Inspect(const char* name, unsigned mode) {
  const Captured output(std::cout), errors(std::cerr);
  const auto path = [](const char* of) { return Files().Path(of).native(); };
  const std::string file = path(name);
  const auto summary = [&] {
    try {
      clipinfo::PrintSummary(clipinfo::OpenMovie(file));
    } catch (...) {
      std::ignore = clipinfo::LineFor(clipinfo::CaughtFailure(file));
    }
  };
  const auto compare = [&](std::vector<clipinfo::Subject> inputs) {
    clipinfo::Compare({.movies = {{file}}, .from = std::move(inputs)});
  };
  const std::function<void()> modes[] = {
      summary,
      [&] { clipinfo::PrintJson({.isJson = true, .movies = {{file}}}); },
      [&] { clipinfo::Check({.isJson = true, .movies = {{file}}}); },
      [&] { clipinfo::WritePicture({.movies = {{file}}, .picture = path("picture.svg")}); },
      [&] { clipinfo::PrintAtoms(file); },
      [&] { compare({{file}}); },
      [&] {
        compare({{path("good.mov")}, {file}});
      },
  };
  mode %= std::size(modes);
  modes[mode]();
  const bool hasJson = mode == 1 || mode == 2;
  fuzz::Check(!hasJson || nlohmann::json::accept(output.Text()), "the answer is JSON");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Sixty thousand chunks may all claim the same bytes: what is written out ends somewhere. The
  // fuzzer would end at this signal if it had no handler.
  constexpr rlimit kLargestFile{1 << 20, 1 << 20};
  fuzz::Check(setrlimit(RLIMIT_FSIZE, &kLargestFile) == 0, "the size of files can be limited");
  std::signal(SIGXFSZ, [](int) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::ignore = toolbox::EnterMovies();
  constexpr char kInput[] = "input.mov", kGood[] = "good.mov";
  fuzz::WriteFile(Files().Path(kInput), {data, size});
  // The bytes of the input choose what is done with it, so that it is the same in every run.
  const unsigned choice = std::accumulate(data, data + size, 0U);
  if (choice % 5 >= 3) {
    Inspect(kInput, choice / 5);
    return 0;
  }
  const OwnedMovie movie = Open(kInput);
  if (!movie) {
    Open(kInput, toolbox::newMovieDontResolveDataRefs);
    return 0;
  }
  const unsigned form = choice / 2 % 4;
  if (choice % 2 == 0) {  // the input first: its time scale and tracks are those of the output
    Join(movie.get(), Open(kInput).get());
    if (form < 3) Join(movie.get(), Open(kGood).get());
    WriteAndReopen(movie.get(), form);
    return 0;
  }
  const OwnedMovie good = Open(kGood);
  fuzz::Check(good != nullptr, "a good movie opens");
  Join(good.get(), movie.get());
  toolbox::SetMovieTimeScale(good.get(), 90000);
  Join(good.get(), Open(kInput).get());
  JoinTracks(good.get(), Open(kInput).get());
  toolbox::AddMovieSelection(good.get(), Open(kInput).get());
  WriteAndReopen(good.get(), form);
  return 0;
}
