// What is to be done to a file, as a list that a test can read, and doing it.
#pragma once

#include <cstdint>
#include <functional>
#include <variant>
#include <vector>

#include "toolbox/bytes.h"
#include "toolbox/disk/disk.h"

namespace toolbox {

// The steps. Each is one operation of a Disk; all numbers are bytes.
struct WriteBytes {
  std::uint64_t at = 0;
  Bytes bytes;
  friend bool operator==(const WriteBytes&, const WriteBytes&) = default;
};
struct CopyBytes {
  std::uint64_t at = 0;
  const ByteSource* source = nullptr;
  std::uint64_t from = 0, length = 0;
  friend bool operator==(const CopyBytes&, const CopyBytes&) = default;
};
// Writes a part that is too large for memory, so that it is made while it is written.
struct WritePart {
  std::uint64_t at = 0, size = 0;
  int part = 0;  // which one, and
  std::uint64_t detail = 0;  // what more has to be known of it: the PartWriter understands both
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

// Steps in their order. When one of them fails, those of `undo` are done and nothing after them.
struct Stage {
  std::vector<Step> steps, undo;
  friend bool operator==(const Stage&, const Stage&) = default;
};

// Writes the part to the disk: `part.size` bytes at `part.at`.
using PartWriter = std::function<void(const WritePart& part, Disk& disk)>;

// Does all steps in their order and flushes the disk. Throws what a step or `writePart` throws, or
// an undoing step when that fails too.
void Perform(const std::vector<Stage>& stages, Disk& disk, const PartWriter& writePart);

// Makes a new file of `size` bytes whole. After a power cut either the file that it replaces is
// there or all of the new one.
Stage NamingStage(std::uint64_t size);

}  // namespace toolbox
