// Tracks: finding, adding and removing them, and calls about a whole track.
#include "toolbox/movie/track.h"

#include "toolbox/calls/call.h"
#include "toolbox/calls/data_references.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/cuts.h"
#include "toolbox/movie/media_types.h"
#include "toolbox/movie/movie.h"
#include "toolbox/movie/new_media.h"
#include "toolbox/references/sources.h"
#include "toolbox/toolbox.h"

namespace toolbox {

std::int32_t GetMovieTrackCount(Movie movie) {
  return Call(__func__, [&] { return static_cast<std::int32_t>(Valid(movie).tracks.size()); });
}

Track GetMovieIndTrack(Movie movie, std::int32_t number) {
  return Call(__func__, [&] { return ItemAt(Valid(movie).tracks, number, badTrackIndex).get(); });
}

Track GetMovieIndTrackType(Movie movie, std::int32_t number, FourCC what, std::int32_t flags) {
  return Call(__func__, [&]() -> Track {
    const bool byType = (flags & movieTrackMediaType) != 0;
    const bool byCharacteristic = (flags & movieTrackCharacteristic) != 0;
    if (byType == byCharacteristic) throw Refused{paramErr};
    const auto matches = [&](const TrackRecord& track) {
      const bool counts = (flags & movieTrackEnabledOnly) == 0 || track.IsEnabled();
      if (!track.media || !counts) return false;
      if (byType) return track.media->Type() == what;
      const MediaType type = DescribeMediaType(track.media->Type());
      return (what == FourCC{"eyes"} && type.isSeen) || (what == FourCC{"ears"} && type.isHeard);
    };
    for (const auto& track : Valid(movie).tracks) {
      if (matches(*track) && --number == 0) return track.get();
    }
    return nullptr;
  });
}

TimeValue GetTrackDuration(Track track) {
  return Call(__func__, [&] { return Valid(track).edits.Duration().units; });
}

TimeValue GetTrackOffset(Track track) {
  return Call(__func__, [&] { return Valid(track).edits.Offset().units; });
}

void SetTrackOffset(Track track, TimeValue offset) {
  Call(__func__, [&] { SetOffset(Valid(track), {offset}); });
}

bool GetTrackEnabled(Track track) {
  return Call(__func__, [&] { return Valid(track).IsEnabled(); });
}

void SetTrackEnabled(Track track, bool isEnabled) {
  Call(__func__, [&] {
    std::uint32_t& flags = Valid(track).header.flags;
    flags = isEnabled ? flags | TrackHeader::kEnabled : flags & ~TrackHeader::kEnabled;
  });
}

void GetTrackMatrix(Track track, MatrixRecord* matrix) {
  Call(__func__, [&] { *matrix = Valid(track).header.matrix; });
}

void SetTrackMatrix(Track track, const MatrixRecord* matrix) {
  Call(__func__, [&] { Valid(track).header.matrix = *matrix; });
}

UserData GetTrackUserData(Track track) {
  return Call(__func__, [&] { return &Valid(track).userData; });
}

Media GetTrackMedia(Track track) {
  return Call(__func__, [&] {
    auto& media = Valid(track).media;
    return media ? &*media : nullptr;
  });
}

OSErr AddEmptyTrackToMovie(Track source, Movie destination, Handle dataRef, FourCC dataRefType,
                           Track* track) {
  *track = nullptr;
  return Call(__func__, [&] {
    const TrackRecord& like = Valid(source);
    MovieRecord& movie = Valid(destination);
    // The reference is made first, so that no track is added if it is refused.
    std::optional<DataReference> reference;
    if (dataRef != nullptr) reference = FileAt(PathOf(dataRef, dataRefType));
    TrackRecord& added = movie.AddTrackLike(like);
    if (reference && added.media) added.media->dataReferences.push_back(*reference);
    *track = &added;
  });
}

Track NewMovieTrack(Movie movie, Fixed width, Fixed height, std::int16_t volume) {
  return Call(__func__, [&] {
    TrackRecord& track = Valid(movie).AddTrack();
    track.header.width = width;
    track.header.height = height;
    track.header.volume = volume;
    return &track;
  });
}

Media NewTrackMedia(Track track, FourCC type, TimeScale scale, Handle dataRef, FourCC dataRefType) {
  return Call(__func__, [&] {
    const MovieRecord& movie = *Valid(track).movie;
    if (scale <= 0) throw Refused{paramErr};
    std::optional<DataReference> where = movie.defaultDataReference;
    if (dataRef != nullptr) where = ReferenceFrom(dataRef, dataRefType, movie.file);
    if (!where) throw Refused{noDefaultDataRef};
    return &track->SetMedia(NewMedia(type, scale, *where, movie.IsIso()));
  });
}

void DisposeMovieTrack(Track track) {
  Call(__func__, [&] { Valid(track).movie->RemoveTrack(*track); });
}

}  // namespace toolbox
