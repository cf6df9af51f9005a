#include "toolbox/movie/new_media.h"

#include <algorithm>
#include <utility>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/movie/media_types.h"
#include "toolbox/movie/movie.h"

namespace toolbox {
namespace {

constexpr std::uint16_t kUndetermined = 0x55C4;  // language 'und', packed

Sibling HeaderFor(FourCC type) {
  if (type == FourCC{"vide"}) return SiblingOf(VideoMediaHeader());
  if (type == FourCC{"soun"}) return SiblingOf(SoundMediaHeader());
  GenericMediaHeader header;
  if (type == FourCC{"text"}) header.text.emplace();
  return SiblingOf(header);
}

}  // namespace

MediaRecord NewMedia(FourCC type, std::int32_t scale, DataReference where, bool isIso) {
  MediaRecord media;
  media.header.created = media.header.modified = Now();
  media.header.scale = scale;
  media.header.language = kUndetermined;
  media.handler = NewHandler(isIso ? FourCC() : FourCC{"mhlr"}, type,
                             DescribeMediaType(type).name + " Media Handler");
  media.infoSiblings.push_back(HeaderFor(type));
  // QuickTime names a second handler, that of the data.
  if (!isIso) {
    media.infoSiblings.push_back(
        SiblingOf(NewHandler(FourCC{"dhlr"}, FourCC{"alis"}, "Data Handler")));
  }
  media.dataReferences.push_back(std::move(where));
  return media;
}

Bytes TextSample(ByteSpan text, std::optional<std::uint32_t> encoding) {
  std::size_t size = std::min<std::size_t>(text.size(), UINT16_MAX);
  if (size < text.size()) {
    // Every byte of a character but the first starts with the bits 10.
    while (size > 0 && (text[size] & 0xC0) == 0x80) --size;
  }
  return Encoded([&](auto& io) {
    io("size", static_cast<std::uint16_t>(size));
    io.Append(text.first(size));
    if (encoding) PutAtom(io, TextEncodingMark{*encoding});
  });
}

SampleDescription DescriptionOf(const TextDescription& text) { return {Encode(text), 0}; }

}  // namespace toolbox
