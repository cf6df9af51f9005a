#include "toolbox/movie/new_media.h"

#include <algorithm>
#include <utility>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/movie/media_types.h"
#include "toolbox/movie/movie.h"

namespace toolbox {

Sibling HeaderFor(FourCC type) {
  if (type == FourCC{"vide"}) return SiblingOf(VideoMediaHeader());
  if (type == FourCC{"soun"}) return SiblingOf(SoundMediaHeader());
  GenericMediaHeader header;
  if (type == FourCC{"text"}) header.text.emplace();
  return SiblingOf(header);
}

MediaRecord NewMedia(FourCC type, std::int32_t scale, DataReference where, bool isIso) {
  MediaRecord media;
  media.header.created = media.header.modified = Now();
  media.header.scale = scale;
  media.header.language = kUndeterminedLanguage;
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

}  // namespace toolbox
