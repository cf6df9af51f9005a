#include "toolbox/write/write_parts.h"

#include <algorithm>

#include "toolbox/disk/piece_writer.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// The most bytes to copy at once, so that progress is reported during a long range too.
constexpr std::uint64_t kLongestCopy = 64 << 20;

}  // namespace

void PartsWriter::Perform(const std::vector<Stage>& stages, Disk& disk) {
  toolbox::Perform(stages, disk, [this](const WritePart& part, Disk& to) { Write(part, to); });
}

void PartsWriter::Write(const WritePart& part, Disk& disk) {
  switch (part.part) {
    case kMovieHeader:
      return WriteHeader(part, disk);
    case kCopiedMedia:
      return CopyMedia(part, disk);
    case kMadeMedia:
      return MakeMedia(part, disk);
    default:
      throw Refused{ioErr};
  }
}

void PartsWriter::WriteHeader(const WritePart& part, Disk& disk) {
  std::uint64_t at = part.at;
  header_.Write(part.detail, [&](ByteSpan block) {
    disk.Write(at, block);
    at += block.size();
  });
}

void PartsWriter::CopyMedia(const WritePart& part, Disk& disk) {
  PieceWriter writer(disk);
  plan_.ForEachRange([&](const CopyRange& range) {
    const ByteSource& source = sources_.Open(*range.from, [&writer] { writer.ForgetSources(); });
    for (std::uint64_t done = 0, length = 0; done < range.length; done += length) {
      length = std::min(range.length - done, kLongestCopy);
      writer.Copy(part.at + range.destination + done, source, range.at + done, length);
      Report(length);
    }
  });
  writer.Flush();
}

void PartsWriter::MakeMedia(const WritePart& part, Disk& disk) {
  const MadeData& made = plan_.made.at(part.detail);
  std::uint64_t at = part.at;
  PieceWriter writer(disk);
  made.make(plan_, [&](ByteSpan bytes) {
    writer.Write(at, bytes);
    at += bytes.size();
    Report(bytes.size());
  });
  writer.Flush();
  if (at != part.at + part.size) throw Refused{ioErr, "the data to write has changed its size"};
}

void PartsWriter::Report(std::uint64_t bytes) {
  // The bytes between two reports: few enough for a user who waits, and too many for the reports to
  // cost time.
  constexpr std::uint64_t kStep = 8 << 20;
  done_ += bytes;
  if (!plan_.movie->progress || done_ - reported_ < kStep) return;
  reported_ = done_;
  plan_.movie->progress(done_, plan_.dataSize);
}

void LoadTables(const FilePlan& plan) {
  for (const TrackPlan& track : plan.tracks) {
    if (track.source->media) track.source->media->samples.LeaveFiles();
  }
}

}  // namespace toolbox
