// Bytes taken for each atom in turn: what can be read can be written, and reads the same again.
#include <sstream>
#include <tuple>

#include "tests/fuzz/seeds.h"
#include "toolbox/atoms/framing.h"
#include "tools/known_atoms.h"

namespace {

using toolbox::Bytes;
using toolbox::ByteSpan;

template <class A>
void ReadAndWrite(ByteSpan content) {
  Bytes written;
  try {
    const A atom = toolbox::Decode<A>(content);
    std::ostringstream text;
    toolbox::FieldPrinter printer(text);
    A::Fields(printer, atom);
    written = toolbox::Encode(atom);
  } catch (const toolbox::Malformed&) {
    return;
  }
  const auto frame = toolbox::ReadFrame(written, written.size());
  fuzz::Check(frame && frame->type == A::kType && frame->size == written.size(),
              "an atom is framed by its size and type");
  const A again = toolbox::Decode<A>(ByteSpan(written).subspan(frame->headerSize));
  fuzz::Check(toolbox::Encode(again) == written, "an atom written is read as it was written");
}

void SplitAndJoin(ByteSpan content) {
  ByteSpan tail;
  std::size_t size = 0;
  for (const toolbox::AtomView& atom : toolbox::SplitAtoms(content, &tail)) {
    size += atom.whole.size();
  }
  fuzz::Check(size + tail.size() == content.size(), "atoms and tail are all the bytes");
  try {
    toolbox::Children children(content);
    std::ignore = children.Each(toolbox::FourCC{"trak"});
    const toolbox::Siblings others = children.Others();
    const Bytes joined = toolbox::Encoded([&](auto& io) {
      toolbox::ChildWriter writer(io, others);
      writer.Finish();
    });
    fuzz::Check(toolbox::SplitAtoms(joined).size() <= others.size(),
                "children that nobody took go out as they came in");
  } catch (const toolbox::Malformed&) {
    return;
  }
}

template <class Do>
void ForEachKnownAtom(Do&& act) {
  std::apply([&](auto... atom) { (act.template operator()<decltype(atom)>(), ...); },
             tools::KnownAtoms{});
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ForEachKnownAtom([]<class A>() {
    fuzz::WriteSeed(A::kType.Text(), ByteSpan(toolbox::Encode(A{})).subspan(8));
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteSpan content(data, size);
  ForEachKnownAtom([&]<class A>() { ReadAndWrite<A>(content); });
  SplitAndJoin(content);
  return 0;
}
