// The changes to a file as a list of steps, which a test can read, and their execution.
#pragma once

#include <cstdint>
#include <functional>
#include <variant>
#include <vector>

#include "toolbox/bytes.h"
#include "toolbox/disk/disk.h"

namespace toolbox {

// The kinds of steps. Each is one operation of a Disk, except WritePart. All positions and sizes
// are in bytes.
struct WriteBytes {
  std::uint64_t at = 0;
  Bytes bytes;
  friend bool operator==(const WriteBytes&, const WriteBytes&) = default;
};
// Copies the bytes [from, from + length) of `source` to `at`. The source is not owned.
struct CopyBytes {
  std::uint64_t at = 0;
  const ByteSource* source = nullptr;
  std::uint64_t from = 0, length = 0;
  friend bool operator==(const CopyBytes&, const CopyBytes&) = default;
};
// Writes a part that may be too large for memory. A PartWriter makes it while it is written.
struct WritePart {
  std::uint64_t at = 0, size = 0;
  int part = 0;  // which part; only the PartWriter knows its meaning
  std::uint64_t detail = 0;  // more about the part, also for the PartWriter
  friend bool operator==(const WritePart&, const WritePart&) = default;
};
struct Reserve {
  std::uint64_t size = 0;
  friend bool operator==(const Reserve&, const Reserve&) = default;
};
struct Sync {
  friend bool operator==(const Sync&, const Sync&) = default;
};
struct CutOff {
  std::uint64_t size = 0;
  friend bool operator==(const CutOff&, const CutOff&) = default;
};
struct TakeName {
  friend bool operator==(const TakeName&, const TakeName&) = default;
};
using Step = std::variant<WriteBytes, CopyBytes, WritePart, Reserve, Sync, CutOff, TakeName>;

// Steps that are done in order. If one of them throws, the steps of `undo` are done, and the later
// stages are not.
struct Stage {
  std::vector<Step> steps, undo;
  friend bool operator==(const Stage&, const Stage&) = default;
};

// Writes `part.size` bytes at `part.at` of the disk.
using PartWriter = std::function<void(const WritePart& part, Disk& disk)>;

// Does all steps in order. `writePart` may be null if no step is a WritePart. Throws what the
// failed step throws, or what a step of its `undo` throws.
void Perform(const std::vector<Stage>& stages, Disk& disk, const PartWriter& writePart);

// The last stage of a new file of `size` bytes. The file is synced before it takes its name, so
// after a power cut there is either the complete old file or the complete new one.
Stage NamingStage(std::uint64_t size);

}  // namespace toolbox
