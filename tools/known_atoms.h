// Lists every atom type that the toolbox decodes. The list comes from the Children functions of the
// atoms, so it is always complete.
#pragma once

#include <optional>
#include <variant>
#include <vector>

#include "toolbox/atoms/container_atoms.h"

namespace tools {

// Visits an atom type and, recursively, the types of its children. It is passed to A::Children in
// place of a reader or writer, so it has the same functions as these.
template <class Visit>
class AtomTypes {
 public:
  explicit AtomTypes(const Visit& visit) : visit_(visit) {}

  template <class A>
  void Add() {
    A atom;
    if constexpr (!requires { atom.content; }) visit_.template operator()<A>();
    if constexpr (toolbox::Container<A>) A::Children(*this, atom);
  }
  template <class A>
  void One(A&) {
    Add<A>();
  }
  template <class A>
  void Maybe(std::optional<A>&) {
    Add<A>();
  }
  template <class... As>
  void Maybe(std::optional<std::variant<As...>>&) {
    (Add<As>(), ...);
  }
  template <class A>
  void Each(std::vector<A>&) {
    Add<A>();
  }
  template <class... As>
  void Each(std::vector<std::variant<As...>>&) {
    (Add<As>(), ...);
  }
  void Others(toolbox::Siblings&) {}

 private:
  const Visit& visit_;
};

// Calls visit.operator()<A>() for each atom type of a movie file, except those whose content is not
// decoded. A fourcc can come more than once: 'stsz' has two types, the Conditional one first, and
// 'sbgp' is a child of two containers.
template <class Visit>
void ForEachKnownAtom(const Visit& visit) {
  AtomTypes types(visit);
  types.template Add<toolbox::FileType>();
  types.template Add<toolbox::MovieAtoms>();
  types.template Add<toolbox::MovieFragment>();
}

}  // namespace tools
