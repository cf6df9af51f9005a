#include <algorithm>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "toolbox/atoms/framing.h"
#include "toolbox/read/read_movie.h"
#include "tools/dump.h"
#include "tools/known_atoms.h"

namespace tools {
namespace {

using toolbox::Bytes;
using toolbox::ByteSource;
using toolbox::ByteSpan;
using toolbox::FourCC;
using toolbox::FromBigEndian;

constexpr FourCC kContainers[] = {"moov", "trak", "mdia", "minf", "stbl", "edts", "dinf", "udta",
                                  "tref", "gmhd", "tapt", "clip", "matt", "mvex", "moof", "traf",
                                  "mfra", "rmra", "rmda", "sinf", "schi", "meta", "cmov"};
// Atoms without fields: only their size is of interest.
constexpr FourCC kPlain[] = {"mdat", "free", "skip", "wide"};

// The maximum depth of nested atoms. Real movies have fewer levels, and the stack has room for
// more.
constexpr int kDeepest = 32;

bool IsOneOf(std::span<const FourCC> types, FourCC type) {
  return std::ranges::find(types, type) != types.end();
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
  static Bytes Read(const ByteSource& source, std::uint64_t at, std::uint64_t size) {
    Bytes bytes(size);
    source.Read(at, bytes);
    return bytes;
  }

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
    // The children of a truncated container can still be printed.
    PrintContent(source, IsOneOf(kContainers, type) ? type : kPlain[0], at + 8, end, depth);
  }

  // Prints the content in [at, end) of an atom, and ends the line.
  void PrintContent(const ByteSource& source, FourCC type, std::uint64_t at, std::uint64_t end,
                    int depth) {
    const bool isContainer = IsOneOf(kContainers, type);
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
      PrintFields(source, type, at, end, std::type_identity<KnownAtoms>());
    }
    out_ << '\n';
  }

  // The size of version and flags at the start of 'meta'. ISO: 4 bytes. QuickTime: none, so the
  // type of the first child comes after its size.
  static std::uint64_t VersionSize(const ByteSource& source, std::uint64_t at, std::uint64_t end) {
    if (end - at < 8) return 0;
    const Bytes start = Read(source, at + 4, 4);
    return FromBigEndian<std::uint32_t>(start.data()) == FourCC{"hdlr"}.value ? 0 : 4;
  }

  template <class... A>
  void PrintFields(const ByteSource& source, FourCC type, std::uint64_t at, std::uint64_t end,
                   std::type_identity<std::tuple<A...>>) {
    if (((A::kType != type) && ...)) {
      out_ << " unknown";
      return;
    }
    const Bytes content = Read(source, at, end - at);
    try {
      // Of the two atoms with this type, this one has a size here that is not 0.
      if (type == toolbox::ConstantSampleSize::kType && content.size() >= 8 &&
          FromBigEndian<std::uint32_t>(&content[4]) != 0) {
        return PrintAs<toolbox::ConstantSampleSize>(content);
      }
      std::ignore = ((A::kType == type && (PrintAs<A>(content), true)) || ...);
    } catch (const toolbox::Malformed& fault) {
      out_ << " malformed: " << fault.reason;
    }
  }

  template <class A>
  void PrintAs(ByteSpan content) {
    A atom;
    toolbox::FieldReader reader(content);
    A::Fields(reader, atom);
    toolbox::FieldPrinter printer(out_, showsDates_);
    A::Fields(printer, std::as_const(atom));
    if (!reader.Remaining().empty()) out_ << " and " << reader.Remaining().size() << " bytes";
  }

  // Prints the atoms compressed in a 'cmov' with that content. Their offsets are counted from the
  // start of the inflated data.
  void PrintInflated(const Bytes& content, int depth) {
    const Bytes file = toolbox::Encoded([&](auto& io) {
      io.Atom(FourCC{"moov"}, [&] { io.Atom(FourCC{"cmov"}, [&] { io.Append(content); }); });
    });
    try {
      if (isInflated_) throw toolbox::Malformed("it is compressed twice");
      const toolbox::HeldBytes inflated = toolbox::ReadMovieHeader(toolbox::MemorySource(file));
      isInflated_ = true;
      Walk(toolbox::MemorySource(inflated.Span()), 0, inflated.Span().size(), depth);
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

void DumpAtoms(const ByteSource& source, bool showsDates, std::ostream& out) {
  Dump(showsDates, out).Walk(source, 0, source.Size(), 0);
}

}  // namespace tools
