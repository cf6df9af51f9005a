// The children of an atom, listed once: read and written by the same list.
//
// An atom of atoms is a struct with its type and one function that names its children:
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
//   io.One(child)        exactly one; reading throws Malformed when there is none
//   io.Maybe(child)      one or none: an optional atom, or an optional variant of atoms
//   io.Each(children)    any number: a vector of atoms, or of variants of atoms in file order
//   io.Others(siblings)  all other children as bytes, and the order that all of them had
// clang-format on
//
// Children are read in any order. They are written in the order they had; new ones follow in the
// order of the list. A child without a place in the list, or a second one of a kind that may be
// there once, goes out as it came in.
//
// An atom whose children are of any type has the members Read(ByteSpan content) and Put(io)
// instead.
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

// Both are defined in fields.h.
template <class A>
A Decode(ByteSpan content);
template <class A>
void PutAtom(auto& io, const A& atom);

class ChildReader;
template <class A>
concept Container = requires(ChildReader& io, A& atom) {
  A::Children(io, atom);
};
template <class A>
concept ReadsItself = requires(A& atom, ByteSpan content) {
  atom.Read(content);
};
// An atom that shares its type with another: A::IsIn says whether it is the one in `content`.
template <class A>
concept Conditional = requires(ByteSpan content) {
  { A::IsIn(content) } -> std::same_as<bool>;
};

// Takes the children that a container lists out of its bytes.
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
  // Takes the first alternative that is there.
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
    bool isTaken = false;
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

// Writes or measures the children that a container lists, each in its place.
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

  // Writes all of them; the container must still be there.
  void Finish() {
    for (const Sibling& sibling : order_) {
      if (!sibling.bytes.empty()) {
        io_.Append(sibling.bytes);
        continue;
      }
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
    std::function<void()> write;
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
