#include "utils/text_file.h"

#include <boost/filesystem/operations.hpp>

#include "utils/movie_file.h"
#include "utils/owned.h"

namespace utils {
namespace {

// Whether there is a file with a movie, which may be damaged or of an unsupported kind.
bool IsMovie(const std::string& path, const DataReference& reference) {
  boost::system::error_code none;
  if (!boost::filesystem::is_regular_file(path, none)) return false;
  toolbox::Movie movie = nullptr;
  const toolbox::OSErr code = toolbox::NewMovieFromDataRef(
      &movie, toolbox::newMovieDontResolveDataRefs, nullptr, reference.handle, reference.type);
  const OwnedMovie owned(movie);
  return code == toolbox::noErr || code == toolbox::badPublicMovieAtom ||
         code == toolbox::cantFindHandler || code == toolbox::featureUnsupported;
}

std::string ReasonFor(toolbox::OSErr code) {
  switch (code) {
    case toolbox::noErr:
      return {};
    case toolbox::fBsyErr:
      return "it is in use";
    case toolbox::afpAccessDenied:
      return "permission denied";
    case toolbox::dskFulErr:
      return "the disk is full";
    case toolbox::ioErr:
      return "input/output error";
    case toolbox::dirNFErr:
      return "there is no such folder";
    case toolbox::notAFileErr:
      return "it is a folder";
    case toolbox::vLckdErr:
      return "the disk is read-only";
    default:
      return "error " + std::to_string(code);
  }
}

}  // namespace

std::string WriteTextFile(const std::string& path, const std::string& text) {
  DataReference reference;
  toolbox::OSErr code = PathToDataRef(path, reference);
  if (code != toolbox::noErr) return ReasonFor(code);
  if (IsMovie(path, reference)) return "it is a movie";
  toolbox::DataHandler storage = nullptr;
  code = CreateStorage(reference, &storage);
  if (code != toolbox::noErr) return ReasonFor(code);
  code = toolbox::DataHWrite64(storage, text.data(), 0, static_cast<std::uint32_t>(text.size()));
  // After a failed write the file gets no name, and the code of CloseComponent says only that.
  const toolbox::OSErr closed = toolbox::CloseComponent(storage);
  return ReasonFor(code != toolbox::noErr ? code : closed);
}

}  // namespace utils
