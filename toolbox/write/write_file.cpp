#include "toolbox/write/write_file.h"

#include <algorithm>
#include <list>
#include <memory>

#include "toolbox/atoms/fields.h"
#include "toolbox/read/file_atoms.h"
#include "toolbox/references/sources.h"
#include "toolbox/refused.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {
namespace {

Bytes Padding(std::uint64_t size) {
  return Encoded(
      [size](auto& io) { io.Atom(FourCC{"free"}, [&] { io.Append(Bytes(size - 8)); }); });
}

// Keeps a few source files open at a time, however many there are.
class Sources {
 public:
  Sources(const FilePlan& plan, OutputFile& output) : plan_(plan), output_(output) {}

  const ByteSource& Open(const DataReference& reference) {
    if (&reference == last_) return *opened_.front().source;
    const auto found = std::ranges::find(opened_, &reference, &Opened::reference);
    if (found != opened_.end()) {
      opened_.splice(opened_.begin(), opened_, found);
    } else {
      if (opened_.size() == kMost) {
        // What was copied may still be read from it.
        output_.Flush();
        opened_.pop_back();
      }
      opened_.push_front({&reference, OpenSource(reference, plan_.ownFile)});
    }
    last_ = &reference;
    return *opened_.front().source;
  }

 private:
  static constexpr std::size_t kMost = 32;
  struct Opened {
    const DataReference* reference;
    std::unique_ptr<ByteSource> source;
  };

  const FilePlan& plan_;
  OutputFile& output_;
  std::list<Opened> opened_;  // the one used last in front
  const DataReference* last_ = nullptr;
};

}  // namespace

Bytes DataHead(std::uint64_t size) {
  return Encoded([size](auto& io) {
    if (size + 8 <= UINT32_MAX) {
      io.Atom(FourCC{"wide"}, [] {});
      io("size", static_cast<std::uint32_t>(size + 8));
      io("type", FourCC{"mdat"});
    } else {
      io("size", std::uint32_t{1});
      io("type", FourCC{"mdat"});
      io("size", size + kDataHead);
    }
  });
}

namespace {

// What stands in front of the media data. ISO knows no 'wide'.
Bytes HeadOf(const FilePlan& plan) {
  Bytes head = DataHead(plan.dataSize);
  const bool hasWide = FromBigEndian<std::uint32_t>(&head[4]) == FourCC{"wide"}.value;
  if (plan.kind == FileKind::kMpeg4 && hasWide) head.erase(head.begin(), head.begin() + 8);
  return head;
}

}  // namespace

void CopyMediaData(const FilePlan& plan, OutputFile& output) {
  output.Append(HeadOf(plan));
  Sources sources(plan, output);
  // Often enough for a reader, too seldom to cost anything.
  constexpr std::uint64_t kStep = 8 << 20;
  std::uint64_t done = 0, told = 0;
  const auto tell = [&](std::uint64_t bytes) {
    done += bytes;
    if (plan.movie->progress && done - told >= kStep) {
      told = done;
      plan.movie->progress(done, plan.dataSize);
    }
  };
  plan.ForEachRange([&](const CopyRange& range) {
    output.Copy(sources.Open(*range.from), range.at, range.length);
    tell(range.length);
  });
  for (const MadeData& made : plan.made) {
    const std::uint64_t end = output.Position() + made.size;
    made.make(plan, [&](ByteSpan bytes) {
      output.Append(bytes);
      tell(bytes.size());
    });
    // It was made of media that have changed since it was planned.
    if (output.Position() != end) throw Refused{ioErr};
  }
  output.Flush();
}

namespace {

// The movie header of a file: its size is known before anything is written. Compressed it is held
// in memory, for only then is that so.
class Header {
 public:
  Header(const FilePlan& plan, const boost::filesystem::path& file, bool isCompressed)
      : movie_(plan, file), dataHead_(HeadOf(plan).size()), isCompressed_(isCompressed) {}

  std::uint64_t Size() const { return size_; }
  // Whether all of it is in memory once it is settled.
  bool IsHeld() const { return isCompressed_; }

  // Settles it for media data at byte `dataStart`.
  void Settle(std::uint64_t dataStart) {
    dataStart_ = dataStart;
    compressed_ = {};  // frees the last round's before the next needs room
    if (isCompressed_) compressed_ = CompressMovie(movie_.Encode(dataStart));
    size_ = isCompressed_ ? compressed_.size() : movie_.SizeAt(dataStart);
  }

  // Settles it for byte `start` and media data behind it, after its head.
  void SettleInFront(std::uint64_t start) {
    // Chunk offsets move with the header's size, and it is larger when they need 64 bits: the size
    // settles in a round or two.
    size_ = movie_.SizeAt(start + dataHead_);
    for (std::uint64_t before = 0; before != size_;) {
      before = size_;
      size_ = movie_.SizeAt(start + size_ + dataHead_);
    }
    dataStart_ = start + size_ + dataHead_;
    if (isCompressed_) CompressInFront(start);
  }

  void AppendTo(OutputFile& output) {
    if (isCompressed_) {
      output.Append(compressed_);
    } else {
      movie_.Write(dataStart_, [&output](ByteSpan block) { output.Append(block); });
    }
  }

 private:
  // The compressed size is known only afterwards, and other offsets compress otherwise: what a
  // first round gives, and a little more, is the room for the next, and what is left is padding.
  void CompressInFront(std::uint64_t start) {
    Settle(dataStart_);
    std::uint64_t room = 0;
    do {
      room = size_ + 64 + size_ / 256;
      Settle(start + room + dataHead_);
    } while (size_ != room && size_ + 8 > room);
    if (size_ != room) {
      const Bytes padding = Padding(room - size_);
      compressed_.insert(compressed_.end(), padding.begin(), padding.end());
      size_ = room;
    }
  }

  MovieWriter movie_;
  const std::uint64_t dataHead_;
  const bool isCompressed_;
  Bytes compressed_;
  std::uint64_t dataStart_ = 0, size_ = 0;
};

// For work with sample tables after minutes of copying, when their files may have changed.
void OwnTables(const FilePlan& plan) {
  for (const TrackPlan& track : plan.tracks) {
    if (track.source->media) track.source->media->samples.OwnRows();
  }
}

void WriteMovieAndMedia(const FilePlan& plan, FileLayout layout,
                        const boost::filesystem::path& file, OutputFile& output) {
  const Bytes type = FileTypeOf(plan);
  const std::uint64_t head = HeadOf(plan).size();
  // From within a compressed header other readers do not find what lies beside the samples.
  Header movie(plan, file, layout.compress && plan.auxiliary.empty());
  if (plan.dataSize == 0) {
    movie.Settle(0);
    output.Append(type);
    movie.AppendTo(output);
    return;
  }
  if (layout.movieFirst) {
    movie.SettleInFront(type.size());
  } else {
    movie.Settle(type.size() + head);
  }
  output.Reserve(type.size() + movie.Size() + head + plan.dataSize);
  output.Append(type);
  if (layout.movieFirst) movie.AppendTo(output);
  if (!plan.made.empty() || (!layout.movieFirst && !movie.IsHeld())) OwnTables(plan);
  CopyMediaData(plan, output);
  if (!layout.movieFirst) movie.AppendTo(output);
}

}  // namespace

void WriteFile(const FilePlan& plan, FileLayout layout, const boost::filesystem::path& file,
               OutputFile& output) {
  WriteMovieAndMedia(plan, layout, file, output);
  // What else belongs to the movie goes behind everything else.
  CopyFileAtoms(*plan.movie, output);
  output.Flush();
}

}  // namespace toolbox
