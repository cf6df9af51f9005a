// Whether the file of a movie is whole: the reader leaves out fragments that are not complete.
#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <map>

#include "clipinfo/findings.h"
#include "toolbox/atoms/adts.h"
#include "toolbox/atoms/atom_heads.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/read/top_level.h"

namespace clipinfo {
namespace {

using toolbox::FourCC;

constexpr FourCC kMediaData{"mdat"};

// Samples of fragments by the id of their track.
using Counts = std::map<std::uint32_t, std::uint64_t>;

void AddSamples(const toolbox::MovieFragment& fragment, Counts& counts) {
  for (const toolbox::TrackFragment& track : fragment.tracks) {
    for (const toolbox::TrackRun& run : track.runs) counts[track.header.track] += run.count;
  }
}

// The samples in all fragments of the file. Reports fragments that are malformed.
Counts CountSamples(const MovieToCheck& movie, const toolbox::ByteSource& source) {
  Counts counts;
  toolbox::TopLevelWalk walk(source);
  while (const auto atom = walk.Next()) {
    if (atom->type != toolbox::MovieFragment::kType) continue;
    try {
      AddSamples(toolbox::Decode<toolbox::MovieFragment>(walk.Content(*atom)), counts);
    } catch (const toolbox::Malformed& fault) {
      // The reader has stopped before this fragment; otherwise it would have thrown this.
      movie.Fault(fault.path, fault.reason);
    }
  }
  return counts;
}

// Reports samples of fragments that the movie does not have. `endsInside`: the file ends inside the
// head of a fragment, so it is unknown how many that has.
void CheckFragments(const MovieToCheck& movie, Counts counts, bool endsInside) {
  std::uint64_t lost = 0;
  toolbox::MovieTime end = movie.movie.Duration();
  for (const TrackToCheck& track : movie.tracks) {
    const auto found = counts.find(track.track.header.id);
    if (!track.track.media || found == counts.end()) continue;
    const std::uint64_t stated =
        found->second + CountOfSizes(track.stated->media->information.table);
    const std::uint64_t read = track.track.media->samples.Count();
    if (stated > read) lost += stated - read;
    end = std::min(end, track.track.edits.Duration());
    counts.erase(found);  // another track with the same id gets no fragments
  }
  if (lost == 0 && !endsInside) return;
  const std::string samples =
      lost == 0 ? "nothing can" : "at least " + Counted(lost, "sample") + " cannot";
  movie.Fault(endsInside ? "/moof" : "/moof/traf/trun",
              "the file was cut off inside a fragment: from " +
                  SecondsText(end.units, movie.movie.header.scale) + " on, " + samples +
                  " be shown");
}

void CheckAtoms(const MovieToCheck& movie, const toolbox::ByteSource& source) {
  toolbox::TopLevelWalk walk(source);
  while (walk.Next()) continue;
  const FourCC cut = toolbox::FourCCAt(walk.Following(), 4);
  if (movie.stated->extends) {
    CheckFragments(movie, CountSamples(movie, source), cut == toolbox::MovieFragment::kType);
  }
  // If data are missing, that has been reported, and this would repeat it.
  const bool isMissed = std::ranges::any_of(
      movie.findings, [](const Finding& found) { return found.severity == Severity::kFault; });
  const auto frame = toolbox::ReadFrame(walk.Following(), UINT64_MAX);
  if (isMissed || !frame || (cut != kMediaData && cut != toolbox::MovieAtoms::kType)) return;
  const std::uint64_t missing = frame->size - (source.Size() - walk.End());
  movie.Warn("/" + cut.Text(), "the file ends " + Counted(missing, "byte") +
                                   " before the atom; no sample needs them");
}

// Raw AAC: whether the file ends inside a frame.
void CheckFrames(const MovieToCheck& movie, const toolbox::ByteSource& source) {
  const toolbox::SampleTable& samples = movie.movie.tracks.front()->media->samples;
  std::uint64_t end = 0;
  ForEachPiece(samples, {samples.Count() - 1, samples.Count()},
               [&end](const toolbox::SamplePiece& last) { end = last.offset + last.size; });
  toolbox::Bytes head(std::min<std::uint64_t>(toolbox::AdtsHeader::kSize, source.Size() - end));
  source.Read(end, head);
  const auto frame = toolbox::ReadAdtsHeader(head);
  if (!frame || frame->frameSize <= source.Size() - end) return;
  movie.Fault("", "the file was cut off inside the frame of sound at " +
                      SecondsText(movie.movie.Duration().units, movie.movie.header.scale));
}

}  // namespace

std::string ReasonForNoMovie(const std::string& name) {
  const toolbox::FileSource source(boost::filesystem::absolute(name));
  toolbox::TopLevelWalk walk(source);
  bool hasFragments = false, hasMedia = false;
  while (const auto atom = walk.Next()) {
    hasFragments |= atom->type == toolbox::MovieFragment::kType;
    hasMedia |= atom->type == kMediaData;
  }
  const toolbox::ByteSpan rest = walk.Following();
  std::string reason = "it contains no movie";
  if (source.Size() == 0) return reason + ": it is empty";
  if (hasFragments) return reason + ", only fragments: their header is in another file";
  // A type that cannot be printed is no type.
  const std::string cut = rest.size() < 8 ? "" : toolbox::FourCCAt(rest, 4).Text();
  if (walk.End() == 0 && cut.size() != 4) return reason + ": it does not start with an atom";
  if (rest.empty()) reason += ": the header ('moov') is missing";
  if (!cut.empty()) {
    reason += ": it ends inside '" + cut + "' at byte " + std::to_string(walk.End());
  } else if (!rest.empty()) {
    reason += ": it ends inside the start of an atom";
  }
  if (hasMedia) reason += ". It has media data, so the recording was not finished";
  return reason;
}

void CheckEnd(const MovieToCheck& movie) {
  const toolbox::FileSource source(movie.movie.file->path);
  movie.stated != nullptr ? CheckAtoms(movie, source) : CheckFrames(movie, source);
}

}  // namespace clipinfo
