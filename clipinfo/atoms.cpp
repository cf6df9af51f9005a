#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <iostream>
#include <span>
#include <string>
#include <utility>

#include "clipinfo/known_atoms.h"
#include "clipinfo/modes.h"
#include "toolbox/atoms/atom_heads.h"
#include "toolbox/atoms/compressed_movie.h"
#include "toolbox/atoms/field_printer.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/disk/byte_source.h"
#include "toolbox/refused.h"

namespace clipinfo {
namespace {

using toolbox::Bytes;
using toolbox::ByteSource;
using toolbox::ByteSpan;
using toolbox::FourCC;
using toolbox::FromBigEndian;

// Atoms with children that the toolbox does not read as containers.
constexpr FourCC kOtherContainers[] = {"gmhd", "tapt", "clip", "matt", "mfra", "rmra",
                                       "rmda", "sinf", "schi", "meta", "cmov"};
// Atoms without fields: only their size is of interest.
constexpr FourCC kPlain[] = {"mdat", "free", "skip", "wide"};

// Whether an atom can be printed field by field; otherwise it has children or a decoder of its own.
template <class A>
constexpr bool kHasFields = !toolbox::Container<A> && !toolbox::ReadsItself<A>;

// The maximum depth of nested atoms. Real movies have fewer levels, and the stack has room for
// more.
constexpr int kDeepest = 32;

bool IsOneOf(std::span<const FourCC> types, FourCC type) {
  return std::ranges::find(types, type) != types.end();
}

// Whether atoms of this type are printed as their children.
bool IsContainer(FourCC type) {
  bool isContainer = IsOneOf(kOtherContainers, type);
  ForEachKnownAtom([&]<class A>() { isContainer |= !kHasFields<A> && A::kType == type; });
  return isContainer;
}

// Prints the atoms of one file.
class Dump {
 public:
  Dump(bool showsDates, std::ostream& out) : showsDates_(showsDates), out_(out) {}

  // Prints the atoms in [at, end) of `source`.
  void Walk(const ByteSource& source, std::uint64_t at, std::uint64_t end, int depth) {
    while (at < end) {
      const Bytes start = Read(source, at, std::min<std::uint64_t>(16, end - at));
      const auto frame = toolbox::ReadFrame(start, end - at);
      StartLine(at, depth);
      if (!frame) return PrintRest(source, start, at, end, depth);
      out_ << '\'' << frame->type.Text() << "' " << frame->size;
      PrintContent(source, frame->type, at + frame->headerSize, at + frame->size, depth);
      at += frame->size;
    }
  }

 private:
  // The bytes [at, at + size). Throws what reading throws.
  static Bytes Read(const ByteSource& source, std::uint64_t at, std::uint64_t size) {
    Bytes bytes(size);
    source.Read(at, bytes);
    return bytes;
  }

  // Starts a line with indentation and offset, in bytes.
  void StartLine(std::uint64_t at, int depth) {
    out_ << std::string(2 * static_cast<std::size_t>(depth), ' ');
    out_ << (isInflated_ ? "in cmov " : "") << at << ' ';
  }

  // Prints the bytes after the last complete atom: padding, or a truncated atom.
  void PrintRest(const ByteSource& source, const Bytes& start, std::uint64_t at, std::uint64_t end,
                 int depth) {
    const std::uint64_t left = end - at;
    if (left < 8) {
      out_ << (std::ranges::any_of(start, std::identity()) ? "malformed: " : "padding: ") << left
           << " bytes\n";
      return;
    }
    const FourCC type(FromBigEndian<std::uint32_t>(&start[4]));
    out_ << '\'' << type.Text() << "' malformed: claims "
         << FromBigEndian<std::uint32_t>(start.data()) << " bytes of " << left;
    // The children of a truncated container can still be printed. Other content is left out, so the
    // atom is printed like one of kPlain.
    PrintContent(source, IsContainer(type) ? type : kPlain[0], at + 8, end, depth);
  }

