#include "toolbox/disk/piece_copier.h"

#include <algorithm>

namespace toolbox {

void PieceCopier::Flush() {
  if (filled_ == 0) return;
  disk_.Write(start_, ByteSpan(block_).first(filled_));
  start_ += filled_;
  filled_ = 0;
}

void PieceCopier::CopyAcross(std::uint64_t at, const ByteSource& source, std::uint64_t from,
                             std::uint64_t length) {
  if (at != start_ + filled_ || length >= kBlock) {
    Flush();
    start_ = at;
  }
  if (length >= kBlock) {
    disk_.Copy(at, source, from, length);
    start_ += length;
    return;
  }
  // Only whole blocks are written, because the output file passes them on without a copy.
  const std::uint64_t first = std::min<std::uint64_t>(length, kBlock - filled_);
  Read(source, from, first);
  if (first == length) return;
  Flush();
  Read(source, from + first, length - first);
}

void PieceCopier::Read(const ByteSource& source, std::uint64_t from, std::uint64_t length) {
  const auto into = std::span(block_).subspan(filled_, length);
  if (source.Descriptor() >= 0) {
    cache_.Read(source, from, into);
  } else {
    source.Read(from, into);
  }
  filled_ += length;
}

}  // namespace toolbox
