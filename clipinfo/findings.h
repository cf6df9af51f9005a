// What a check of a movie finds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/movie/movie.h"

namespace clipinfo {

// A fault means that something of the movie cannot be shown, or that readers have to guess. A
// warning is for oddities with which players play the movie in full.
enum class Severity { kWarning, kFault };

struct Finding {
  Severity severity = Severity::kFault;
  std::string where;  // the path of the atom; empty if it is about the whole file
  std::size_t track = 0;  // its number, from 1; 0 if it is about no track
  std::string trackName;
  std::string text;  // what it means to a user
};
using Findings = std::vector<Finding>;

// A track to be checked: as the movie has it, and as the file states it.
struct TrackToCheck {
  const toolbox::TrackRecord& track;
  const toolbox::TrackAtoms* stated = nullptr;  // null if the file has no movie header
  std::size_t number = 0;  // from 1
  std::string name;
  Findings& findings;

  // The path of an atom, which is given from the track on: "mdia/mdhd".
  std::string PathOf(const std::string& atom) const {
    return "/moov/trak[" + std::to_string(number) + "]/" + atom;
  }
  void Report(Severity severity, const std::string& atom, std::string text) const {
    findings.push_back({severity, PathOf(atom), number, name, std::move(text)});
  }
  void Fault(const std::string& atom, std::string text) const {
    Report(Severity::kFault, atom, std::move(text));
  }
  void Warn(const std::string& atom, std::string text) const {
    Report(Severity::kWarning, atom, std::move(text));
  }
};

// A movie to be checked. Its references to other files are resolved.
struct MovieToCheck {
  const toolbox::MovieRecord& movie;
  const toolbox::MovieAtoms* stated = nullptr;  // null if the file has no movie header
  toolbox::ByteSpan header;  // the bytes of that header, inflated
  std::vector<TrackToCheck> tracks;
  Findings& findings;

  // Reports a finding about the file. `where` is the path of an atom, or empty.
  void Fault(const std::string& where, std::string text) const {
    findings.push_back({Severity::kFault, where, 0, {}, std::move(text)});
  }
  void Warn(const std::string& where, std::string text) const {
    findings.push_back({Severity::kWarning, where, 0, {}, std::move(text)});
  }
};

// The checks. They read no sample data. All of them can throw what reading a movie throws.

// The sample tables of each track agree with one another.
void CheckTables(const MovieToCheck& movie);
// Every sample is in a file that is there and long enough, and inside its media data.
void CheckPlaces(const MovieToCheck& movie);
// The file of the movie does not end inside an atom, and the reader has taken all its fragments.
void CheckEnd(const MovieToCheck& movie);
// Edits are inside the media, and the headers state the durations that the tracks have.
void CheckTimes(const MovieToCheck& movie);
// References to tracks lead to tracks, and chapters are in order.
void CheckChapters(const MovieToCheck& movie);
// Tags and other user data are whole atoms.
void CheckTags(const MovieToCheck& movie);

// Why there is no movie in the file, in words. Throws what reading a file throws.
std::string ReasonForNoMovie(const std::string& name);

// How many samples the table of sizes has.
std::uint64_t CountOfSizes(const toolbox::SampleTableAtoms& table);

// Some words for findings: "1.250 s"; "1 sample", "2 samples".
std::string SecondsText(std::int64_t units, std::int64_t scale);
std::string Counted(std::uint64_t count, const std::string& noun);

// When the movie shows the media time, as text. Without such a time, the media time itself.
std::string WhenShown(const toolbox::TrackRecord& track, toolbox::MediaTime time);

}  // namespace clipinfo
