// The fields of an atom: one list serves to read, write, measure and print them.
//
// An atom is a struct with its type and one function that names its fields in file order:
//
//   struct TrackLoad {  // 'load'
//     static constexpr FourCC kType{"load"};
//     std::uint32_t start = 0, duration = 0;
//     static void Fields(auto& io, auto& load) {
//       io("start", load.start);
//       io("duration", load.duration);
//     }
//   };
//
// `io` is a FieldReader, FieldWriter, FieldSizer or FieldPrinter. All of them have
//
// clang-format off
//   io(name, field)            an integer, a FourCC or an array of bytes, as wide as it is declared
//   io.Version(flags, isWide)  version 0 or 1 and 24 bits of flags; version 1 makes Wide fields wide
//   io.Wide(name, field)       32 bits in version 0, 64 bits in version 1
//   io.Narrow(name, field)     32 bits of a 64-bit field; a value that does not fit is written as 0
//   io.Table(name, rows)       a 32-bit count and that many rows
//   io.List(name, entries)     the same for a few entries, kept as a vector
//   io.Atoms(name, atoms)      a 32-bit count and that many atoms, kept as they are
//   io.Rest(name, bytes)       everything up to the end of the atom
// clang-format on
//
// An atom that starts with version and flags has the member versionAndFlags, which comes first and
// is not listed; one that has both a short and a long form calls io.Version instead.
//
// An atom that contains atoms lists its children instead; see children.h.
#pragma once

#include <type_traits>
#include <vector>

#include "toolbox/atoms/children.h"
#include "toolbox/atoms/field_reader.h"
#include "toolbox/atoms/field_writer.h"
#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/atoms/rows.h"
#include "toolbox/bytes.h"

namespace toolbox {

// Passes the fields of an atom to `io`: the member versionAndFlags if there is one, then those that
// the atom lists.
void AtomFields(auto& io, auto& atom) {
  if constexpr (requires { atom.versionAndFlags; }) io("version", atom.versionAndFlags);
  std::remove_cvref_t<decltype(atom)>::Fields(io, atom);
}

// Decodes an atom of type A. `content` is without size and type; tables of the atom may be views of
// it. Throws Malformed, whose path includes the type of the atom.
template <class A>
A Decode(ByteSpan content) {
  return InAtom(A::kType, [&] {
    A atom;
    if constexpr (ReadsItself<A>) {
      atom.Read(content);
    } else if constexpr (Container<A>) {
      ChildReader children(content);
      A::Children(children, atom);
    } else {
      FieldReader reader(content);
      AtomFields(reader, atom);
    }
    return atom;
  });
}

// Writes the whole atom, size and type included, or measures it if `io` is a FieldSizer.
template <class A>
void PutAtom(auto& io, const A& atom) {
  io.Atom(A::kType, [&] {
    if constexpr (ReadsItself<A>) {
      atom.Put(io);
    } else if constexpr (Container<A>) {
      ChildWriter children(io);
      A::Children(children, atom);
      children.Finish();
    } else {
      AtomFields(io, atom);
    }
  });
}

// Returns the bytes that `put(io)` writes. Calls it twice: to measure, then to write into room of
// exactly that size.
template <class Put>
Bytes Encoded(Put&& put) {
  FieldSizer sizer;
  put(sizer);
  Bytes bytes(MemorySize(sizer.Size()));
  FieldWriter writer(sizer.Found(), bytes);
  put(writer);
  return bytes;
}

// The whole atom as bytes.
template <class A>
Bytes Encode(const A& atom) {
  return Encoded([&](auto& io) { PutAtom(io, atom); });
}

// Encodes the atom as a sibling, a child that is kept as bytes.
template <class A>
Sibling SiblingOf(const A& atom) {
  return {A::kType, Encode(atom)};
}

// An atom that is one table: version and flags, then the rows.
template <FourCC kCode, class RowType>
struct TableAtom {
  static constexpr FourCC kType = kCode;
  using Row = RowType;
  std::uint32_t versionAndFlags = 0;
  Rows<Row> rows;

  static void Fields(auto& io, auto& table) { io.Table("rows", table.rows); }
};

// An atom that is a counted list of atoms: version and flags, then the list.
template <FourCC kCode>
struct AtomList {
  static constexpr FourCC kType = kCode;
  std::uint32_t versionAndFlags = 0;
  std::vector<Bytes> entries;  // whole, size and type included

  static void Fields(auto& io, auto& list) { io.Atoms("entries", list.entries); }
};

}  // namespace toolbox
