#include "clipinfo/matched_tracks.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>
#include <utility>

#include "input/track_names.h"

namespace clipinfo {
namespace {

using toolbox::FourCC;
using toolbox::MovieRecord;
using toolbox::MovieTime;
using toolbox::TrackRecord;

constexpr FourCC kHint{"hint"}, kVideo{"vide"}, kSound{"soun"}, kText{"text"};
// Samples that are compared to find the track.
constexpr std::size_t kProbe = 24;

// What is known of one sample of a probe.
struct Sample {
  Nanoseconds from;
  std::uint64_t size;
  Hash hash;
};

std::vector<Stretch> AllOf(const TrackRecord& track) {
  return StretchesOf(track, {}, track.edits.Duration(), 0);
}

// The first samples that the stretches show at `start` or later.
std::vector<Sample> Probe(std::vector<Stretch> stretches, Nanoseconds start, Files& files) {
  constexpr std::uint64_t kMuch = 1 << 20;
  std::erase_if(stretches, [&](const Stretch& each) {
    return each.End() < start && !each.track->media->samples.IsTimeless();
  });
  std::vector<Sample> samples;
  if (stretches.empty()) return samples;
  Stretch& first = stretches.front();
  // A sample that started before is not compared.
  bool isCut = false;
  if (first.Start() < start && first.edit.rate == 1.0) {
    isCut = true;
    const toolbox::Clock clock = first.track->TimeClock();
    const MovieTime into{
        toolbox::Rescale(start - first.Start(), kSecond, clock.movie, toolbox::Rounding::kDown)};
    first.edit.mediaTime += clock.Shown(into, 1.0);
    first.edit.start += into;
    first.edit.duration = first.edit.duration - into;
  }
  Hasher hasher(files);
  const bool areFrames = AreFrames(*first.track->media);
  samples.reserve(kProbe);  // Hasher keeps references
  Presented rows(std::move(stretches), {.asFrames = areFrames}, files);
  std::uint64_t bytes = 0;
  while (samples.size() < kProbe && bytes < kMuch) {
    const auto row = rows.Next();
    if (!row) break;
    if (std::exchange(isCut, false) && row->isCut) continue;
    // The chunks of uncompressed sound differ.
    Piece piece = row->bytes;
    if (areFrames) piece.size = std::min<std::uint64_t>(piece.size, 256);
    bytes += piece.size;
    samples.push_back({row->from, piece.size, {}});
    hasher.Add(piece, samples.back().hash);
  }
  hasher.Run();
  return samples;
}

// How well two probes fit. Samples of silence all have the same bytes.
int Score(const std::vector<Sample>& a, const std::vector<Sample>& b, Nanoseconds tolerance) {
  int score = 0;
  for (const Sample& sample : a) {
    int best = 0;
    for (const Sample& other : b) {
      if (other.hash != sample.hash) continue;
      best = std::max(best, std::abs(other.from - sample.from) <= tolerance ? 2 : 1);
    }
    score += best;
  }
  return score;
}

// Whether both show something at one time. All samples of a timeless media are at one time.
bool Overlap(const std::vector<Stretch>& a, const std::vector<Stretch>& b, Nanoseconds tolerance) {
  if (a.empty() || b.empty()) return false;
  const auto end = [](const std::vector<Stretch>& list) {
    return std::ranges::max(list, {}, &Stretch::End).End();
  };
  const auto start = [](const std::vector<Stretch>& list) {
    return std::ranges::min(list, {}, &Stretch::Start).Start();
  };
  return start(a) < end(b) - tolerance && start(b) < end(a) - tolerance;
}

bool MayMatch(const TrackRecord& a, const TrackRecord& b) {
  return a.media && b.media && a.media->Type() == b.media->Type() &&
         a.media->samples.IsTimeless() == b.media->samples.IsTimeless();
}

// Whether another track refers to it as its chapters.
bool IsChapters(const TrackRecord& track) {
  return std::ranges::any_of(track.movie->tracks, [&](const auto& other) {
    for (std::size_t i = 1; i <= other->CountReferences(FourCC{"chap"}); ++i) {
      if (other->Reference(FourCC{"chap"}, i) == &track) return true;
    }
    return false;
  });
}

class Matcher {
 public:
  Matcher(const OpenedMovie& output, Nanoseconds tolerance, Files& files)
      : output_(*output.movie), tolerance_(tolerance), files_(files) {
    const std::vector<std::string> names = input::TrackNames(output.movie.get());
    for (std::size_t i = 0; i < output_.tracks.size(); ++i) {
      const TrackRecord& track = *output_.tracks[i];
      matches_.tracks.push_back({&track, names[i], {}, AllOf(track)});
    }
  }

