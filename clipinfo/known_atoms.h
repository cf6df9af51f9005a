// Lists every atom type that the toolbox decodes. The list comes from the Children functions of the
// atoms, so it is always complete.
#pragma once

#include <optional>
#include <variant>
#include <vector>

#include "toolbox/atoms/container_atoms.h"

namespace clipinfo {

// Visits an atom type and, recursively, the types of its children. It is passed to A::Children in
// place of a ChildReader.
template <class Visit>
class AtomTypes {
 public:
  explicit AtomTypes(const Visit& visit) : visit_(visit) {}
  void operator()(const auto&... members) { (Add(members), ...); }

  template <class A>
  void Add(const A& atom) {
    if constexpr (!requires { atom.content; }) visit_.template operator()<A>();
    if constexpr (toolbox::Container<A>) A::Children(*this, atom);
  }
  template <class A>
  void Add(const std::optional<A>&) {
    Add(A());
  }
  template <class A>
  void Add(const std::vector<A>&) {
    Add(A());
  }
  template <class... As>
  void Add(const std::variant<As...>&) {
    (Add(As()), ...);
  }
  void Add(const toolbox::Siblings&) {}

 private:
  const Visit& visit_;
};

// Calls visit.operator()<A>() for each atom type of a movie file, except those whose content is not
// decoded. A fourcc can occur more than once: two atom types have 'stsz', and the Conditional one
// comes first; 'sbgp' is a child of two containers.
template <class Visit>
void ForEachKnownAtom(const Visit& visit) {
  AtomTypes types(visit);
  types.Add(toolbox::FileType());
  types.Add(toolbox::MovieAtoms());
  types.Add(toolbox::MovieFragment());
}

}  // namespace clipinfo
