// Checks the references that callers pass, and returns the records that they refer to.
#pragma once

#include <string>

#include "toolbox/movie/media.h"
#include "toolbox/refused.h"
#include "toolbox/toolbox.h"

namespace toolbox {

struct StringRecord {
  std::string text;  // UTF-8; a path may have other bytes
};

// Each returns the record, or throws Refused with the code for a null reference of its type.
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
inline ExporterRecord& Valid(MovieExportComponent component) {
  if (component == nullptr) throw Refused{invalidComponentID};
  return *component;
}

}  // namespace toolbox
