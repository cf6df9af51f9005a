// The input is a movie file. It is joined, stacked, edited or exported as the commands do it, or
// shown, checked, compared or drawn as clipinfo does it. What is written must open. A small input
// is the content of each known atom too. What can be read must be written, and read the same again.
#include <sys/resource.h>

#include <array>
#include <boost/algorithm/string.hpp>
#include <boost/filesystem/fstream.hpp>
#include <boost/filesystem/operations.hpp>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <sstream>
#include <vector>

#include "clipinfo/known_atoms.h"
#include "clipinfo/modes.h"
#include "clipjoin/clipjoin.h"
#include "toolbox/atoms/field_printer.h"

namespace {

using toolbox::Bytes;
using toolbox::ByteSpan;

// Ends the process unless `holds`, so that the fuzzer keeps the input.
void Check(bool holds, const std::string& what) {
  if (holds) return;
  std::cerr << "does not hold: " << what << '\n';
  std::abort();
}

void WriteFile(const boost::filesystem::path& path, ByteSpan bytes) {
  boost::filesystem::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  Check(file.good(), "a file can be written: " + path.native());
}

constexpr char kInput[] = "input.mov", kGood[] = "good.mov", kOutput[] = "output.mov";

// The folder of the files, which is removed when the process ends.
struct Folder {
  Folder() : path(boost::filesystem::temp_directory_path() / boost::filesystem::unique_path()) {
    boost::filesystem::create_directory(path);
    boost::filesystem::create_symlink(GOOD_MOVIE, path / kGood);
  }
  ~Folder() { boost::filesystem::remove_all(path); }
  const boost::filesystem::path path;
};

constexpr const char* kCommands[] = {
    "clipjoin input.mov input.mov good.mov",
    "clipjoin input.mov input.mov good.mov -self-contained -no-fast-start -no-compressed-header",
    "clipjoin input.mov input.mov -self-contained",
    "clipjoin input.mov input.mov -mp4",
    "clipjoin good.mov input.mov",
    "clipjoin good.mov input.mov -force-same-tracks -timescale 90000 -self-contained",
    "clipjoin good.mov input.mov input.mov -manual-join -self-contained",
    "clipjoin good.mov input.mov -auto-chapters -mp4",
    "clipjoin input.mov -noresolve",
    "clipstak good.mov input.mov -placeAt 1 -scale -self-contained",
    "cliptune input.mov -startAt 0.1 -trimBy 0.1 -rate 2 -self-contained",
    "cliptune input.mov -remove-edit-list -mp4",
};

void RunCommand(const std::string& command) {
  std::vector<std::string> words;
  boost::split(words, command + " -q -o " + kOutput, boost::is_any_of(" "));
  std::vector<const char*> arguments;
  for (const std::string& word : words) arguments.push_back(word.c_str());
  clipjoin::Run(arguments);
  if (!boost::filesystem::exists(kOutput)) return;
  clipinfo::OpenMovie(kOutput);  // throws if it cannot be opened
  boost::filesystem::remove(kOutput);
}

// Runs a mode of clipinfo on the input, which may be damaged. Returns whether it prints JSON.
bool Inspect(unsigned mode) {
  const auto summary = [] {
    try {
      clipinfo::PrintSummary(clipinfo::OpenMovie(kInput));
    } catch (...) {
      std::ignore = clipinfo::LineFor(clipinfo::CaughtFailure(kInput));
    }
  };
  const std::function<void()> modes[] = {
      [] { clipinfo::PrintJson({.isJson = true, .movies = {{kInput}}}); },
      [] { clipinfo::Check({.isJson = true, .movies = {{kInput}}}); },
      summary,
      [] { clipinfo::WritePicture({.movies = {{kInput}}, .picture = "picture.svg"}); },
      [] { clipinfo::PrintAtoms(kInput); },
      [] { clipinfo::Compare({.movies = {{kInput}}, .from = {{kInput}}}); },
      [] {
        clipinfo::Compare({.movies = {{kInput}}, .from = {{kGood}, {kInput}}});
      },
  };
  mode %= std::size(modes);
  modes[mode]();
  return mode < 2;
}

template <class A>
void ReadAndWrite(ByteSpan content) {
  Bytes written;
  try {
    const A atom = toolbox::Decode<A>(content);
    if constexpr (!toolbox::Container<A> && !toolbox::ReadsItself<A>) {
      std::ostringstream text;
      toolbox::FieldPrinter printer(text);
      toolbox::AtomFields(printer, atom);
    }
    written = toolbox::Encode(atom);
  } catch (const toolbox::Malformed&) {
    return;
  }
  const auto frame = toolbox::ReadFrame(written, written.size());
  Check(frame && frame->type == A::kType && frame->size == written.size(),
        "an atom is framed by its size and type");
  const A again = toolbox::Decode<A>(ByteSpan(written).subspan(frame->headerSize));
  Check(toolbox::Encode(again) == written, "an atom written is read as it was written");
}

void Split(ByteSpan content) {
  ByteSpan tail;
  std::size_t size = 0;
  for (const toolbox::AtomView& atom : toolbox::SplitAtoms(content, &tail)) {
    size += atom.whole.size();
  }
  Check(size + tail.size() == content.size(), "atoms and tail are all the bytes");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Many chunks can claim the same bytes, so the output is limited to 1 MiB. Without a handler, the
  // signal would end the fuzzer.
  constexpr rlimit kLargestFile{1 << 20, 1 << 20};
  Check(setrlimit(RLIMIT_FSIZE, &kLargestFile) == 0, "the size of files can be limited");
  std::signal(SIGXFSZ, [](int) {});
  if (const char* seeds = std::getenv("REELWORK_SEEDS")) {  // a reference movie, and each atom
    const std::string seed = std::string(seeds) + "/reference.mov";
    clipjoin::Run(std::array{"clipjoin", GOOD_MOVIE, "-q", "-o", seed.c_str()});
    clipinfo::ForEachKnownAtom([&]<class A>() {
      const Bytes atom = toolbox::Encode(A{});
      WriteFile(boost::filesystem::path(seeds) / A::kType.Text(), ByteSpan(atom).subspan(8));
    });
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size <= 1000) {
    clipinfo::ForEachKnownAtom([&]<class A>() { ReadAndWrite<A>({data, size}); });
    Split({data, size});
  }
  static const Folder folder;
  // The fuzzer may have been given relative paths.
  const boost::filesystem::path before = boost::filesystem::current_path();
  boost::filesystem::current_path(folder.path);
  WriteFile(kInput, {data, size});
  // What the commands print. The fuzzer writes its own messages elsewhere.
  std::ostringstream output, errors;
  std::streambuf* const streams[] = {std::cout.rdbuf(output.rdbuf()),
                                     std::cerr.rdbuf(errors.rdbuf())};
  // The bytes of the input choose what is done with it, so that it is the same in every run.
  const unsigned choice = std::accumulate(data, data + size, 0U);
  bool isJson = false;
  if (choice % 5 >= 3) {
    isJson = Inspect(choice / 5);
  } else {
    RunCommand(kCommands[choice / 5 % std::size(kCommands)]);
  }
  std::cout.rdbuf(streams[0]);
  std::cerr.rdbuf(streams[1]);
  boost::filesystem::current_path(before);
  Check(!isJson || nlohmann::json::accept(output.str()), "the answer is JSON");
  return 0;
}
