#include <algorithm>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "clipinfo/findings.h"
#include "clipinfo/modes.h"
#include "input/track_names.h"
#include "toolbox/disk/byte_source.h"
#include "toolbox/read/read_movie.h"
#include "utils/visible.h"

namespace clipinfo {
namespace {

using Json = nlohmann::ordered_json;

// Runs all checks on a movie. Throws what reading a movie throws.
void CheckMovie(const std::string& name, Findings& findings) {
  OpenedMovie opened = OpenMovie(name);
  Resolve(opened);
  toolbox::MovieRecord& movie = *opened.movie;
  // The reader of movies mends what it can, so the header is read again.
  const toolbox::HeldBytes header =
      toolbox::ReadMovieHeader(toolbox::FileSource(opened.movie->file->path));
  const bool isStated = !header.Span().empty();
  const auto atoms =
      isStated ? toolbox::Decode<toolbox::MovieAtoms>(header.Span()) : toolbox::MovieAtoms();
  const std::vector<std::string> names = input::TrackNames(&movie);
  MovieToCheck subject{movie, isStated ? &atoms : nullptr, header.Span(), {}, findings};
  if (isStated && atoms.tracks.size() != movie.tracks.size()) {
    throw toolbox::Refused{toolbox::fBsyErr, "it has changed while it was read"};
  }
  for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
    subject.tracks.push_back(
        {*movie.tracks[i], isStated ? &atoms.tracks[i] : nullptr, i + 1, names[i], findings});
  }
  for (const auto check :
       {CheckPlaces, CheckEnd, CheckTables, CheckTimes, CheckChapters, CheckTags}) {
    check(subject);
  }
  const bool hasSamples = std::ranges::any_of(movie.tracks, [](const auto& track) {
    return track->media && track->media->samples.Count() != 0;
  });
  if (!hasSamples && findings.empty()) {
    subject.Warn("/moov", "the movie has no samples");
  }
}

// The findings for one file, the worst first.
Findings FindingsFor(const std::string& file) {
  Findings findings;
  try {
    CheckMovie(file, findings);
  } catch (...) {
    const toolbox::Failure failure = CaughtFailure(file);
    const bool isNoMovie = failure.code == toolbox::noMovieFound;
    findings.push_back({Severity::kFault,
                        failure.path,
                        0,
                        {},
                        isNoMovie ? ReasonForNoMovie(file) : ReasonOf(failure)});
  }
  std::ranges::stable_sort(findings, std::greater<>(), &Finding::severity);
  return findings;
}

const char* NameOf(Severity severity) { return severity == Severity::kFault ? "fault" : "warning"; }

// "ok", or the worst kind of finding.
const char* StatusOf(const Findings& findings) {
  return findings.empty() ? "ok" : NameOf(findings.front().severity);
}

void Print(const std::string& file, const Findings& findings) {
  if (findings.empty()) std::cout << utils::Visible(file) << ": ok\n";
  for (const Finding& finding : findings) {
    const std::string where = finding.where.empty() ? "" : finding.where + ": ";
    const std::string track = finding.trackName.empty() ? "" : finding.trackName + ": ";
    std::cout << utils::Visible(file) << ": " << NameOf(finding.severity) << ": "
              << utils::Visible(where + track + finding.text) << '\n';
  }
}

Json JsonOf(const std::string& file, const Findings& findings) {
  Json list = Json::array();
  for (const Finding& finding : findings) {
    Json entry{{"severity", NameOf(finding.severity)}};
    if (!finding.where.empty()) entry["atom"] = finding.where;
    if (finding.track != 0) {
      entry["track"] = finding.track;
      entry["trackName"] = finding.trackName;
    }
    entry["text"] = finding.text;
    list.push_back(std::move(entry));
  }
  return {{"file", file}, {"status", StatusOf(findings)}, {"findings", std::move(list)}};
}

}  // namespace

int Check(const Options& options) {
  int status = 0;
  Json all = Json::array();
  for (const Subject& movie : options.movies) {
    const Findings findings = FindingsFor(movie.file);
    if (!findings.empty() && findings.front().severity == Severity::kFault) status = 1;
    if (options.isJson) {
      all.push_back(JsonOf(movie.file, findings));
    } else {
      Print(movie.file, findings);
      std::cout.flush();  // a check of many movies takes a while
    }
  }
  // Names of files and tracks can have bytes that are not UTF-8.
  if (options.isJson) {
    std::cout << all.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
  }
  return status;
}

}  // namespace clipinfo
