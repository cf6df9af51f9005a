// Bytes taken for each atom in turn: what can be read can be written, and reads the same again.
#include <sstream>

#include "clipinfo/known_atoms.h"
#include "tests/fuzz/seeds.h"
#include "toolbox/atoms/field_printer.h"

namespace {

using toolbox::Bytes;
using toolbox::ByteSpan;

template <class A>
void ReadAndWrite(ByteSpan content) {
  Bytes written;
  try {
    const A atom = toolbox::Decode<A>(content);
    if constexpr (!toolbox::Container<A> && !toolbox::ReadsItself<A>) {
      std::ostringstream text;
      toolbox::FieldPrinter printer(text);
      toolbox::AtomFields(printer, atom);
    }
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

void Split(ByteSpan content) {
  ByteSpan tail;
  std::size_t size = 0;
  for (const toolbox::AtomView& atom : toolbox::SplitAtoms(content, &tail)) {
    size += atom.whole.size();
  }
  fuzz::Check(size + tail.size() == content.size(), "atoms and tail are all the bytes");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  clipinfo::ForEachKnownAtom([]<class A>() {
    fuzz::WriteSeed(A::kType.Text(), ByteSpan(toolbox::Encode(A{})).subspan(8));
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteSpan content(data, size);
  clipinfo::ForEachKnownAtom([&]<class A>() { ReadAndWrite<A>(content); });
  Split(content);
  return 0;
}
