#include "toolbox/plan/new_file_steps.h"

#include <map>
#include <utility>

#include "toolbox/atoms/atom_heads.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// The head of an 'mdat' at byte `at`, and the unused bytes between it and the media data.
Bytes HeadOf(const FilePlan& plan, std::uint64_t at) {
  Bytes head;
  for (std::uint64_t unused = 0;;) {
    // The unused bytes can raise the size above 4 GiB; then the head grows once.
    head = MediaDataHead(unused + plan.dataSize, plan.kind == FileKind::kMpeg4);
    head.resize(head.size() + unused);
    const std::uint64_t misfit = (at + head.size()) % plan.unit;
    if (misfit == 0) return head;
    unused += plan.unit - misfit;
  }
}

// Where the media data starts if its 'mdat' starts at byte `at`.
std::uint64_t DataStart(const FilePlan& plan, std::uint64_t at) {
  return at + HeadOf(plan, at).size();
}

// Collects steps; each starts where the one before ends.
class NewFile {
 public:
  std::uint64_t Position() const { return at_; }

  void Write(Bytes bytes) {
    const std::uint64_t size = bytes.size();
    steps_.emplace_back(WriteBytes{at_, std::move(bytes)});
    at_ += size;
  }
  void Copy(const ByteSource* source, std::uint64_t from, std::uint64_t length) {
    steps_.emplace_back(CopyBytes{at_, source, from, length});
    at_ += length;
  }
  void WriteHeader(std::uint64_t size, std::uint64_t dataStart) {
    steps_.emplace_back(WritePart{at_, size, kMovieHeader, dataStart});
    at_ += size;
  }
  // Inserts a first step that reserves room for the file so far.
  void ReserveFirst() { steps_.insert(steps_.begin(), Reserve{at_}); }
  void AddMedia(const FilePlan& plan) { at_ = AddMediaData(plan, at_, steps_); }
  std::vector<Stage> Take() { return {{std::move(steps_), {}}}; }

 private:
  std::vector<Step> steps_;
  std::uint64_t at_ = 0;
};

// The size of a movie header at byte `start` if the media data is directly after it. The size of
// the header changes the chunk offsets, and offsets that need 64 bits make the header larger. So
// this repeats until the size no longer changes, which takes a round or two.
std::uint64_t SizeBeforeData(const FilePlan& plan, PlannedHeader& header, std::uint64_t start) {
  constexpr int kMaxRounds = 8;
  std::uint64_t size = header.SizeAt(DataStart(plan, start));
  int rounds = 0;
  for (std::uint64_t before = 0; before != size; ++rounds) {
    if (rounds == kMaxRounds) throw Refused{ioErr, "the size of its header cannot be settled"};
    before = size;
    size = header.SizeAt(DataStart(plan, start + size));
  }
  return size;
}

// The compressed movie header for the same place. Its size is known only after it was compressed,
// and it changes with the chunk offsets. So each round reserves the size of the last result and a
// little more. The unused rest becomes a 'free' atom, which needs at least 8 bytes.
Bytes CompressBeforeData(const FilePlan& plan, PlannedHeader& header, std::uint64_t start) {
  Bytes movie = header.Compress(DataStart(plan, start + SizeBeforeData(plan, header, start)));
  std::uint64_t room = 0;
  do {
    room = movie.size() + 64 + movie.size() / 256;
    movie = {};  // the next round needs its memory
    movie = header.Compress(DataStart(plan, start + room));
  } while (movie.size() != room && movie.size() + 8 > room);
  if (movie.size() != room) {
    const Bytes padding = FreeAtom(room - movie.size());
    movie.insert(movie.end(), padding.begin(), padding.end());
  }
  return movie;
}

// Calls visit(item, extent) for every extent of an item that is in the file.
void ForEachExtent(ItemLocations& locations, auto&& visit) {
  for (ItemLocations::Item& item : locations.items) {
    if (!item.IsInFile()) continue;
    for (ItemLocations::Extent& extent : item.extents) visit(item, extent);
  }
}

