#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "clipinfo/compared.h"
#include "clipinfo/matched_tracks.h"
#include "clipinfo/modes.h"
#include "toolbox/movie/media_types.h"
#include "utils/visible.h"

namespace clipinfo {
namespace {

using toolbox::FourCC;
using toolbox::MovieTime;
using toolbox::TrackRecord;

// The largest difference of two times that is only rounding: a unit of the output, and at least
// 2 ms.
Nanoseconds ToleranceFor(const toolbox::MovieRecord& output) {
  constexpr Nanoseconds kLeast = kSecond / 500;
  return std::max(kLeast, InNanoseconds(1, output.header.scale) + 1);
}

// The parts of the inputs. Without -placeAt, each starts where the longest track before it ends, in
// whole units of the output.
std::vector<Part> PartsOf(const Options& options, const std::vector<OpenedMovie>& inputs,
                          std::int32_t scale) {
  std::vector<Part> parts;
  MovieTime end;  // in units of the output
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const Subject& subject = options.from[i];
    const toolbox::MovieRecord& movie = *inputs[i].movie;
    const MovieTime duration = movie.Duration();
    const auto units = [&](double seconds, std::int32_t perSecond) {
      return MovieTime{std::llrint(std::min(seconds * perSecond, 1e18))};
    };
    Part part{.input = &inputs[i]};
    part.from = std::min(units(subject.startAt, movie.header.scale), duration);
    part.length = duration - part.from;
    if (subject.trimTo) {
      part.length = std::min(part.length, units(*subject.trimTo, movie.header.scale));
    }
    const MovieTime start = subject.placeAt ? units(*subject.placeAt, scale) : end;
    part.base = InNanoseconds(start.units, scale);
    end = std::max(end, start + toolbox::ScaleChange{movie.header.scale, scale}(part.length));
    parts.push_back(part);
  }
  return parts;
}

// What one sample of a media is called.
std::string NounFor(FourCC type) {
  if (type == FourCC{"vide"}) return "picture";
  if (type == FourCC{"soun"}) return "packet";
  const bool isText = type == FourCC{"text"} || type == FourCC{"sbtl"} || type == FourCC{"subt"};
  return isText ? "text" : "sample";
}

// Compares the tracks, all of them piece by piece, and prints what is found.
class Proof {
 public:
  Proof(const Matches& matches, Nanoseconds tolerance, Files& files)
      : matches_(matches), hasher_(files) {
    for (const MatchedTrack& match : matches.tracks) {
      if (match.expected.empty() || match.found.empty()) {
        comparisons_.push_back(nullptr);
        continue;
      }
      const std::string noun = NounFor(match.track->media->Type());
      // Some media have so few units in a second that clips cannot start where they should.
      const Nanoseconds unit = InNanoseconds(1, match.track->media->header.scale) + 1;
      Sides sides{match.expected, match.found,    std::max(tolerance, unit),
                  match.listed,   noun == "text", noun,
                  files,          hasher_};
      std::set<const TrackRecord*> all{match.track};
      for (const Stretch& each : match.expected) all.insert(each.track);
      const bool isFrames = std::ranges::all_of(
          all, [](const TrackRecord* track) { return AreFrames(*track->media); });
      comparisons_.push_back(isFrames ? CompareFrames(std::move(sides))
                                      : CompareSamples(std::move(sides)));
    }
  }

  // Compares all samples. It always goes on with the track that is earliest in time, so that each
  // file is read from its start to its end.
  void Run() {
    for (;;) {
      Comparison* next = nullptr;
      for (const auto& each : comparisons_) {
        if (each && (next == nullptr || each->Time() < next->Time())) next = each.get();
      }
      if (next == nullptr || next->Time() == std::numeric_limits<Nanoseconds>::max()) return;
      next->Advance();
    }
  }

  // Prints the result and returns the exit status.
  int Print() const {
    std::vector<std::string> differences;
    for (const std::string& name : matches_.missing) differences.push_back(name + " is missing");
    HashOfHashes hash;
    std::uint64_t samples = 0, bytes = 0, tracks = 0;
    std::map<std::string, std::uint64_t> byRule;
    for (std::size_t i = 0; i < comparisons_.size(); ++i) {
      const MatchedTrack& match = matches_.tracks[i];
      if (!comparisons_[i]) {
        if (!match.found.empty()) differences.push_back(match.name + " is in no input");
        if (!match.expected.empty()) differences.push_back(match.name + " shows nothing");
        continue;
      }
      const Findings& findings = comparisons_[i]->findings;
      if (findings.difference) differences.push_back(match.name + ": " + *findings.difference);
      ++tracks;
      samples += findings.samples;
      bytes += findings.bytes;
      hash.Add(findings.hash.Value());
      for (const auto& [rule, count] : findings.byRule) byRule[match.name + ": " + rule] += count;
    }
    for (const std::string& each : differences) std::cout << utils::Visible(each) << '\n';
    if (differences.empty()) {
      std::cout << "same: " << tracks << (tracks == 1 ? " track, " : " tracks, ") << samples
                << (samples == 1 ? " sample, " : " samples, ") << bytes << " bytes, hash "
                << Text(hash.Value()) << '\n';
    }
    for (const auto& [rule, count] : byRule) {
      std::cout << "by rule: " << utils::Visible(rule) << " (" << count << ")\n";
    }
    for (const std::string& each : matches_.leftOut) {
      std::cout << "by rule: " << utils::Visible(each) << '\n';
    }
    return differences.empty() ? 0 : 1;
  }

 private:
  const Matches& matches_;
  Hasher hasher_;
  std::vector<std::unique_ptr<Comparison>> comparisons_;  // by track; null: one side is empty
};

}  // namespace

int Compare(const Options& options) {
  std::string name;
  try {
    const auto open = [&](const Subject& subject) {
      name = subject.file;
      OpenedMovie opened = OpenMovie(name);
      Resolve(opened);
      return opened;
    };
    const OpenedMovie output = open(options.movies.front());
    std::vector<OpenedMovie> inputs;
    for (const Subject& subject : options.from) inputs.push_back(open(subject));
    name = output.name;
    const Nanoseconds tolerance = ToleranceFor(*output.movie);
    Files files;
    const Matches matches =
        MatchTracks(output, PartsOf(options, inputs, output.movie->header.scale), tolerance, files);
    Proof proof(matches, tolerance, files);
    proof.Run();
    return proof.Print();
  } catch (...) {
    std::cout.flush();
    std::cerr << "clipinfo: " << LineFor(CaughtFailure(name)) << '\n';
    return 1;
  }
}

}  // namespace clipinfo
