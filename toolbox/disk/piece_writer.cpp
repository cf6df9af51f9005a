#include "toolbox/disk/piece_writer.h"

#include <algorithm>

namespace toolbox {

void PieceWriter::Flush() {
  if (filled_ == 0) return;
  disk_.Write(start_, ByteSpan(block_).first(filled_));
  start_ += filled_;
  filled_ = 0;
}

void PieceWriter::Write(std::uint64_t at, ByteSpan bytes) {
  MoveTo(at);
  while (!bytes.empty()) {
    const ByteSpan piece = bytes.first(std::min(bytes.size(), kCopyBlock - filled_));
    std::ranges::copy(piece, block_.begin() + static_cast<std::ptrdiff_t>(filled_));
    filled_ += piece.size();
    bytes = bytes.subspan(piece.size());
    if (filled_ == kCopyBlock) Flush();
  }
}

void PieceWriter::MoveTo(std::uint64_t at) {
  if (at == start_ + filled_) return;
  Flush();
  start_ = at;
}

void PieceWriter::CopyAcross(std::uint64_t at, const ByteSource& source, std::uint64_t from,
                             std::uint64_t length) {
  MoveTo(at);
  if (length >= kCopyBlock) {
    Flush();
    disk_.Copy(at, source, from, length);
    start_ += length;
    return;
  }
  if (filled_ == kCopyBlock) Flush();
  const std::uint64_t first = std::min<std::uint64_t>(length, kCopyBlock - filled_);
  Read(source, from, first);
  if (first == length) return;
  Flush();
  Read(source, from + first, length - first);
}

void PieceWriter::Read(const ByteSource& source, std::uint64_t from, std::uint64_t length) {
  const auto into = std::span(block_).subspan(filled_, length);
  if (source.Descriptor() >= 0) {
    cache_.Read(source, from, into);
  } else {
    source.Read(from, into);
  }
  filled_ += length;
}

}  // namespace toolbox
