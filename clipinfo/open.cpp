#include "clipinfo/open.h"

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <new>
#include <variant>

#include "toolbox/disk/system_error.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/references/data_references.h"
#include "utils/visible.h"

namespace clipinfo {

using toolbox::Failure;

OpenedMovie OpenMovie(const std::string& name) {
  OpenedMovie opened{name, boost::filesystem::absolute(name), nullptr};
  opened.movie = toolbox::ReadMovieFile(opened.path, toolbox::References::kLeave);
  return opened;
}

void Resolve(OpenedMovie& opened) {
  for (const auto& track : opened.movie->tracks) {
    if (!track->media) continue;
    for (toolbox::DataReference& reference : track->media->dataReferences) {
      const auto* entry = std::get_if<toolbox::Unresolved>(&reference);
      if (entry == nullptr) continue;
      reference = toolbox::ReadDataReference(*entry, opened.path, true);
    }
  }
}

Failure CaughtFailure(const std::string& file) {
  Failure failure;
  try {
    throw;
  } catch (const Failure& caught) {
    failure = caught;
  } catch (const std::bad_alloc&) {
    failure = toolbox::Refused{toolbox::memFullErr, "there is not enough memory"};
  } catch (const boost::filesystem::filesystem_error& failed) {
    failure = toolbox::RefusedBy(failed.code().value(), failed.path1().native());
  }
  failure.NameFile(file);
  return failure;
}

std::string ReasonOf(const Failure& failure) {
  if (failure.code == toolbox::noMovieFound) return "it contains no movie";
  if (!failure.reason.empty()) return failure.reason;
  return "it cannot be read: error " + std::to_string(failure.code);
}

std::string LineFor(const Failure& failure) {
  const std::string where = failure.path.empty() ? "" : failure.path + ": ";
  return utils::Visible(failure.file) + ": " + utils::Visible(where + ReasonOf(failure));
}

}  // namespace clipinfo
