// Media: their duration, handler, sample descriptions and data references.
#include "toolbox/movie/media.h"

#include <algorithm>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/calls/call.h"
#include "toolbox/calls/data_references.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/media_types.h"
#include "toolbox/toolbox.h"

namespace toolbox {

TimeValue GetMediaDuration(Media media) {
  return Call(__func__, [&] { return Valid(media).samples.Duration().units; });
}

TimeValue GetMediaDecodeDuration(Media media) {
  return Call(__func__, [&] { return Valid(media).samples.Duration().units; });
}

TimeScale GetMediaTimeScale(Media media) {
  return Call(__func__, [&] { return Valid(media).header.scale; });
}

// A media is its own handler, because a separate record would have no state.
MediaHandler GetMediaHandler(Media media) {
  return Call(__func__, [&] { return &Valid(media); });
}

void GetMediaHandlerDescription(Media media, FourCC* type, char*, FourCC* manufacturer) {
  Call(__func__, [&] {
    const Handler& handler = Valid(media).handler;
    SetResult(type, handler.subtype);
    SetResult(manufacturer, handler.manufacturer);
  });
}

OSErr MediaGetName(MediaHandler handler, unsigned char* name, std::int32_t,
                   std::int32_t* actualLanguage) {
  return Call(__func__, [&] {
    // The length is in the first byte. No type has a name of more than 255 characters.
    const std::string text = DescribeMediaType(Valid(handler).Type()).name;
    name[0] = static_cast<unsigned char>(text.size());
    std::ranges::copy(text, name + 1);
    SetResult(actualLanguage, 0);
  });
}

OSErr MediaSetGraphicsMode(MediaHandler handler, std::int32_t mode, const RGBColor* opColor) {
  return Call(__func__, [&] {
    if (!DescribeMediaType(Valid(handler).Type()).isSeen) throw Refused{badComponentSelector};
    SetGraphicsMode(handler->infoSiblings, static_cast<std::uint16_t>(mode),
                    {opColor->red, opColor->green, opColor->blue});
  });
}

std::int32_t GetMediaSampleDescriptionCount(Media media) {
  return Call(__func__,
              [&] { return static_cast<std::int32_t>(Valid(media).descriptions.size()); });
}

void GetMediaSampleDescription(Media media, std::int32_t number, Handle description) {
  Call(__func__, [&] {
    const MediaRecord& record = Valid(media);
    HandleRecord& copy = Valid(description);
    // The number of the data reference in the stored bytes may be outdated. Numbered() sets it.
    copy.bytes = ItemAt(record.descriptions, number, invalidSampleDescIndex).Numbered();
  });
}

OSErr GetMediaDataRefCount(Media media, std::int16_t* count) {
  return Call(__func__, [&] {
    // The type of the result has no room for more than INT16_MAX.
    const std::size_t all = Valid(media).dataReferences.size();
    *count = static_cast<std::int16_t>(std::min<std::size_t>(all, INT16_MAX));
  });
}

OSErr GetMediaDataRef(Media media, std::int16_t number, Handle* dataRef, FourCC* type,
                      std::int32_t* attributes) {
  *dataRef = nullptr;
  return Call(__func__, [&] {
    const MediaRecord& record = Valid(media);
    const DataReference& reference = ItemAt(record.dataReferences, number, badDataRefIndex);
    *dataRef = HandleFor(reference, record.MovieFile(), type);
    const bool isOwn = std::holds_alternative<ThisFile>(reference);
    const bool isUnresolved = std::holds_alternative<Unresolved>(reference);
    SetResult(attributes,
              (isOwn ? dataRefSelfReference : 0) | (isUnresolved ? dataRefWasNotResolved : 0));
  });
}

OSErr AddMediaDataRef(Media media, std::int16_t* number, Handle dataRef, FourCC type) {
  return Call(__func__, [&] {
    MediaRecord& record = Valid(media);
    record.dataReferences.push_back(AnyReferenceFrom(dataRef, type, record.MovieFile()));
    SetResult(number, record.dataReferences.size());
  });
}

}  // namespace toolbox
