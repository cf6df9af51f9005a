#include "tools/dump_atoms.h"

#include <algorithm>
#include <string>
#include <tuple>
#include <type_traits>

#include "toolbox/atoms/framing.h"
#include "toolbox/files/read_movie.h"
#include "tools/known_atoms.h"

namespace tools {
namespace {

using toolbox::Bytes;
using toolbox::ByteSource;
using toolbox::ByteSpan;
using toolbox::FourCC;

constexpr FourCC kMeta{"meta"}, kCompressed{"cmov"};
constexpr FourCC kContainers[] = {"moov", "trak", "mdia", "minf", "stbl",     "edts",
                                  "dinf", "udta", "tref", "gmhd", "tapt",     "clip",
                                  "matt", "mvex", "moof", "traf", "mfra",     "rmra",
                                  "rmda", "sinf", "schi", kMeta,  kCompressed};
// Nothing to know about them but their size.
constexpr FourCC kPlain[] = {"mdat", "free", "skip", "wide"};

// Deeper than any movie, shallow enough for the stack.
constexpr int kDeepest = 32;

class Dump {
 public:
  Dump(bool showsDates, std::ostream& out) : showsDates_(showsDates), out_(out) {}

  // Prints the atoms in [at, end) of `source`.
  void Walk(const ByteSource& source, std::uint64_t at, std::uint64_t end, int depth) {
    while (at < end) {
      const Bytes start = Read(source, at, std::min<std::uint64_t>(16, end - at));
      const auto frame = toolbox::ReadFrame(start, end - at);
      if (!frame) return PrintTail(source, at, end, start, depth);
      StartLine(at, depth) << '\'' << frame->type.Text() << "' " << frame->size;
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

  std::ostream& StartLine(std::uint64_t at, int depth) {
    out_ << std::string(2 * static_cast<std::size_t>(depth), ' ');
    if (isInflated_) out_ << "in cmov ";
    return out_ << at << ' ';
  }

  // What stands behind the last whole atom: padding, or an atom that claims more than there is.
  void PrintTail(const ByteSource& source, std::uint64_t at, std::uint64_t end, const Bytes& start,
                 int depth) {
    const std::uint64_t size = end - at;
    if (size < 8) {
      const bool isPadding = std::ranges::none_of(start, std::identity());
      StartLine(at, depth) << (isPadding ? "padding " : "malformed: no atom in ") << size << '\n';
      return;
    }
    const FourCC type(toolbox::FromBigEndian<std::uint32_t>(&start[4]));
    StartLine(at, depth) << '\'' << type.Text() << "' malformed: its size "
                         << toolbox::FromBigEndian<std::uint32_t>(start.data())
                         << " is impossible, " << size << " are left";
    if (IsContainer(type)) {
      PrintContent(source, type, at + 8, end, depth);
    } else {
      out_ << '\n';
    }
  }

  static bool IsContainer(FourCC type) {
    return std::ranges::find(kContainers, type) != std::end(kContainers);
  }

  void PrintContent(const ByteSource& source, FourCC type, std::uint64_t at, std::uint64_t end,
                    int depth) {
    if (IsContainer(type)) {
      if (depth == kDeepest) {
        out_ << " malformed: nested too deep\n";
        return;
      }
      out_ << '\n';
      if (type == kMeta) at += VersionSize(source, at, end);
      Walk(source, at, end, depth + 1);
      if (type == kCompressed) PrintInflated(Read(source, at, end - at), depth + 1);
      return;
    }
    if (std::ranges::find(kPlain, type) == std::end(kPlain)) {
      PrintFields(source, type, at, end, std::type_identity<KnownAtoms>());
    }
    out_ << '\n';
  }

  // ISO: a word of version and flags stands before the children. QuickTime: it does not.
  static std::uint64_t VersionSize(const ByteSource& source, std::uint64_t at, std::uint64_t end) {
    if (end - at < 4) return 0;
    const Bytes start = Read(source, at, std::min<std::uint64_t>(8, end - at));
    const bool startsWithAtom =
        start.size() == 8 && std::equal(start.begin() + 4, start.end(), "hdlr");
    return startsWithAtom ? 0 : 4;
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
      // Of two atoms with one type the first is it, unless the bytes say otherwise.
      const bool isConstantSize = type == toolbox::ConstantSampleSize::kType &&
                                  content.size() >= 8 &&
                                  toolbox::FromBigEndian<std::uint32_t>(&content[4]) != 0;
      if (isConstantSize) return PrintAs<toolbox::ConstantSampleSize>(content);
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

  // `content` is that of 'cmov'. What it holds is a movie header: its bytes are counted from the
  // end of its own size and type.
  void PrintInflated(const Bytes& content, int depth) {
    if (isInflated_) {
      out_ << std::string(2 * static_cast<std::size_t>(depth), ' ')
           << "malformed: compressed twice\n";
      return;
    }
    isInflated_ = true;
    try {
      const Bytes file = toolbox::Encoded([&](auto& io) {
        io.Atom(FourCC{"moov"}, [&] { io.Atom(kCompressed, [&] { io.Append(content); }); });
      });
      const Bytes inflated = toolbox::ReadMovieHeader(toolbox::MemorySource(file));
      Walk(toolbox::MemorySource(inflated), 0, inflated.size(), depth);
    } catch (const toolbox::Malformed& fault) {
      StartLine(0, depth) << "malformed: " << fault.reason << '\n';
    } catch (const toolbox::Refused& refused) {
      StartLine(0, depth) << "unreadable (" << refused.code << ")\n";
    }
    isInflated_ = false;
  }

  const bool showsDates_;
  std::ostream& out_;
  bool isInflated_ = false;
};

}  // namespace

void DumpAtoms(const ByteSource& source, bool showsDates, std::ostream& out) {
  Dump(showsDates, out).Walk(source, 0, source.Size(), 0);
}

}  // namespace tools
