#include "utils/output.h"

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <iostream>
#include <string_view>
#include <vector>

#include "clipjoin/report.h"
#include "utils/movie_file.h"

namespace utils {
namespace {

// The text from the last '.' of the last component on.
std::string Extension(const std::string& path) {
  return boost::filesystem::path(path).extension().native();
}

void WarnOfReference(std::size_t inputs) {
  std::cerr << "A non-self-contained movie is being created. Do not delete your original movie"
            << (inputs > 1 ? "s" : "") << ".\n";
}

void WarnOfExtension(const std::string& extension, const char* program) {
  static constexpr std::string_view kMpeg4[] = {".m4v", ".m4a", ".mp4", ".m4b"};
  if (std::ranges::find(kMpeg4, extension) != std::end(kMpeg4)) {
    std::cerr << "Warning: if you want to create an MPEG-4 or AAC file, you must use\n"
                 "the -mp4 option. By default "
              << program << " produces QuickTime\nmovies. Using a " << extension
              << " extension may be confusing.\n";
  } else if (!extension.empty() && extension != ".mov") {
    std::cerr << "Warning: " << program << " produces QuickTime movies\nUsing a " << extension
              << " extension may confuse some programs.\n"
                 "Use no extension or a .mov extension.\n";
  }
}

}  // namespace

std::string DesktopFolderPath() {
  toolbox::FSRef folder;
  clipjoin::Report(
      {"FSFindFolder", clipjoin::kClipjoinSource},
      toolbox::FSFindFolder(toolbox::kUserDomain, toolbox::kDesktopFolderType, true, &folder));
  std::vector<unsigned char> path(128);
  toolbox::OSErr code = toolbox::FSRefMakePath(&folder, path.data(), 128);
  while (code != toolbox::noErr) {
    std::cerr << "Error was " << code << '\n';
    if (code != toolbox::pathTooLongErr) return {};
    path.resize(2 * path.size());
    code = toolbox::FSRefMakePath(&folder, path.data(), static_cast<std::uint32_t>(path.size()));
  }
  return {path.begin(), std::ranges::find(path, 0)};
}

int FinishOutput(toolbox::Movie movie, const clipjoin::CommandLine& line) {
  if (line.SavesInPlace()) return 0;
  const clipjoin::OutputOptions& options = line.output;
  const std::string path =
      options.outputPath
          ? *options.outputPath
          : (boost::filesystem::path(DesktopFolderPath()) / (options.mpeg4 ? "out.mp4" : "out.mov"))
                .native();
  if (!options.quiet) {
    if (!options.selfContained) WarnOfReference(line.inputs.size());
    WarnOfExtension(Extension(path), line.Name());
  }
  WriteMovie(movie, path, options.selfContained, options.flattenFlags, !options.quiet);
  return 0;
}

}  // namespace utils
