// References from track to track.
#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/track.h"
#include "toolbox/toolbox.h"

namespace toolbox {

FourCC GetNextTrackReferenceType(Track track, FourCC previous) {
  return Call(__func__, [&] { return NextType(Valid(track).references, previous); });
}

std::int32_t GetTrackReferenceCount(Track track, FourCC type) {
  return Call(__func__,
              [&] { return static_cast<std::int32_t>(Valid(track).CountReferences(type)); });
}

Track GetTrackReference(Track track, FourCC type, std::int32_t number) {
  return Call(__func__, [&] { return Valid(track).Reference(type, Unsigned(number)); });
}

OSErr AddTrackReference(Track track, Track target, FourCC type, std::int32_t* number) {
  return Call(__func__, [&] {
    if (Valid(track).movie != Valid(target).movie) throw Refused{trackNotInMovie};
    // Refer() would not do, because a caller may add the same reference twice.
    SetResult(number, track->AddReference(type, *target));
  });
}

OSErr DeleteTrackReference(Track track, FourCC type, std::int32_t number) {
  return Call(__func__, [&] { Valid(track).RemoveReference(type, Unsigned(number)); });
}

}  // namespace toolbox
