#include "toolbox/files/top_level.h"

#include <algorithm>

namespace toolbox {
namespace {

// Reads the file a block at a time, so that a run of small atoms costs one read.
class FrameReader {
 public:
  explicit FrameReader(const ByteSource& source) : source_(source) {}

  // The bytes at `at`, up to the 16 that a frame can have.
  ByteSpan At(std::uint64_t at) {
    const std::uint64_t wanted = std::min<std::uint64_t>(16, source_.Size() - at);
    if (at < start_ || at + wanted > start_ + block_.size()) {
      start_ = at;
      block_.resize(std::min<std::uint64_t>(kBlock, source_.Size() - at));
      source_.Read(start_, block_);
    }
    return ByteSpan(block_).subspan(at - start_, wanted);
  }

 private:
  static constexpr std::size_t kBlock = 4096;
  const ByteSource& source_;
  std::uint64_t start_ = 0;
  Bytes block_;
};

// Calls visit(TopLevelAtom) for each whole atom until it returns false; gives back where the walk
// ended.
template <class Visit>
std::uint64_t Walk(const ByteSource& source, FrameReader& reader, Visit&& visit) {
  std::uint64_t at = 0;
  while (at < source.Size()) {
    const auto frame = ReadFrame(reader.At(at), source.Size() - at);
    if (!frame || !visit(TopLevelAtom{at, *frame})) break;
    at += frame->size;
  }
  return at;
}

}  // namespace

TopLevelLayout TopLevelAtoms(const ByteSource& source) {
  TopLevelLayout layout;
  FrameReader reader(source);
  layout.end = Walk(source, reader, [&](const TopLevelAtom& atom) {
    layout.atoms.push_back(atom);
    return true;
  });
  return layout;
}

std::vector<TopLevelAtom> OtherTopLevelAtoms(const ByteSource& source) {
  // 'meta' locates items by their place in the file.
  static constexpr FourCC kOwn[] = {FourCC{"ftyp"}, FourCC{"moov"}, FourCC{"mdat"}, FourCC{"free"},
                                    FourCC{"skip"}, FourCC{"wide"}, FourCC{"pnot"}, FourCC{"meta"},
                                    FourCC{"moof"}, FourCC{"mfra"}, FourCC{"sidx"}, FourCC{"ssix"},
                                    FourCC{"styp"}, FourCC{"emsg"}, FourCC{"prft"}};
  std::vector<TopLevelAtom> atoms = TopLevelAtoms(source).atoms;
  std::erase_if(atoms, [](const TopLevelAtom& atom) {
    return std::ranges::find(kOwn, atom.atom.type) != std::end(kOwn);
  });
  return atoms;
}

std::optional<TopLevelAtom> FindTopLevel(const ByteSource& source, FourCC type) {
  std::optional<TopLevelAtom> found;
  FrameReader reader(source);
  const std::uint64_t end = Walk(source, reader, [&](const TopLevelAtom& atom) {
    if (atom.atom.type == type) found = atom;
    return !found;
  });
  if (!found && end + 8 <= source.Size() &&
      FromBigEndian<std::uint32_t>(&reader.At(end)[4]) == type.value) {
    throw Malformed("the file ends inside '" + type.Text() + "'");
  }
  return found;
}

}  // namespace toolbox
