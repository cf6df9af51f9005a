// Every atom that the toolbox knows by its fields or by its children.
#pragma once

#include <optional>
#include <variant>
#include <vector>

#include "toolbox/atoms/container_atoms.h"

namespace tools {

// Takes the children that a container lists, and visits the type of each.
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

// Calls visit.operator()<A>() for each atom of a movie file, except those whose content is not
// decoded. 'stsz' is there for two atoms, the one that is Conditional first; 'sbgp' comes twice.
template <class Visit>
void ForEachKnownAtom(const Visit& visit) {
  AtomTypes types(visit);
  types.template Add<toolbox::FileType>();
  types.template Add<toolbox::MovieAtoms>();
  types.template Add<toolbox::MovieFragment>();
}

}  // namespace tools
