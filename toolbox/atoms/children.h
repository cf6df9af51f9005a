// The children of an atom: one list serves to read and to write them.
//
// An atom that contains atoms is a struct with its type and one function that names its children:
//
//   struct TrackAtoms {  // 'trak'
//     static constexpr FourCC kType{"trak"};
//     TrackHeader header;
//     std::optional<EditAtoms> edits;
//     Siblings others;
//     static void Children(auto& io, auto& track) { io(track.header, track.edits, track.others); }
//   };
//
// `io` is a ChildReader or a ChildWriter. The type of a member says how often the child occurs:
//
// clang-format off
//   A                 exactly one; reading throws Malformed if there is none
//   std::optional<A>  one or none; A can be a variant of atoms
//   std::vector<A>    any number; A can be a variant of atoms, which are then in file order
//   AtomsToMake<A>    any number; each is made only when it is written
//   Siblings          all other children as bytes, and the order of all children; comes last
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
#include <map>
#include <optional>
#include <span>
#include <tuple>
#include <utility>
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

// Children that are made one after the other while they are written, because all of them together
// would take much memory. `make(i)` returns the child with index `i`.
template <class A>
struct AtomsToMake {
  std::size_t count = 0;
  std::function<A(std::size_t)> make;
};

class ChildReader;
// An atom that lists its children.
template <class A>
concept Container = requires(ChildReader& io, A& atom) {
  // its list
  A::Children(io, atom);
};
// An atom that has Read and Put instead of a list.
template <class A>
concept ReadsItself = requires(A& atom, ByteSpan content) {
  // its own reader
  atom.Read(content);
};
// An atom whose type has several layouts, such as 'stsz'. A::IsIn(content) is true if `content` has
// the layout of A.
template <class A>
concept Conditional = requires(ByteSpan content) {
  { A::IsIn(content) } -> std::same_as<bool>;
};

// Decodes the children that a container lists. `content` must outlive the reader. Both functions
// throw Malformed: the constructor if `content` is not atoms, the other if a child is malformed or
// missing.
class ChildReader {
 public:
  explicit ChildReader(ByteSpan content);
  void operator()(auto&... members) { (Read(members), ...); }

 private:
  struct Child {
    AtomView atom;
    bool isTaken = false;  // decoded already; each child is decoded at most once
  };

  template <class A>
  void Read(A& member) {
    std::optional<A> found;
    Read(found);
    if (!found) throw Malformed("the atom '" + A::kType.Text() + "' is missing");
    member = std::move(*found);
  }
  template <class A>
  void Read(std::optional<A>& member) {
    for (Child& child : children_) {
      member = Take<A>(child);
      if (member) return;
    }
  }
  // Takes the first of the alternatives that is present. The order is that of the variant.
  template <class... As>
  void Read(std::optional<std::variant<As...>>& member) {
    const auto read = [&](auto found) {
      Read(found);
      if (found) member = std::move(*found);
      return found.has_value();
    };
    std::ignore = (read(std::optional<As>()) || ...);
  }
  template <class A>
  void Read(std::vector<A>& members) {
    // Room for exactly these: a vector that grows would need up to three times as much.
    members.reserve(static_cast<std::size_t>(std::ranges::count(
        children_, A::kType, [](const Child& child) { return child.atom.type; })));
    for (Child& child : children_) {
      if (auto found = Take<A>(child)) members.push_back(std::move(*found));
    }
  }
  template <class... As>
  void Read(std::vector<std::variant<As...>>& members) {
    const auto add = [&](auto found) {
      if (found) members.push_back(std::move(*found));
      return found.has_value();
    };
    for (Child& child : children_) std::ignore = (add(Take<As>(child)) || ...);
  }
  void Read(Siblings& siblings);

  // Decodes the child if it is an A that is not decoded yet.
  template <class A>
  static std::optional<A> Take(Child& child) {
    if (child.isTaken || child.atom.type != A::kType) return std::nullopt;
    if constexpr (Conditional<A>) {
      if (!A::IsIn(child.atom.content)) return std::nullopt;
    }
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
  void operator()(const auto&... members) { (Add(members), ...); }

  // Writes all children in their order. The container must still exist.
  void Finish() {
    std::map<FourCC, std::size_t> next;  // the children of a type before that index are written
    for (const Sibling& sibling : order_) {
      if (!sibling.bytes.empty()) {
        io_.Append(sibling.bytes);
        continue;
      }
      // A sibling without bytes only marks the place of a child that was decoded. If the model has
      // removed that child since, nothing is written here.
      std::size_t& at = next[sibling.type];
      while (at < children_.size() && children_[at].type != sibling.type) ++at;
      if (at < children_.size()) Write(children_[at++]);
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
  template <class A>
  void Add(const std::optional<A>& child) {
    if (child) Add(*child);
  }
  template <class A>
  void Add(const std::vector<A>& children) {
    for (const A& child : children) Add(child);
  }
  template <class A>
  void Add(const AtomsToMake<A>& children) {
    for (std::size_t i = 0; i < children.count; ++i) {
      children_.push_back({A::kType, [this, &children, i] { PutAtom(io_, children.make(i)); }});
    }
  }
  void Add(const Siblings& siblings) { order_ = siblings; }
  static void Write(Child& child) {
    child.isWritten = true;
    child.write();
  }

  Io& io_;
  std::span<const Sibling> order_;
  std::vector<Child> children_;
};

}  // namespace toolbox