  void Add(const Part& part, std::size_t number) {
    const std::vector<std::string> names = input::TrackNames(part.input->movie.get());
    if (part.input->movie->userData.Count(FourCC{"chpl"}) != 0) lists_.emplace_back(&part, number);
    std::vector<Wanted> wanted;
    for (std::size_t i = 0; i < names.size(); ++i) {
      const TrackRecord& track = *part.input->movie->tracks[i];
      const std::string name = names[i] + " of input " + std::to_string(number + 1);
      auto stretches = StretchesOf(track, part.from, part.length, part.base);
      for (Stretch& each : stretches) each.input = number;
      if (const char* reason = ReasonToLeaveOut(track, number, stretches)) {
        matches_.leftOut.push_back(name + ": " + reason);
      } else {
        wanted.push_back({&track, name, std::move(stretches)});
      }
    }
    Assign(wanted);
  }
  Matches Take() {
    std::erase_if(matches_.tracks, [this](const MatchedTrack& match) {
      const char* reason = match.expected.empty() ? ReasonToAdd(*match.track) : nullptr;
      if (reason != nullptr) matches_.leftOut.push_back(match.name + ": " + reason);
      return reason != nullptr;
    });
    for (MatchedTrack& match : matches_.tracks) AddLists(match);
    return std::move(matches_);
  }

 private:
  // A track of an input, and what it shows.
  struct Wanted {
    const TrackRecord* track;
    std::string name;
    std::vector<Stretch> stretches;
    MatchedTrack* match = nullptr;
  };

