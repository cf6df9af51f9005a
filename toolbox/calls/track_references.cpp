// References from track to track.
#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/track.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

// The number of a reference; 0, which no reference has, for a negative one.
std::size_t ReferenceNumber(std::int32_t number) {
  return number < 0 ? 0 : static_cast<std::size_t>(number);
}

}  // namespace

std::int32_t GetTrackReferenceCount(Track track, FourCC type) {
  return Call("GetTrackReferenceCount",
              [&] { return static_cast<std::int32_t>(Valid(track).CountReferences(type)); });
}

Track GetTrackReference(Track track, FourCC type, std::int32_t number) {
  return Call("GetTrackReference",
              [&] { return Valid(track).Reference(type, ReferenceNumber(number)); });
}

OSErr AddTrackReference(Track track, Track target, FourCC type, std::int32_t* number) {
  return Call("AddTrackReference", [&] {
    if (Valid(track).movie != Valid(target).movie) throw Refused{trackNotInMovie};
    const std::size_t added = track->AddReference(type, *target);
    if (number != nullptr) *number = static_cast<std::int32_t>(added);
  });
}

OSErr DeleteTrackReference(Track track, FourCC type, std::int32_t number) {
  return Call("DeleteTrackReference",
              [&] { Valid(track).RemoveReference(type, ReferenceNumber(number)); });
}

}  // namespace toolbox
