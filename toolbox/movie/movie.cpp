#include "toolbox/movie/movie.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <map>
#include <utility>
#include <variant>

namespace toolbox {
namespace {

// Visits the file of the movie and the files with media of its tracks.
void ForEachFile(auto& movie, auto&& visit) {
  if (movie.file) visit(*movie.file);
  for (auto& track : movie.tracks) {
    if (!track->media) continue;
    for (auto& reference : track->media->dataReferences) {
      if (auto* file = std::get_if<OtherFile>(&reference)) visit(*file);
    }
  }
}

std::vector<MovieRecord*>& AllMovies() {
  static std::vector<MovieRecord*> movies;
  return movies;
}

// Whether the track has packets for another track of the movie.
bool HasHints(const TrackRecord& track) {
  constexpr FourCC kHint{"hint"};
  return track.media && track.media->Type() == kHint && track.Reference(kHint, 1) != nullptr;
}

// The smallest id that none of the tracks has.
std::uint32_t SmallestFreeId(const std::vector<std::unique_ptr<TrackRecord>>& tracks) {
  std::vector<bool> isTaken(tracks.size() + 2);
  isTaken[0] = true;  // not an id
  for (const auto& track : tracks) {
    if (track->header.id < isTaken.size()) isTaken[track->header.id] = true;
  }
  return static_cast<std::uint32_t>(std::ranges::find(isTaken, false) - isTaken.begin());
}

}  // namespace

std::uint64_t Now() {
  constexpr std::uint64_t kUnixEpoch = 2082844800;  // seconds from 1904-01-01 to 1970-01-01
  // Fixes the clock for those who need the same output bytes each time.
  if (const char* fixed = std::getenv("SOURCE_DATE_EPOCH")) {
    return kUnixEpoch + std::strtoull(fixed, nullptr, 10);
  }
  return kUnixEpoch + static_cast<std::uint64_t>(std::time(nullptr));
}

MovieRecord::MovieRecord() { AllMovies().push_back(this); }

MovieRecord::~MovieRecord() { std::erase(AllMovies(), this); }

const std::vector<MovieRecord*>& MovieRecord::All() { return AllMovies(); }

bool MovieRecord::Uses(const FileIdentity& wanted) const {
  bool isUsed = false;
  ForEachFile(*this, [&](const OtherFile& used) { isUsed = isUsed || used.Is(wanted); });
  return isUsed;
}

void MovieRecord::Renew(const FileState& state) {
  if (file && file->Is(state.identity)) headerAt.reset();
  ForEachFile(*this, [&state](OtherFile& used) {
    if (used.Is(state.identity)) used.state = state;
  });
}

MovieTime MovieRecord::Duration() const {
  MovieTime longest;
  for (const auto& track : tracks) {
    if (!HasHints(*track)) longest = std::max(longest, track->edits.Duration());
  }
  return longest;
}

bool MovieRecord::IsIso() const {
  const auto isIso = [](const auto& track) {
    return track->media && track->media->handler.componentType == FourCC();
  };
  return std::ranges::any_of(tracks, isIso);
}

TrackRecord& MovieRecord::AddTrack(const TrackSettings& settings) {
  auto track = std::make_unique<TrackRecord>(TrackRecord{settings, this});
  track->header.id =
      header.nextTrackId == MovieHeader::kIdsUsedUp ? SmallestFreeId(tracks) : header.nextTrackId++;
  track->header.created = track->header.modified = Now();
  return *tracks.emplace_back(std::move(track));
}

TrackRecord& MovieRecord::AddTrackLike(const TrackRecord& like) {
  TrackRecord& track = AddTrack(like);
  if (like.media) {
    MediaRecord& media = track.SetMedia({});
    media.MediaSettings::operator=(*like.media);
    media.header.created = media.header.modified = track.header.created;
  }
  return track;
}

void MovieRecord::RemoveTrack(const TrackRecord& track) {
  for (const auto& other : tracks) {
    for (TrackReferences& list : other->references) std::erase(list.targets, &track);
    std::erase_if(other->references,
                  [](const TrackReferences& list) { return list.targets.empty(); });
  }
  // The id of the track made last is free again, so making a track and removing it changes nothing.
  if (header.nextTrackId == track.header.id + 1) --header.nextTrackId;
  std::erase_if(tracks, [&](const auto& candidate) { return candidate.get() == &track; });
}

std::unique_ptr<MovieRecord> MovieRecord::Clone() const {
  auto clone = std::make_unique<MovieRecord>();
  clone->MovieProperties::operator=(*this);
  std::map<const TrackRecord*, TrackRecord*> copies{{nullptr, nullptr}};
  for (const auto& track : tracks) {
    TrackRecord& copy = *clone->tracks.emplace_back(std::make_unique<TrackRecord>(*track));
    copy.movie = clone.get();
    if (copy.media) copy.media->track = &copy;
    copies[track.get()] = &copy;
  }
  for (const auto& track : clone->tracks) {
    for (TrackReferences& list : track->references) {
      for (TrackRecord*& target : list.targets) target = copies.at(target);
    }
  }
  return clone;
}

void MovieRecord::CopySettings(const MovieRecord& other) {
  static constexpr FourCC kClip{"clip"};
  header.rate = other.header.rate;
  header.volume = other.header.volume;
  header.matrix = other.header.matrix;
  userData = other.userData;
  if (&other == this) return;
  std::erase_if(siblings, [](const Sibling& sibling) { return sibling.type == kClip; });
  if (const Sibling* clip = FindSibling(other.siblings, kClip)) siblings.push_back(*clip);
}

void MovieRecord::SetScale(std::int32_t newScale) {
  if (newScale == header.scale) return;
  const ScaleChange place{header.scale, newScale};
  header.scale = newScale;
  for (const auto& track : tracks) track->edits.MapBoundaries(place, false, track->TimeClock());
  for (std::int64_t* time :
       {&header.previewTime, &header.previewDuration, &header.posterTime, &header.selectionTime,
        &header.selectionDuration, &header.currentTime}) {
    *time = place(MovieTime{*time}).units;
  }
}

}  // namespace toolbox