  // Why the output need not have such a track; null if it should have one.
  const char* ReasonToLeaveOut(const TrackRecord& track, std::size_t input,
                               const std::vector<Stretch>& stretches) const {
    static constexpr FourCC kSystems[] = {"odsm", "sdsm", "ocsm", "ipsm", "mjsm", "m7sm"};
    if (!track.media) return "it has no media";
    if (stretches.empty()) return "it shows nothing";
    const FourCC type = track.media->Type();
    const bool hasKind = std::ranges::any_of(
        output_.tracks, [&](const auto& other) { return MayMatch(*other, track); });
    if (type == kHint && output_.IsIso()) return "-mp4 makes hint tracks anew";
    if (type == kHint && (!hasKind || input != 0)) return "a join leaves out hint tracks";
    if (hasKind) return nullptr;
    if (std::ranges::find(kSystems, type) != std::end(kSystems)) {
      return "new files have no scenes and object descriptors";
    }
    return output_.IsIso() && !IsInMpeg4(track) ? "-mp4 leaves out such tracks" : nullptr;
  }
  // Whether -mp4 exports the track.
  static bool IsInMpeg4(const TrackRecord& track) {
    const FourCC type = track.media->Type();
    return type == kText ? IsChapters(track)
                         : (type == kVideo || type == kSound) && track.IsEnabled();
  }
  // Why the output has a track that no input has; null if it should not.
  const char* ReasonToAdd(const TrackRecord& track) const {
    if (!track.media) return "it has no media";
    if (track.media->Type() == kHint && output_.IsIso()) return "-mp4 makes hint tracks";
    const bool isListed = !lists_.empty() && track.media->Type() == kText && IsChapters(track);
    return isListed ? "chapters that an input lists in another way" : nullptr;
  }
  // Notes which inputs have chapters for the track but no track of their own.
  void AddLists(MatchedTrack& match) const {
    if (!match.track->media || match.track->media->Type() != kText || !IsChapters(*match.track)) {
      return;
    }
    for (const auto& [part, input] : lists_) {
      if (std::ranges::find(match.expected, input, &Stretch::input) != match.expected.end())
        continue;
      const std::int32_t scale = part->input->movie->header.scale;
      match.listed.emplace_back(part->base, part->base + InNanoseconds(part->length.units, scale));
    }
  }
  // Gives each track of an input the track of the output that fits best.
  void Assign(std::vector<Wanted>& wanted) {
    // Negative, so that the best is first; then those with room for more samples.
    std::vector<std::tuple<int, bool, std::size_t, std::size_t>> scores;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      std::vector<std::size_t> candidates;
      for (std::size_t j = 0; j < matches_.tracks.size(); ++j) {
        if (MayMatch(*wanted[i].track, *matches_.tracks[j].track)) candidates.push_back(j);
      }
      for (const std::size_t j : candidates) {
        const bool isSure =
            candidates.size() == 1 && std::ranges::count_if(wanted, [&](const Wanted& other) {
                                        return MayMatch(*wanted[i].track, *other.track);
                                      }) == 1;
        scores.emplace_back(isSure ? 0 : -ScoreOf(wanted[i], matches_.tracks[j]),
                            !HasRoom(matches_.tracks[j], *wanted[i].track), i, j);
      }
    }
    std::ranges::sort(scores);
    std::vector<bool> isUsed(matches_.tracks.size());
    for (const auto& [score, isFull, i, j] : scores) {
      Wanted& each = wanted[i];
      const bool isChapters = score < 0 && IsChapters(*each.track);
      const bool isTaken =
          isUsed[j] || Overlap(matches_.tracks[j].expected, each.stretches, tolerance_);
      if (each.match != nullptr || (isTaken && !isChapters)) continue;
      each.match = &matches_.tracks[j];
      isUsed[j] = true;
      std::vector<Stretch>& expected = each.match->expected;
      expected.insert(expected.end(), each.stretches.begin(), each.stretches.end());
    }
    for (const Wanted& each : wanted) {
      if (each.match != nullptr) continue;
      const bool isRule = output_.IsIso() && !IsInMpeg4(*each.track);
      (isRule ? matches_.leftOut : matches_.missing)
          .push_back(each.name + (isRule ? ": -mp4 leaves out such tracks" : ""));
    }
  }
  // Whether the track of the output has room for the samples of one more track. This matters only
  // for timeless samples, because they have no times that show which track they are from.
  static bool HasRoom(const MatchedTrack& match, const TrackRecord& track) {
    if (!track.media->samples.IsTimeless()) return true;
    std::uint64_t count = track.media->samples.Count();
    for (const Stretch& each : match.expected) count += each.track->media->samples.Count();
    return count <= match.track->media->samples.Count();
  }
  int ScoreOf(const Wanted& wanted, const MatchedTrack& match) const {
    const bool isAlike = std::ranges::any_of(match.track->media->descriptions, [&](auto& each) {
      return std::ranges::find(wanted.track->media->descriptions, each.Format(),
                               &toolbox::SampleDescription::Format) !=
             wanted.track->media->descriptions.end();
    });
    if (!isAlike) return -1;
    const auto probe = Probe(wanted.stretches, wanted.stretches.front().Start(), files_);
    if (probe.empty()) return 0;
    // The first packet of sound can be cut or lack the delay before it.
    return Score(probe, Probe(match.found, probe.front().from - tolerance_, files_), tolerance_);
  }

  const MovieRecord& output_;
  Nanoseconds tolerance_;
  Files& files_;
  Matches matches_;
  // The parts of inputs that list chapters, and the indexes of these inputs. MPEG-4 files can do so
  // without a track.
  std::vector<std::pair<const Part*, std::size_t>> lists_;
};

}  // namespace

Matches MatchTracks(const OpenedMovie& output, const std::vector<Part>& parts,
                    Nanoseconds tolerance, Files& files) {
  Matcher matcher(output, tolerance, files);
  for (std::size_t i = 0; i < parts.size(); ++i) matcher.Add(parts[i], i);
  return matcher.Take();
}

}  // namespace clipinfo
