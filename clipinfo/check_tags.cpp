// Whether the atoms of tags and other user data are whole. They are copied without being
// understood, so the reader of movies accepts all of them.
#include <algorithm>
#include <functional>
#include <string>

#include "clipinfo/findings.h"
#include "toolbox/atoms/atom_heads.h"
#include "toolbox/atoms/framing.h"

namespace clipinfo {
namespace {

using toolbox::ByteSpan;
using toolbox::FourCC;

constexpr FourCC kMeta{"meta"}, kItemList{"ilst"};

// The children of a 'meta'. ISO: version and flags come before them. QuickTime has none.
ByteSpan ChildrenOfMeta(ByteSpan content) {
  const bool isIso = content.size() >= 4 && toolbox::FourCCAt(content, 4) != FourCC{"hdlr"};
  return isIso ? content.subspan(4) : content;
}

// Real tags have four levels. This limits what hostile ones take of the stack.
constexpr int kDeepest = 8;

class TagCheck {
 public:
  explicit TagCheck(const MovieToCheck& movie) : movie_(movie) {}

  // Checks the user data among the atoms in `content`, which are children of the atom at `path`.
  void FindIn(ByteSpan content, const std::string& path) {
    ByteSpan tail;
    std::size_t track = 0;
    for (const toolbox::AtomView& atom : toolbox::SplitAtoms(content, &tail)) {
      std::string child = path + "/" + atom.type.Text();
      if (atom.type == FourCC{"trak"}) {
        child += "[" + std::to_string(++track) + "]";
        FindIn(atom.content, child);
      } else if (atom.type == FourCC{"udta"}) {
        Check(atom.content, child, false);
      } else if (atom.type == kMeta) {
        Check(ChildrenOfMeta(atom.content), child, false);
      }
    }
  }

 private:
  // Checks that `content` is whole atoms; zeros may follow the last. In a list of items, each item
  // contains atoms too.
  void Check(ByteSpan content, const std::string& path, bool isItemList, int depth = 0) {
    ByteSpan tail;
    for (const toolbox::AtomView& atom : toolbox::SplitAtoms(content, &tail)) {
      const bool isMeta = atom.type == kMeta, isList = atom.type == kItemList;
      if (depth == kDeepest || !(isMeta || isList || isItemList)) continue;
      Check(isMeta ? ChildrenOfMeta(atom.content) : atom.content, path + "/" + atom.type.Text(),
            isList, depth + 1);
    }
    ReportTail(tail, path);
  }
  void ReportTail(ByteSpan tail, const std::string& path) {
    if (std::ranges::none_of(tail, std::identity())) return;
    movie_.Warn(path, "its last " + Counted(tail.size(), "byte") +
                          " are no whole atom, so tags can be missing");
  }

  const MovieToCheck& movie_;
};

}  // namespace

void CheckTags(const MovieToCheck& movie) { TagCheck(movie).FindIn(movie.header, "/moov"); }

}  // namespace clipinfo
