#include "toolbox/movie/new_media.h"

#include <algorithm>
#include <string>
#include <utility>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/movie/media_types.h"
#include "toolbox/movie/movie.h"

namespace toolbox {
namespace {

constexpr std::uint16_t kUndetermined = 0x55C4;  // language 'und', packed

Bytes HeaderFor(FourCC type) {
  if (type == FourCC{"vide"} || type == FourCC{"soun"}) {
    const bool isVideo = type == FourCC{"vide"};
    return Encoded([&](auto& io) {
      io.Atom(isVideo ? FourCC{"vmhd"} : FourCC{"smhd"}, [&] {
        io("flags", std::uint32_t{isVideo});
        io.Append(Bytes(isVideo ? 8 : 4));
      });
    });
  }
  return Encoded([&](auto& io) {
    io.Atom(FourCC{"gmhd"}, [&] {
      PutAtom(io, GenericMediaInformation());
      if (type == FourCC{"text"}) PutAtom(io, TextMediaInformation());
    });
  });
}

// Counted in QuickTime movies, ended with a zero in MPEG-4 files.
Bytes HandlerName(const std::string& name, bool isIso) {
  Bytes bytes(name.begin(), name.end());
  if (isIso) {
    bytes.push_back(0);
  } else {
    bytes.insert(bytes.begin(), static_cast<std::uint8_t>(name.size()));
  }
  return bytes;
}

// QuickTime names a second handler, that of the data.
Bytes DataHandlerAtom() {
  Handler handler;
  handler.componentType = FourCC{"dhlr"};
  handler.subtype = FourCC{"alis"};
  handler.name = HandlerName("Data Handler", false);
  return Encode(handler);
}

}  // namespace

MediaRecord NewMedia(FourCC type, std::int32_t scale, DataReference where, bool isIso) {
  MediaRecord media;
  media.created = media.modified = Now();
  media.scale = scale;
  media.language = kUndetermined;
  media.handler.componentType = isIso ? FourCC() : FourCC{"mhlr"};
  media.handler.subtype = type;
  media.handler.name = HandlerName(DescribeMediaType(type).name + " Media Handler", isIso);
  const Bytes header = HeaderFor(type);
  media.infoSiblings.push_back({FourCC(FromBigEndian<std::uint32_t>(&header[4])), header});
  if (!isIso) media.infoSiblings.push_back({Handler::kType, DataHandlerAtom()});
  media.dataReferences.push_back(std::move(where));
  return media;
}

SampleDescription DescriptionOf(const TextDescription& text) { return {Encode(text), 0}; }

}  // namespace toolbox
