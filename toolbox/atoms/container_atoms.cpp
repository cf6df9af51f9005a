#include "toolbox/atoms/container_atoms.h"

#include <map>
#include <utility>

namespace toolbox {

void UserDataAtoms::Read(ByteSpan content) {
  constexpr FourCC kMeta{"meta"};
  ByteSpan tail;
  for (const AtomView& atom : SplitAtoms(content, &tail)) {
    // A size of 0 is the terminator of the list, not an atom that reaches to the end.
    if (FromBigEndian<std::uint32_t>(atom.whole.data()) == 0) break;
    UserDataItem item{atom.type, {atom.content.begin(), atom.content.end()}};
    // In the QuickTime form the content starts with the head of the first child, 'hdlr'.
    const auto frame = ReadFrame(atom.content, atom.content.size());
    if (atom.type == kMeta && frame && frame->type == Handler::kType) {
      item.payload.insert(item.payload.begin(), 4, 0);
    }
    items.push_back(std::move(item));
  }
}

void TrackReferenceAtoms::Read(ByteSpan content) {
  std::map<FourCC, std::size_t> places;  // the index in `lists` of each type
  for (const AtomView& atom : SplitAtoms(content)) {
    const auto [place, isNew] = places.try_emplace(atom.type, lists.size());
    if (isNew) lists.push_back({atom.type, {}});
    std::vector<std::uint32_t>& tracks = lists[place->second].tracks;
    for (std::size_t at = 0; at + 4 <= atom.content.size(); at += 4) {
      tracks.push_back(FromBigEndian<std::uint32_t>(&atom.content[at]));
    }
  }
}

}  // namespace toolbox
