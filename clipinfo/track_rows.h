// Draws the tracks of a movie, one below the other.
#pragma once

#include <string>
#include <vector>

#include "clipinfo/blocks.h"
#include "clipinfo/plot.h"
#include "clipinfo/svg.h"

namespace clipinfo {

// The kinds of things that have been drawn, for the legend.
struct DrawnKinds {
  bool hasEmpty = false, hasHidden = false, hasSpeed = false, hasMerged = false, hasSync = false;
};

// A track to draw.
struct TrackRow {
  const toolbox::TrackRecord& track;
  std::size_t number = 1;  // in the movie
  std::string name;
  const std::vector<FileRun>& runs;
};

// Draws rows with times as in `plot`. Everything passed here must outlive it.
//
//   name      |  block  |  block  |     what the edits show
//   details    \         \  \      \ |
//             |//|   media   |  media |     if no edit shows all of the media
class TrackRows {
 public:
  TrackRows(const Plot& plot, const std::vector<SourceFile>& files, Svg& svg)
      : plot_(plot), files_(files), svg_(svg) {}

  // Draws a row whose top is at `top`, and returns its bottom.
  double Draw(const TrackRow& row, double top);
  const DrawnKinds& Kinds() const { return drawn_; }

 private:
  void DrawName(const TrackRow& row, double top);
  void DrawBlock(const TrackRow& row, const EditBlock& block, double top);
  void DrawSync(const TrackRow& row, const EditBlock& block, double top);
  void DrawMedia(const TrackRow& row, const std::vector<MediaPart>& shown, const Plot& plot,
                 double top);
  void DrawBeams(const TrackRow& row, const std::vector<EditBlock>& blocks, const Plot& media,
                 double top);

  // How a part is filled whose media is in that file.
  std::string ClassOf(const std::optional<std::size_t>& file) const;
  // What is written on a block; empty if there is nothing to say.
  std::string LabelOf(const TrackRow& row, const EditBlock& block) const;
  Hover HoverOf(const TrackRow& row, const EditBlock& block) const;
  bool IsMissing(const std::optional<std::size_t>& file) const {
    return file && files_[*file].isMissing;
  }

  const Plot& plot_;
  const std::vector<SourceFile>& files_;
  Svg& svg_;
  DrawnKinds drawn_;
};

// The path of the signs for a speed, at the top of a block.
std::string Arrows(const Box& box, double rate);

// The class of things in the file of that index.
std::string ColorClass(std::size_t file);

}  // namespace clipinfo
