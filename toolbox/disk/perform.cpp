#include "toolbox/disk/perform.h"

namespace toolbox {
namespace {

// Maps each kind of step to its operation of the disk.
class Performer {
 public:
  Performer(Disk& disk, const PartWriter& writePart) : disk_(disk), writePart_(writePart) {}

  void Do(const std::vector<Step>& steps) {
    for (const Step& step : steps) std::visit(*this, step);
  }
  void operator()(const WriteBytes& step) { disk_.Write(step.at, step.bytes); }
  void operator()(const CopyBytes& step) {
    disk_.Copy(step.at, *step.source, step.from, step.length);
  }
  void operator()(const WritePart& step) { writePart_(step, disk_); }
  void operator()(const Reserve& step) { disk_.Reserve(step.size); }
  void operator()(const Sync&) { disk_.Sync(); }
  void operator()(const CutOff& step) { disk_.CutOff(step.size); }
  void operator()(const TakeName&) { disk_.TakeName(); }

 private:
  Disk& disk_;
  const PartWriter& writePart_;
};

}  // namespace

void Perform(const std::vector<Stage>& stages, Disk& disk, const PartWriter& writePart) {
  Performer performer(disk, writePart);
  for (const Stage& stage : stages) {
    try {
      performer.Do(stage.steps);
    } catch (...) {
      // Only the `undo` of this stage is done. If earlier stages must be undone too, it includes
      // their steps.
      performer.Do(stage.undo);
      throw;
    }
  }
}

Stage NamingStage(std::uint64_t size) { return {{CutOff{size}, Sync{}, TakeName{}}, {}}; }

}  // namespace toolbox
