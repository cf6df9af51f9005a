#include "toolbox/atoms/children.h"

#include "toolbox/atoms/big_endian.h"

namespace toolbox {

ChildReader::ChildReader(ByteSpan content) {
  for (const AtomView& atom : SplitAtoms(content)) children_.push_back({atom});
}

void ChildReader::Read(Siblings& siblings) {
  for (const Child& child : children_) {
    Sibling& sibling = siblings.emplace_back(Sibling{child.atom.type, {}});
    if (child.isTaken) continue;
    sibling.bytes.assign(child.atom.whole.begin(), child.atom.whole.end());
    // A size of 0 means that the atom reaches to the end of its parent. It needs its real size,
    // because other atoms may be written after it.
    if (FromBigEndian<std::uint32_t>(sibling.bytes.data()) == 0) {
      ToBigEndian(static_cast<std::uint32_t>(sibling.bytes.size()), sibling.bytes.data());
    }
  }
}

}  // namespace toolbox
