#include "clipinfo/open.h"

#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <new>
#include <variant>

#include "toolbox/atoms/alias_record.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/disk/system_error.h"
#include "toolbox/read/read_movie.h"
#include "toolbox/references/aliases.h"
#include "toolbox/references/data_references.h"
#include "toolbox/references/urls.h"
#include "toolbox/text/unicode.h"
#include "utils/visible.h"

namespace clipinfo {

using toolbox::Failure;
using toolbox::FourCC;

namespace {

// The name of the file in an alias record without a path that this system understands.
std::string NameInAlias(toolbox::ByteSpan record) try {
  const toolbox::Alias alias = toolbox::ReadAlias(record);
  if (!alias.colonPath.empty()) return alias.colonPath;
  return alias.name ? toolbox::Utf8(toolbox::Repaired(*alias.name)) : alias.shortName;
} catch (const toolbox::Malformed&) {
  return {};
}

}  // namespace

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

std::string StatedPlace(const toolbox::DataReferenceEntry& entry,
                        const boost::filesystem::path& movie) {
  if (entry.kind == FourCC{"alis"}) {
    const auto path = toolbox::AbsoluteAliasPath(entry.data);
    return path ? path->native() : NameInAlias(entry.data);
  }
  if (entry.kind != FourCC{"url "}) return {};
  if (const auto path = toolbox::ResolveUrl(entry.data, movie)) return path->native();
  return {entry.data.begin(), std::ranges::find(entry.data, 0)};
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