  // Prints the content in [at, end) of an atom, and ends the line.
  void PrintContent(const ByteSource& source, FourCC type, std::uint64_t at, std::uint64_t end,
                    int depth) {
    const bool isContainer = IsContainer(type);
    if (isContainer && depth < kDeepest) {
      out_ << '\n';
      if (type == FourCC{"meta"}) at += VersionSize(source, at, end);
      Walk(source, at, end, depth + 1);
      if (type == FourCC{"cmov"}) PrintInflated(Read(source, at, end - at), depth + 1);
      return;
    }
    if (isContainer) {
      out_ << " malformed: nested too deep";
    } else if (!IsOneOf(kPlain, type)) {
      PrintFields(source, type, at, end);
    }
    out_ << '\n';
  }

  // The size of version and flags at the start of 'meta': 4 bytes in ISO files. QuickTime has none,
  // so there the content starts with the size and the type of its first child.
  static std::uint64_t VersionSize(const ByteSource& source, std::uint64_t at, std::uint64_t end) {
    if (end - at < 8) return 0;
    return toolbox::FourCCAt(Read(source, at, 8), 4) == FourCC{"hdlr"} ? 0 : 4;
  }

  // Prints the fields of the content in [at, end), or that the type is unknown.
  void PrintFields(const ByteSource& source, FourCC type, std::uint64_t at, std::uint64_t end) {
    bool isPrinted = false;
    Bytes content;
    // Two atoms can have the same type; the first whose condition holds is printed.
    ForEachKnownAtom([&]<class A>() {
      if constexpr (kHasFields<A>) {
        if (isPrinted || A::kType != type) return;
        content = Read(source, at, end - at);
        if constexpr (toolbox::Conditional<A>) {
          if (!A::IsIn(content)) return;
        }
        PrintAs<A>(content);
        isPrinted = true;
      }
    });
    if (!isPrinted) out_ << " unknown";
  }

  // Reads and prints `content` as an atom of type A. Bytes after the last field are only counted.
  template <class A>
  void PrintAs(ByteSpan content) try {
    A atom;
    toolbox::FieldReader reader(content);
    toolbox::AtomFields(reader, atom);
    toolbox::FieldPrinter printer(out_, showsDates_);
    toolbox::AtomFields(printer, std::as_const(atom));
    if (!reader.Remaining().empty()) out_ << " and " << reader.Remaining().size() << " bytes";
  } catch (const toolbox::Malformed& fault) {
    out_ << " malformed: " << fault.reason;
  }

  // Prints the atoms that are compressed in `content`, the content of 'cmov'. Their offsets count
  // from the start of the inflated bytes.
  void PrintInflated(ByteSpan content, int depth) {
    try {
      // Compressed data can contain itself, and then the dump would never end.
      if (isInflated_) throw toolbox::Malformed("it is compressed twice");
      const Bytes inflated = toolbox::Inflate(content);
      isInflated_ = true;
      Walk(toolbox::MemorySource(inflated), 0, inflated.size(), depth);
      isInflated_ = false;
    } catch (const toolbox::Malformed& fault) {
      StartLine(0, depth);
      out_ << "malformed: " << fault.reason << '\n';
    } catch (const toolbox::Refused&) {
      StartLine(0, depth);
      out_ << "compressed in an unknown way\n";
    }
  }

  const bool showsDates_;
  std::ostream& out_;
  bool isInflated_ = false;  // the atoms come from a compressed movie header
};

}  // namespace

int PrintAtoms(const std::string& file) {
  try {
    const toolbox::FileSource source(boost::filesystem::absolute(file));
    Dump(true, std::cout).Walk(source, 0, source.Size(), 0);
    return 0;
  } catch (...) {
    std::cout.flush();
    std::cerr << "clipinfo: " << LineFor(CaughtFailure(file)) << '\n';
    return 1;
  }
}

}  // namespace clipinfo
