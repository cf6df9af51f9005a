#include "utils/movie_file.h"

#include <boost/filesystem/operations.hpp>
#include <iostream>
#include <tuple>
#include <utility>

#include "clipjoin/report.h"
#include "utils/progress_line.h"
#include "utils/visible.h"

namespace utils {
namespace {

using clipjoin::kUtilsSource;
using clipjoin::QTError;
using clipjoin::Report;
using clipjoin::Require;

void WriteSelfContained(toolbox::Movie movie, std::uint32_t flattenFlags,
                        const DataReference& reference, bool showProgress) {
  const toolbox::OSErr code = WithProgress(movie, showProgress, [&] {
    toolbox::FlattenMovieDataToDataRef(
        movie, flattenFlags | toolbox::flattenAddMovieToDataFork, reference.handle, reference.type,
        kCreator, toolbox::smSystemScript, toolbox::createMovieFileDeleteCurFile);
    return toolbox::GetMoviesError();
  });
  Require({"FlattenMovieDataToDataRef", kUtilsSource}, code);
}

// Leaves the storage open if adding the movie fails; an unfinished file is discarded at the end of
// the process.
void WriteReference(toolbox::Movie movie, const DataReference& reference) {
  toolbox::DataHandler storage = nullptr;
  Require({"CreateMovieStorage", kUtilsSource}, CreateStorage(reference, &storage));
  std::ignore = toolbox::AddMovieToStorage(movie, storage);
  Require({"AddMovieToStorage", kUtilsSource}, toolbox::GetMoviesError());
  // Closing gives the file its name, so it can fail as well.
  Require({"CloseComponent", kUtilsSource}, toolbox::CloseComponent(storage));
}

// Prints why the movie cannot be written. This is not counted as a failure of the run.
void Explain(const QTError& error, const std::string& path) {
  if (error.code == toolbox::fBsyErr) {
    ExplainBusy(path);
  } else if (error.code == toolbox::afpAccessDenied) {
    std::cerr << "You do not have permission to overwrite the output file\n"
              << Visible(path) << '\n';
  } else {
    std::cerr << error << '\n';
  }
}

}  // namespace

void ExplainBusy(const std::string& path) {
  std::cerr << "The output file " << Visible(path)
            << " is busy.\nPlease check to see if another application has it open\n";
}

toolbox::OSErr WithProgress(toolbox::Movie movie, bool showProgress,
                            const std::function<toolbox::OSErr()>& write) {
  ProgressLine line;
  if (showProgress && ProgressLine::IsWanted()) {
    toolbox::SetMovieProgressProc(
        movie, [&line](std::uint64_t done, std::uint64_t all) { line.Show(done, all); });
  }
  const toolbox::OSErr code = write();
  toolbox::SetMovieProgressProc(movie, nullptr);
  return code;
}

toolbox::OSErr PathToDataRef(const std::string& path, DataReference& reference) {
  boost::filesystem::path absolute(path);
  if (!path.empty() && absolute.is_relative()) {
    absolute = boost::filesystem::current_path() / absolute;
  }
  const OwnedString text(toolbox::CFStringCreateWithCString(nullptr, absolute.c_str(),
                                                            toolbox::kCFStringEncodingUTF8));
  return toolbox::QTNewDataReferenceFromFullPathCFString(text.get(), toolbox::kQTPOSIXPathStyle, 0,
                                                         &reference.handle, &reference.type);
}

toolbox::OSErr CreateStorage(const DataReference& reference, toolbox::DataHandler* storage) {
  return toolbox::CreateMovieStorage(reference.handle, reference.type, kCreator,
                                     toolbox::smSystemScript, toolbox::createMovieFileDeleteCurFile,
                                     storage, nullptr);
}

std::pair<OwnedMovie, OwnedStorage> OpenMovie(const std::string& path, bool isWritable,
                                              std::int16_t newMovieFlags) {
  DataReference reference;
  Require({"PathToDataRef", kUtilsSource}, PathToDataRef(path, reference));
  toolbox::Movie movie = nullptr;
  Require({"NewMovieFromDataRef", kUtilsSource},
          toolbox::NewMovieFromDataRef(&movie, newMovieFlags, nullptr, reference.handle,
                                       reference.type));
  OwnedMovie owned(movie);
  toolbox::DataHandler storage = nullptr;
  const std::uint32_t flags = toolbox::kDataHCanRead | (isWritable ? toolbox::kDataHCanWrite : 0);
  Require({"OpenMovieStorage", kUtilsSource},
          toolbox::OpenMovieStorage(reference.handle, reference.type, flags, &storage));
  return {std::move(owned), OwnedStorage(storage)};
}

void writeMovie(toolbox::Movie movie, const std::string& path, bool selfContained,
                std::uint32_t flattenFlags, bool showProgress) {
  DataReference reference;
  // Continues after a failure. The write then fails as well, and that error is printed too.
  Report({"PathToDataRef", kUtilsSource}, PathToDataRef(path, reference));
  try {
    if (selfContained) {
      WriteSelfContained(movie, flattenFlags, reference, showProgress);
    } else {
      WriteReference(movie, reference);
    }
  } catch (const QTError& error) {
    Explain(error, path);
  }
}

}  // namespace utils
