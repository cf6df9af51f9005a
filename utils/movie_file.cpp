#include "utils/movie_file.h"

#include <boost/filesystem/operations.hpp>
#include <iostream>
#include <tuple>

#include "clipjoin/report.h"
#include "utils/progress_line.h"

namespace utils {
namespace {

using clipjoin::kUtilsSource;
using clipjoin::QTError;
using clipjoin::Report;
using clipjoin::Require;

constexpr toolbox::FourCC kCreator{"TVOD"};  // the creator code of new files

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
  Require({"CreateMovieStorage", kUtilsSource},
          toolbox::CreateMovieStorage(reference.handle, reference.type, kCreator,
                                      toolbox::smSystemScript,
                                      toolbox::createMovieFileDeleteCurFile, &storage, nullptr));
  std::ignore = toolbox::AddMovieToStorage(movie, storage);
  Require({"AddMovieToStorage", kUtilsSource}, toolbox::GetMoviesError());
  // Closing gives the file its name, so it can fail as well.
  Require({"CloseComponent", kUtilsSource}, toolbox::CloseComponent(storage));
}

// Prints why the movie cannot be written. Not counted: the file is the user's to free.
void Explain(const QTError& error, const std::string& path) {
  switch (error.Code()) {
    case toolbox::fBsyErr:
      ExplainBusy(path);
      break;
    case toolbox::afpAccessDenied:
      std::cerr << "You do not have permission to overwrite the output file\n" << path << '\n';
      break;
    default:
      std::cerr << error << '\n';
  }
}

}  // namespace

void ExplainBusy(const std::string& path) {
  std::cerr << "The output file " << path
            << " is busy.\nPlease check to see if another application has it open\n"
            << std::flush;
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
  if (absolute.is_relative()) absolute = boost::filesystem::current_path() / absolute;
  const toolbox::CFStringRef text = toolbox::CFStringCreateWithCString(
      nullptr, path.empty() ? "" : absolute.c_str(), toolbox::kCFStringEncodingUTF8);
  const toolbox::OSErr code = toolbox::QTNewDataReferenceFromFullPathCFString(
      text, toolbox::kQTPOSIXPathStyle, 0, &reference.handle, &reference.type);
  toolbox::CFRelease(text);
  return code;
}

toolbox::Movie OpenMovie(const std::string& path, unsigned access, std::int16_t newMovieFlags,
                         toolbox::DataHandler* storage) {
  DataReference reference;
  Require({"PathToDataRef", kUtilsSource}, PathToDataRef(path, reference));
  toolbox::Movie movie = nullptr;
  std::int16_t resourceId = 0;
  Require({"NewMovieFromDataRef", kUtilsSource},
          toolbox::NewMovieFromDataRef(&movie, newMovieFlags, &resourceId, reference.handle,
                                       reference.type));
  std::uint32_t flags = 0;
  if ((access & kRead) != 0) flags |= toolbox::kDataHCanRead;
  if ((access & kWrite) != 0) flags |= toolbox::kDataHCanWrite;
  const toolbox::OSErr opened =
      toolbox::OpenMovieStorage(reference.handle, reference.type, flags, storage);
  if (opened != toolbox::noErr) toolbox::DisposeMovie(movie);
  Require({"OpenMovieStorage", kUtilsSource}, opened);
  return movie;
}

void writeMovie(toolbox::Movie movie, const std::string& path, bool selfContained,
                std::uint32_t flattenFlags, bool showProgress) {
  DataReference reference;
  // Goes on after a failure: the write then fails as well, and that error is printed too.
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
