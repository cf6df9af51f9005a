// Finds the track of an output that shows what a track of an input shows.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "clipinfo/hashes.h"
#include "clipinfo/open.h"
#include "clipinfo/presented.h"

namespace clipinfo {

// The part of an input that the output is to show, and where. The movie must outlive it.
struct Part {
  const OpenedMovie* input = nullptr;
  toolbox::MovieTime from, length;  // in the units of the input
  Nanoseconds base = 0;  // where it starts in the output
};

// A track of the output, and what the inputs show in its place.
struct MatchedTrack {
  const toolbox::TrackRecord* track = nullptr;
  std::string name;  // as -track takes it
  std::vector<Stretch> expected, found;
  // For chapters: the times of inputs that list their chapters without a track.
  std::vector<std::pair<Nanoseconds, Nanoseconds>> listed;
};

struct Matches {
  std::vector<MatchedTrack> tracks;  // those of the output
  std::vector<std::string> missing;  // tracks of the inputs that the output lacks
  std::vector<std::string> leftOut;  // those that it lacks by rule, with the reason
};

// Matches tracks of one kind of media, by what they show: first by times and sizes of samples, and
// by their bytes where several tracks could match. Throws what reading samples throws.
Matches MatchTracks(const OpenedMovie& output, const std::vector<Part>& parts,
                    Nanoseconds tolerance, Files& files);

}  // namespace clipinfo
