// Atoms inside atoms: sizes in 32 bits, in 64 bits and to the end; children by quantity, strangers
// in their place.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/siblings.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The size and type in front of an atom, ISO/IEC 14496-12 4.2.
struct AtomFrame {
  FourCC type;
  std::uint64_t headerSize = 8;  // 16 with a 64-bit size
  std::uint64_t size = 0;  // header included
};

// The frame at the front of `bytes`, when `available` bytes follow from its start to the end of
// what holds it; size 0 means all of them. Nothing when the frame is cut short or reaches past the
// end.
std::optional<AtomFrame> ReadFrame(ByteSpan bytes, std::uint64_t available);

// One atom among its siblings, as a view of its parent's bytes.
struct AtomView {
  FourCC type;
  ByteSpan whole;  // size and type included
  ByteSpan content;  // without them
};

// The atoms that stand one behind the other in `bytes`. With a `tail`, bytes behind the last whole
// atom go there; without, they are Malformed, but for up to seven zero bytes of padding.
std::vector<AtomView> SplitAtoms(ByteSpan bytes, ByteSpan* tail = nullptr);

// Hands out the children of a container; what nobody asked for is left for Others.
class Children {
 public:
  explicit Children(ByteSpan content);

  // The content of the first child of that type; Malformed when there is none.
  ByteSpan One(FourCC type);
  std::optional<ByteSpan> Maybe(FourCC type);
  std::vector<ByteSpan> Each(FourCC type);

  template <class A>
  A One() {
    return Decode<A>(One(A::kType));
  }
  template <class A>
  std::optional<A> Maybe() {
    const auto content = Maybe(A::kType);
    if (!content) return std::nullopt;
    return Decode<A>(*content);
  }

  // All children in their order; those handed out keep only their place.
  Siblings Others() const;

 private:
  struct Child {
    AtomView atom;
    bool isTaken = false;
  };
  std::vector<Child> children_;
};

// Writes the children of a container back: each in the place that `order` gives it, those without a
// place at the end.
template <class Io>
class ChildWriter {
 public:
  ChildWriter(Io& io, const Siblings& order) : io_(io), order_(order) {}

  // Adds a child whose whole atom `write` writes.
  void Add(FourCC type, std::function<void()> write) {
    children_.push_back({type, std::move(write)});
  }
  template <class A>
  void Add(A atom) {
    Add(A::kType, [&io = io_, atom = std::move(atom)] { PutAtom(io, atom); });
  }

  void Finish() {
    for (const Sibling& sibling : order_) {
      if (!sibling.bytes.empty()) {
        io_.Append(sibling.bytes);
      } else {
        const auto child = std::ranges::find_if(children_, [&](const Child& candidate) {
          return candidate.type == sibling.type && candidate.write;
        });
        if (child != children_.end()) Write(*child);
      }
    }
    for (Child& child : children_) {
      if (child.write) Write(child);
    }
  }

 private:
  struct Child {
    FourCC type;
    std::function<void()> write;  // empty once written
  };
  static void Write(Child& child) { std::exchange(child.write, nullptr)(); }

  Io& io_;
  const Siblings& order_;
  std::vector<Child> children_;
};

}  // namespace toolbox
