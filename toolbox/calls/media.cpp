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
  return Call("GetMediaDuration", [&] { return Valid(media).samples.Duration().units; });
}

TimeValue GetMediaDecodeDuration(Media media) {
  return Call("GetMediaDecodeDuration", [&] { return Valid(media).samples.Duration().units; });
}

TimeScale GetMediaTimeScale(Media media) {
  return Call("GetMediaTimeScale", [&] { return Valid(media).header.scale; });
}

MediaHandler GetMediaHandler(Media media) {
  return Call("GetMediaHandler", [&] { return &Valid(media); });
}

void GetMediaHandlerDescription(Media media, FourCC* type, char*, FourCC* manufacturer) {
  Call("GetMediaHandlerDescription", [&] {
    const Handler& handler = Valid(media).handler;
    if (type != nullptr) *type = handler.subtype;
    if (manufacturer != nullptr) *manufacturer = handler.manufacturer;
  });
}

OSErr MediaGetName(MediaHandler handler, unsigned char* name, std::int32_t,
                   std::int32_t* actualLanguage) {
  return Call("MediaGetName", [&] {
    const std::string text = DescribeMediaType(Valid(handler).Type()).name;
    name[0] = static_cast<unsigned char>(text.size());
    std::ranges::copy(text, name + 1);
    if (actualLanguage != nullptr) *actualLanguage = 0;
  });
}

OSErr MediaSetGraphicsMode(MediaHandler handler, std::int32_t mode, const RGBColor* opColor) {
  return Call("MediaSetGraphicsMode", [&] {
    if (!DescribeMediaType(Valid(handler).Type()).isSeen) throw Refused{badComponentSelector};
    SetGraphicsMode(handler->infoSiblings, static_cast<std::uint16_t>(mode),
                    {opColor->red, opColor->green, opColor->blue});
  });
}

std::int32_t GetMediaSampleDescriptionCount(Media media) {
  return Call("GetMediaSampleDescriptionCount",
              [&] { return static_cast<std::int32_t>(Valid(media).descriptions.size()); });
}

void GetMediaSampleDescription(Media media, std::int32_t number, Handle description) {
  Call("GetMediaSampleDescription", [&] {
    const auto& descriptions = Valid(media).descriptions;
    const auto index = static_cast<std::size_t>(number) - 1;
    if (description == nullptr) throw Refused{nilHandleErr};
    if (number < 1 || index >= descriptions.size()) throw Refused{invalidSampleDescIndex};
    description->bytes = descriptions[index].Numbered();
  });
}

OSErr GetMediaDataRefCount(Media media, std::int16_t* count) {
  return Call("GetMediaDataRefCount", [&] {
    constexpr std::size_t kMost = INT16_MAX;  // the type of the result has no room for more
    *count = static_cast<std::int16_t>(std::min(Valid(media).dataReferences.size(), kMost));
  });
}

OSErr GetMediaDataRef(Media media, std::int16_t number, Handle* dataRef, FourCC* type,
                      std::int32_t* attributes) {
  *dataRef = nullptr;
  return Call("GetMediaDataRef", [&] {
    const MediaRecord& record = Valid(media);
    const auto index = static_cast<std::size_t>(number) - 1;
    if (number < 1 || index >= record.dataReferences.size()) throw Refused{badDataRefIndex};
    const DataReference& reference = record.dataReferences[index];
    FourCC found;
    *dataRef = HandleFor(reference, record.MovieFile(), found);
    if (type != nullptr) *type = found;
    if (attributes != nullptr) {
      *attributes = std::holds_alternative<ThisFile>(reference)     ? dataRefSelfReference
                    : std::holds_alternative<Unresolved>(reference) ? dataRefWasNotResolved
                                                                    : 0;
    }
  });
}

OSErr AddMediaDataRef(Media media, std::int16_t* number, Handle dataRef, FourCC type) {
  return Call("AddMediaDataRef", [&] {
    MediaRecord& record = Valid(media);
    record.dataReferences.push_back(AnyReferenceFrom(dataRef, type, record.MovieFile()));
    if (number != nullptr) *number = static_cast<std::int16_t>(record.dataReferences.size());
  });
}

}  // namespace toolbox
