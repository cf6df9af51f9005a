// What the calls make of the references they are given.
#pragma once

#include <string>

#include "toolbox/movie/media.h"
#include "toolbox/refused.h"
#include "toolbox/toolbox.h"

namespace toolbox {

struct StringRecord {
  std::string text;  // UTF-8, or the bytes of a path
};

// What the caller names; throws Refused when it names nothing.
inline MovieRecord& Valid(Movie movie) {
  if (movie == nullptr) throw Refused{invalidMovie};
  return *movie;
}

inline TrackRecord& Valid(Track track) {
  if (track == nullptr) throw Refused{invalidTrack};
  return *track;
}
inline MediaRecord& Valid(Media media) {
  if (media == nullptr) throw Refused{invalidMedia};
  return *media;
}
inline SampleTableRecord& Valid(QTMutableSampleTableRef table) {
  if (table == nullptr) throw Refused{paramErr};
  return *table;
}
inline UserDataRecord& Valid(UserData data) {
  if (data == nullptr) throw Refused{paramErr};
  return *data;
}

}  // namespace toolbox