// Copies the items in `locations` from `source` into an 'mdat' of their own and changes `locations`
// to the new places. Bytes that several items share are copied once.
void AddItems(ItemLocations& locations, const ByteSource& source, NewFile& file) {
  using Range = std::pair<std::uint64_t, std::uint64_t>;  // offset and length
  std::map<Range, std::uint64_t> places;  // from the start of the content of the 'mdat'
  std::vector<Range> inOrder;
  std::uint64_t size = 0;
  ForEachExtent(locations, [&](const auto& item, const auto& extent) {
    // Length 0 means the whole file (ISO/IEC 14496-12 8.11.3), and the new file does not contain
    // the whole old file.
    if (extent.length == 0) {
      throw Refused{featureUnsupported, "an item of 'meta' covers the whole old file"};
    }
    CheckEnd(item.base, extent.offset, source.Size(), source.Path());
    CheckEnd(item.base + extent.offset, extent.length, source.Size(), source.Path());
    const Range range(item.base + extent.offset, extent.length);
    if (!places.try_emplace(range, size).second) return;
    inOrder.push_back(range);
    size += extent.length;
  });
  file.Write(MediaDataHead(size, false));
  const std::uint64_t start = file.Position();
  for (const auto& [from, length] : inOrder) file.Copy(&source, from, length);
  ForEachExtent(locations, [&](const auto& item, auto& extent) {
    extent.offset = start + places.at({item.base + extent.offset, extent.length});
  });
  for (ItemLocations::Item& item : locations.items) {
    if (item.IsInFile()) item.base = 0;
  }
}

// Copies the other atoms of the file. An atom with items is written anew, after their data.
void AddAtoms(std::vector<AtomToCopy> atoms, const ByteSource* source, NewFile& file) {
  for (AtomToCopy& atom : atoms) {
    if (atom.items) {
      AddItems(*atom.items, *source, file);
      file.Write(AtomOf(atom.atom.type, atom.items->PutInto(atom.content.Span())));
    } else {
      file.Copy(source, atom.atom.at, atom.atom.size);
    }
  }
}

// Adds the movie header for media data that starts at byte `dataStart`.
void AddHeader(bool compress, PlannedHeader& header, std::uint64_t dataStart, NewFile& file) {
  if (compress) {
    file.Write(header.Compress(dataStart));
  } else {
    file.WriteHeader(header.SizeAt(dataStart), dataStart);
  }
}

// Adds movie header and media data, in the order that `layout` asks for.
void AddMovie(const FilePlan& plan, FileLayout layout, PlannedHeader& header, NewFile& file) {
  // Without media data, its start does not matter.
  if (plan.dataSize == 0) return AddHeader(layout.compress, header, 0, file);
  const std::uint64_t start = file.Position();
  if (!layout.movieFirst) {
    file.AddMedia(plan);
    return AddHeader(layout.compress, header, DataStart(plan, start), file);
  }
  if (layout.compress) {
    file.Write(CompressBeforeData(plan, header, start));
  } else {
    const std::uint64_t size = SizeBeforeData(plan, header, start);
    file.WriteHeader(size, DataStart(plan, start + size));
  }
  file.AddMedia(plan);
}

}  // namespace

std::uint64_t AddMediaData(const FilePlan& plan, std::uint64_t at, std::vector<Step>& steps) {
  if (plan.dataSize == 0) return at;
  Bytes head = HeadOf(plan, at);
  std::uint64_t copied = plan.dataSize;
  for (const MadeData& made : plan.made) copied -= made.size;
  const std::uint64_t start = at + head.size();
  steps.emplace_back(WriteBytes{at, std::move(head)});
  steps.emplace_back(WritePart{start, copied, kCopiedMedia, 0});
  at = start + copied;
  for (std::size_t i = 0; i < plan.made.size(); ++i) {
    steps.emplace_back(WritePart{at, plan.made[i].size, kMadeMedia, i});
    at += plan.made[i].size;
  }
  return at;
}

std::vector<Stage> StepsForNewFile(const FilePlan& plan, FileLayout layout, const Bytes& type,
                                   PlannedHeader& header, std::vector<AtomToCopy> atoms,
                                   const ByteSource* ownSource) {
  NewFile file;
  file.Write(type);
  AddMovie(plan, layout, header, file);
  // Shared blocks need no room.
  if (plan.dataSize != 0 && plan.unit == 1) file.ReserveFirst();
  AddAtoms(std::move(atoms), ownSource, file);
  return file.Take();
}

}  // namespace toolbox
