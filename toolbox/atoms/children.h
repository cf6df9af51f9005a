// The children of an atom, listed once: read and written by the same list.
//
// An atom that contains atoms is a struct with its type and one function that names its children:
//
//   struct EditAtoms {  // 'edts'
//     static constexpr FourCC kType{"edts"};
//     std::optional<EditEntries> entries;
//     Siblings others;
//     static void Children(auto& io, auto& edits) {
//       io.Maybe(edits.entries);
//       io.Others(edits.others);
//     }
//   };
//
// `io` is a ChildReader or a ChildWriter. Both have
//
// clang-format off
//   io.One(child)        exactly one; reading throws Malformed if there is none
//   io.Maybe(child)      one or none: an optional atom, or an optional variant of atoms
//   io.Each(children)    any number: a vector of atoms, or of variants of atoms in file order
//   io.Others(siblings)  all other children as bytes, and the order of all children; comes last
// clang-format on
//
// Children are read in any order and written in the order they were read. Children that are new
// come after them, in the order of the list. A child that is not in the list is kept as bytes and
// written unchanged. So is a second child of a type that the list allows once.
//
// An atom that can have children of any type, such as 'udta', has the members Read(ByteSpan
// content) and Put(io) instead.
#pragma once

#include <algorithm>
#include <concepts>
#include <functional>
#include <optional>
#include <span>
#include <tuple>
#include <variant>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/framing.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/atoms/siblings.h"
#include "toolbox/bytes.h"

namespace toolbox {

// Both are defined in fields.h, which includes this file.
template <class A>
A Decode(ByteSpan content);
template <class A>
void PutAtom(auto& io, const A& atom);

class ChildReader;
// An atom that lists its children.
template <class A>
concept Container = requires(ChildReader& io, A& atom) {
  A::Children(io, atom);
};
// An atom that has Read and Put instead of a list.
template <class A>
concept ReadsItself = requires(A& atom, ByteSpan content) {
  atom.Read(content);
};
// An atom whose type has several layouts, such as 'stsz'. A::IsIn(content) is true if `content` has
// the layout of A.
template <class A>
concept Conditional = requires(ByteSpan content) {
  { A::IsIn(content) } -> std::same_as<bool>;
};

// Decodes the children that a container lists. `content` must outlive the reader. All functions
// throw Malformed if a child they decode is malformed; the constructor, if `content` is not atoms.
class ChildReader {
 public:
  explicit ChildReader(ByteSpan content);

  template <class A>
  void One(A& child) {
    Child* const found = Find<A>();
    if (found == nullptr) throw Malformed("the atom '" + A::kType.Text() + "' is missing");
    child = Take<A>(*found);
  }
  template <class A>
  void Maybe(std::optional<A>& child) {
    if (Child* const found = Find<A>()) child = Take<A>(*found);
  }
  // Takes the first of the alternatives that is present. The order is that of the variant.
  template <class... As>
  void Maybe(std::optional<std::variant<As...>>& child) {
    const auto take = [&]<class A>() {
      Child* const found = Find<A>();
      if (found != nullptr) child = Take<A>(*found);
      return found != nullptr;
    };
    std::ignore = (take.template operator()<As>() || ...);
  }
  template <class A>
  void Each(std::vector<A>& children) {
    for (Child& child : children_) {
      if (Is<A>(child)) children.push_back(Take<A>(child));
    }
  }
  template <class... As>
  void Each(std::vector<std::variant<As...>>& children) {
    const auto take = [&]<class A>(Child& child) {
      const bool isTaken = Is<A>(child);
      if (isTaken) children.push_back(Take<A>(child));
      return isTaken;
    };
    for (Child& child : children_) {
      std::ignore = (take.template operator()<As>(child) || ...);
    }
  }
  void Others(Siblings& siblings) const;

 private:
  struct Child {
    AtomView atom;
    bool isTaken = false;  // decoded already; each child is decoded at most once
  };
  template <class A>
  static bool Is(const Child& child) {
    if (child.isTaken || child.atom.type != A::kType) return false;
    if constexpr (Conditional<A>) return A::IsIn(child.atom.content);
    return true;
  }
  template <class A>
  Child* Find() {
    const auto found = std::ranges::find_if(children_, Is<A>);
    return found == children_.end() ? nullptr : &*found;
  }
  template <class A>
  static A Take(Child& child) {
    child.isTaken = true;
    return Decode<A>(child.atom.content);
  }

  std::vector<Child> children_;
};

// Writes the children that a container lists, or measures them if Io is a FieldSizer. The list only
// collects the children; Finish() writes them, because their order is known only at the end.
template <class Io>
class ChildWriter {
 public:
  explicit ChildWriter(Io& io) : io_(io) {}

  template <class A>
  void One(const A& child) {
    Add(child);
  }
  template <class A>
  void Maybe(const std::optional<A>& child) {
    if (child) Add(*child);
  }
  template <class A>
  void Each(const std::vector<A>& children) {
    for (const A& child : children) Add(child);
  }
  void Others(const Siblings& siblings) { order_ = siblings; }

  // Writes all children in their order. The container must still exist.
  void Finish() {
    for (const Sibling& sibling : order_) {
      if (!sibling.bytes.empty()) {
        io_.Append(sibling.bytes);
        continue;
      }
      // A sibling without bytes only marks the place of a child that was decoded. If the model has
      // removed that child since, nothing is written here.
      const auto child = std::ranges::find_if(children_, [&](const Child& other) {
        return other.type == sibling.type && !other.isWritten;
      });
      if (child != children_.end()) Write(*child);
    }
    for (Child& child : children_) {
      if (!child.isWritten) Write(child);
    }
  }

 private:
  struct Child {
    FourCC type;
    std::function<void()> write;  // refers to the container
    bool isWritten = false;
  };
  template <class A>
  void Add(const A& child) {
    children_.push_back({A::kType, [this, &child] { PutAtom(io_, child); }});
  }
  template <class... As>
  void Add(const std::variant<As...>& child) {
    std::visit([this](const auto& atom) { this->Add(atom); }, child);
  }
  static void Write(Child& child) {
    child.isWritten = true;
    child.write();
  }

  Io& io_;
  std::span<const Sibling> order_;
  std::vector<Child> children_;
};

}  // namespace toolbox
