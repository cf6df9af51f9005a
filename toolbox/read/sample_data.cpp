#include "toolbox/read/sample_data.h"

#include "toolbox/movie/movie.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/refused.h"

namespace toolbox {

std::unique_ptr<ByteSource> OpenSource(const DataReference& reference,
                                       const std::optional<OtherFile>& ownFile) {
  if (const auto* memory = std::get_if<InMemory>(&reference)) {
    return std::make_unique<MemorySource>(*memory->data);
  }
  const auto* file = std::get_if<OtherFile>(&reference);
  if (std::holds_alternative<ThisFile>(reference) && ownFile) file = &*ownFile;
  if (file == nullptr) throw Refused{couldNotResolveDataRef};
  return std::make_unique<FileSource>(file->path);
}

SampleData ReadSample(const MediaRecord& media, std::uint64_t sample, std::uint64_t longest) {
  const auto [from, to] = WholePackets(media.samples, {sample, sample + 1});
  if (!IsLocated(media.samples, {from, to})) throw Refused{invalidSampleTable};
  const auto ownFile = media.track == nullptr ? std::nullopt : media.track->movie->file;
  SampleData data;
  data.first = from;
  ForEachPiece(media.samples, {from, to}, [&](const SamplePiece& piece) {
    if (longest != 0 && piece.size > longest) throw Refused{maxSizeToGrowTooSmall};
    const auto source = OpenSource(media.ReferenceOf(piece.description), ownFile);
    const std::uint64_t end = source->Size();
    if (piece.offset > end || piece.size > end - piece.offset) throw Refused{eofErr};
    data.count = piece.count;
    data.description = piece.description;
    data.bytes.resize(piece.size);
    source->Read(piece.offset, data.bytes);
  });
  return data;
}

}  // namespace toolbox
