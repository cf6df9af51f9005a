// A disk in memory on which every operation can fail, be cut short, or be lost in a power cut.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "toolbox/disk/disk.h"
#include "toolbox/refused.h"

namespace toolbox {

class MemoryDisk final : public Disk {
 public:
  enum class Fault {
    kFail,  // the operation does half of its work and is refused; later ones work
    kKill,  // the process ends in the middle of the operation
  };
  struct Killed {};

  // A file that is changed in place, or a file that a new one replaces.
  MemoryDisk(Bytes old, bool isNew)
      : old_(std::move(old)), isNew_(isNew), file_(isNew ? Bytes() : old_), synced_(file_) {}

  // The operation with that number, counted from 0, goes wrong.
  void BreakAt(int operation, Fault fault) { broken_ = operation, fault_ = fault; }
  int Operations() const { return operations_; }
  std::uint64_t Size() const { return file_.size(); }
  // The file that a program finds if it opens it now.
  const Bytes& Seen() const { return isNew_ && !isNamed_ ? old_ : file_; }

  // Every file that a power cut can leave. Any part of the unsynced writes may be on the disk.
  std::vector<Bytes> AfterPowerCut() const {
    if (isNew_ && !isNamed_) return {old_};
    std::vector<Bytes> left;
    if (isNew_) left.push_back(old_);
    const std::size_t count = std::min<std::size_t>(unsynced_.size(), 6);
    for (std::size_t parts = 0; parts < std::size_t{1} << count; ++parts) {
      Bytes file = synced_;
      for (std::size_t i = 0; i < unsynced_.size(); ++i) {
        if (i >= count || (parts >> i & 1) != 0) unsynced_[i](file);
      }
      left.push_back(std::move(file));
    }
    return left;
  }

  // A long write tears in its middle. A short one tears where a sector ends, which is the smallest
  // unit that a disk writes as a whole.
  void Write(std::uint64_t at, ByteSpan bytes) override {
    constexpr std::uint64_t kSector = 512;
    const std::size_t cut = bytes.size() > 16
                                ? bytes.size() / 2
                                : std::min<std::size_t>(bytes.size(), kSector - at % kSector);
    const auto put = [](std::uint64_t where, ByteSpan part) {
      return
          [where, copy = Bytes(part.begin(), part.end())](Bytes& file) { Put(file, where, copy); };
    };
    Do({put(at, bytes.first(cut)), put(at + cut, bytes.subspan(cut))});
  }
  void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
            std::uint64_t length) override {
    Bytes bytes(length);
    source.Read(from, bytes);
    Write(at, bytes);
  }
  void Reserve(std::uint64_t) override { Do({}); }
  void Sync() override {
    Do({});
    synced_ = file_;
    unsynced_.clear();
  }
  void CutOff(std::uint64_t size) override {
    Do({[size](Bytes& file) { file.resize(size); }});
  }
  void TakeName() override {
    Do({});
    isNamed_ = true;
  }

 private:
  using Change = std::function<void(Bytes&)>;

  static void Put(Bytes& file, std::uint64_t at, const Bytes& bytes) {
    file.resize(std::max<std::size_t>(file.size(), at + bytes.size()));
    std::ranges::copy(bytes, file.begin() + static_cast<std::ptrdiff_t>(at));
  }

  // Makes all changes, or only the first of several if this is the operation that goes wrong.
  void Do(std::vector<Change> changes) {
    if (isKilled_) throw Killed{};
    const bool isBroken = operations_++ == broken_;
    if (isBroken) changes.resize(changes.size() / 2);
    for (const Change& change : changes) {
      change(file_);
      unsynced_.push_back(change);
    }
    if (!isBroken) return;
    if (fault_ == Fault::kFail) throw Refused{dskFulErr};
    isKilled_ = true;
    throw Killed{};
  }

  Bytes old_;
  bool isNew_, isNamed_ = false, isKilled_ = false;
  Bytes file_, synced_;
  std::vector<Change> unsynced_;
  int operations_ = 0, broken_ = -1;
  Fault fault_ = Fault::kFail;
};

}  // namespace toolbox
