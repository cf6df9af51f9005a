#include "toolbox/write/write_parts.h"

#include <algorithm>
#include <utility>

#include "toolbox/disk/piece_writer.h"
#include "toolbox/disk/side_by_side.h"
#include "toolbox/references/sources.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// The bytes of media data that a thread copies before it takes the next window, and before progress
// is reported.
constexpr std::uint64_t kWindow = 16 << 20;

// The bytes between two reports: few enough for a user who waits, and too many for the reports to
// cost time.
constexpr std::uint64_t kReportStep = 8 << 20;

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
  if (at != part.at + part.size) throw Refused{ioErr, "the header has changed its size"};
}

void PartsWriter::CopyMedia(const WritePart& part, Disk& disk) {
  const std::uint64_t windows = (part.size + kWindow - 1) / kWindow;
  SideBySide(windows, ThreadsToCopy(part, disk), [&](std::uint64_t index, Bytes&) {
    CopyWindow({index * kWindow, std::min(part.size, (index + 1) * kWindow)}, part.at, disk);
  });
  Report(0);  // of what the other threads have copied since the last report
}

std::uint64_t PartsWriter::ThreadsToCopy(const WritePart& part, Disk& disk) const {
  // Sharing blocks takes no time, and a single window has work for one thread.
  if (plan_.unit != 1 || part.size <= kWindow || plan_.files.empty()) return 1;
  const auto largest =
      std::ranges::max_element(plan_.files, {}, [](const auto& file) { return file.second; });
  return disk.ThreadsToCopy(FileSource(largest->first), part.size);
}

void PartsWriter::CopyWindow(DataWindow window, std::uint64_t at, Disk& disk) {
  OpenSources sources(plan_.ownFile);
  PieceWriter writer(disk);
  const Bytes zeros(plan_.unit);
  // The unused bytes before a range that is shared.
  const auto fill = [&](std::uint64_t to) {
    for (std::uint64_t size = 0; window.from < to; window.from += size) {
      size = std::min<std::uint64_t>(zeros.size(), to - window.from);
      writer.Write(at + window.from, ByteSpan(zeros).first(size));
    }
  };
  std::uint64_t copied = 0;  // since the last report
  plan_.ForEachRange(window, [&](const CopyRange& range) {
    fill(range.destination);
    window.from += range.length;
    const ByteSource& source = sources.Open(*range.from, [&writer] { writer.ForgetSources(); });
    writer.Copy(at + range.destination, source, range.at, range.length);
    copied += range.length;
    if (copied >= kReportStep) Report(std::exchange(copied, 0));
  });
  fill(window.to);
  writer.Flush();
  Report(copied);
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
  const std::uint64_t done = done_ += bytes;
  const bool isCaller = std::this_thread::get_id() == caller_;
  if (!isCaller || !plan_.movie->progress || done - reported_ < kReportStep) return;
  reported_ = done;
  plan_.movie->progress(done, plan_.dataSize);
}

void LoadTables(const FilePlan& plan) {
  for (const TrackPlan& track : plan.tracks) {
    if (track.source->media) track.source->media->samples.LeaveFiles();
  }
}

}  // namespace toolbox
