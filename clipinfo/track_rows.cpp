#include "clipinfo/track_rows.h"

#include <array>
#include <cstdio>

#include "clipinfo/time_text.h"
#include "toolbox/movie/media_types.h"
#include "toolbox/movie/movie.h"

namespace clipinfo {
namespace {

using toolbox::FourCC;
using toolbox::MediaTime;
using toolbox::MovieTime;
using toolbox::TrackRecord;

// Pixels.
constexpr double kBlockHeight = 32, kBeamHeight = 20, kMediaHeight = 12, kShortest = 2;
// More beams than this would cover one another.
constexpr std::size_t kMostBeams = 24;

// "video track 1, avc1".
std::string Details(const TrackRecord& track) {
  if (!track.media) return "no media";
  std::string details = toolbox::DescribeMediaType(track.media->Type()).name;
  std::vector<FourCC> formats;
  for (const toolbox::SampleDescription& description : track.media->descriptions) {
    if (std::ranges::find(formats, description.Format()) != formats.end()) continue;
    formats.push_back(description.Format());
    if (formats.size() > 3) return details + ", …";
    details += ", " + formats.back().Text();
  }
  return details;
}

std::string Counted(std::uint64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string RateText(double rate) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.3g×", rate);
  return text.data();
}

std::string Span(MovieTime from, MovieTime until, std::int32_t scale) {
  return TimeText(from.units, scale) + " – " + TimeText(until.units, scale);
}

// The hidden part of a media is only drawn if it has at least that many pixels. Compressed sound
// nearly always starts with a packet that is not heard.
constexpr double kShortestHidden = 6;

// How much of `whole` is not in `shown`.
MediaTime HiddenLength(const MediaPart& whole, const std::vector<MediaPart>& shown) {
  MediaTime hidden, at = whole.from;
  for (const MediaPart& part : shown) {
    hidden += std::max(MediaTime{}, std::min(part.from, whole.until) - at);
    at = std::max(at, part.until);
  }
  return hidden + std::max(MediaTime{}, whole.until - at);
}

}  // namespace

// Pairs of arrows for a speed above 1, arrows further apart for one below, bars for 0.
std::string Arrows(const Box& box, double rate) {
  constexpr double kMargin = 6;
  const double step = rate > 1 ? 14 : 28;
  const std::string sign = rate == 0  ? "v6m3 -6v6"
                           : rate > 1 ? "l3 3-3 3m5 -6l3 3-3 3"
                                      : "l3 3-3 3";
  std::string path;
  for (double x = box.x + kMargin; x + kMargin + 8 < box.x + box.width; x += step) {
    path += "M" + Pixels(x) + " " + Pixels(box.y + 3) + sign;
  }
  return path;
}

std::string ColorClass(std::size_t file) { return "f" + std::to_string(file % 8); }

double TrackRows::Draw(const TrackRow& row, double top) {
  const TrackRecord& track = row.track;
  const std::int32_t scale = track.TimeClock().movie;
  svg_.BeginGroup(track.IsEnabled() ? "track" : "track off");
  DrawName(row, top);
  const std::vector<EditBlock> blocks =
      BlocksOf(track, row.runs, plot_.Within<toolbox::MovieLine>(kShortest, scale));
  double bottom = top + kBlockHeight;
  if (track.media && track.media->samples.Count() != 0) {
    const std::int32_t mediaScale = track.TimeClock().media;
    const MediaPart whole = WholeMedia(track.media->samples);
    Plot media = plot_;
    media.seconds = std::max(media.seconds, static_cast<double>(whole.until.units) / mediaScale);
    const MediaTime closest = media.Within<toolbox::MediaLine>(kShortest, mediaScale);
    const std::vector<MediaPart> shown = ShownMedia(track, closest);
    const MediaTime least = media.Within<toolbox::MediaLine>(kShortestHidden, mediaScale);
    if (HiddenLength(whole, shown) >= least) {
      drawn_.hasHidden = true;
      if (blocks.size() <= kMostBeams) DrawBeams(row, blocks, media, bottom);
      DrawMedia(row, shown, media, bottom + kBeamHeight);
      bottom += kBeamHeight + kMediaHeight;
    }
  }
  for (const EditBlock& block : blocks) DrawBlock(row, block, top);
  svg_.EndGroup();
  return bottom;
}

void TrackRows::DrawName(const TrackRow& row, double top) {
  const TrackRecord& track = row.track;
  constexpr double kRoom = Plot::kLeft - Plot::kMargin - 12;
  Hover hover{row.name, "track " + std::to_string(row.number) + ": " + Details(track)};
  std::string details = Details(track);
  if (track.media) {
    hover.push_back(Counted(track.media->samples.Count(), "sample") + ", " +
                    std::to_string(track.media->header.scale) + " units per second");
  }
  hover.push_back(Counted(track.edits.Edits().size(), "edit"));
  if (!track.IsEnabled()) {
    details += ", disabled";
    hover.push_back("disabled");
  }
  svg_.Text("name", Plot::kMargin, top + 14, Fitted(row.name, kRoom, 15.5), hover);
  svg_.Text("details", Plot::kMargin, top + 29, Fitted(details, kRoom, 12), hover);
}

void TrackRows::DrawBlock(const TrackRow& row, const EditBlock& block, double top) {
  const std::int32_t scale = row.track.TimeClock().movie;
  const double left = plot_.At(block.from, scale), right = plot_.At(block.until, scale);
  // A gap shows where a block ends. A very short block is still visible.
  const double gap = std::min(1.0, (right - left) / 4);
  const double width = std::max(right - left - gap, block.IsEmpty() ? 0.5 : 1.5);
  const Box box{std::min(left, Plot::kRight - width), top, width, kBlockHeight};
  const bool hasSpeed = !block.isMerged && block.edit->rate != 1;
  svg_.Rect("edit " + (block.IsEmpty() ? "empty" : ClassOf(block.file)), box, HoverOf(row, block));
  if (block.isMerged) svg_.Rect("many", box);
  if (hasSpeed) svg_.Path("arrow", Arrows(box, block.edit->rate));
  drawn_.hasEmpty |= block.IsEmpty();
  drawn_.hasMerged |= block.isMerged;
  drawn_.hasSpeed |= hasSpeed;
  if (!block.IsEmpty()) DrawSync(row, block, top);
  const std::string label = Fitted(LabelOf(row, block), box.width - 8, 12);
  if (label.empty()) return;
  const bool isOnPage = block.IsEmpty() || !(block.file || block.isMerged);
  const char* color = IsMissing(block.file) ? "label bad" : isOnPage ? "label dark" : "label";
  svg_.Text(color, box.x + box.width / 2, top + 20, label);
}

void TrackRows::DrawSync(const TrackRow& row, const EditBlock& block, double top) {
  constexpr double kRoom = 6;  // pixels for a tick
  if (!row.track.media) return;
  const std::int32_t scale = row.track.TimeClock().movie;
  const double left = plot_.At(block.from, scale), right = plot_.At(block.until, scale);
  const auto most = static_cast<std::uint64_t>((right - left) / kRoom);
  std::string path;
  for (const MovieTime time : SyncTimes(row.track, block, most)) {
    path += "M" + Pixels(plot_.At(time, scale) + 0.5) + " " + Pixels(top + kBlockHeight - 6) + "v6";
  }
  if (path.empty()) return;
  drawn_.hasSync = true;
  svg_.Path(IsMissing(block.file) ? "sync axis" : "sync tick", path);
}

void TrackRows::DrawBeams(const TrackRow& row, const std::vector<EditBlock>& blocks,
                          const Plot& media, double top) {
  const toolbox::Clock clock = row.track.TimeClock();
  for (const EditBlock& block : blocks) {
    if (block.isMerged || block.IsEmpty() || !block.file) continue;
    const MediaPart part = MediaOf(row.track, block);
    const auto point = [](double x, double y) { return Pixels(x) + " " + Pixels(y); };
    const double bottom = top + kBeamHeight;
    svg_.Path(IsMissing(block.file) ? "beam bad" : "beam " + ColorClass(*block.file),
              "M" + point(plot_.At(block.from, clock.movie), top) + "L" +
                  point(plot_.At(block.until, clock.movie), top) + "L" +
                  point(media.At(part.until, clock.media), bottom) + "L" +
                  point(media.At(part.from, clock.media), bottom) + "z");
  }
}

void TrackRows::DrawMedia(const TrackRow& row, const std::vector<MediaPart>& shown,
                          const Plot& plot, double top) {
  const std::int32_t scale = row.track.TimeClock().media;
  const MediaPart whole = WholeMedia(row.track.media->samples);
  svg_.Text("details right", Plot::kLeft - 10, top + 10, "media");
  const auto box = [&](MediaTime from, MediaTime until) {
    const double left = plot.At(from, scale);
    return Box{left, top, std::max(plot.At(until, scale) - left, 0.5), kMediaHeight};
  };
  const auto span = [&](MediaTime from, MediaTime until) {
    return TimeText(from.units, scale) + " – " + TimeText(until.units, scale) + " of the media";
  };
  const MediaTime shortest = plot.Within<toolbox::MediaLine>(kShortest, scale);
  for (auto run = row.runs.begin(); run != row.runs.end();) {
    // Runs that are too short to be drawn are skipped.
    const MediaTime from = std::max(run->from, whole.from);
    const auto next = std::ranges::lower_bound(std::next(run), row.runs.end(), from + shortest, {},
                                               &FileRun::from);
    const MediaTime until = next == row.runs.end() ? whole.until : next->from;
    Hover hover{span(from, until)};
    if (run->file) hover.push_back("in " + files_[*run->file].path);
    if (from < until) svg_.Rect("media " + ClassOf(run->file), box(from, until), hover);
    run = next;
  }
  MediaTime at = whole.from;
  const auto hide = [&](MediaTime from, MediaTime until) {
    if (from >= until) return;
    svg_.Rect("hidden", box(from, until), {span(from, until), "no edit shows this part"});
  };
  for (const MediaPart& part : shown) {
    hide(at, std::min(part.from, whole.until));
    at = std::max(at, part.until);
  }
  hide(at, whole.until);
}

std::string TrackRows::ClassOf(const std::optional<std::size_t>& file) const {
  if (!file) return "mixed";
  return IsMissing(file) ? "missing" : ColorClass(*file);
}

std::string TrackRows::LabelOf(const TrackRow& row, const EditBlock& block) const {
  if (block.isMerged) return Counted(block.edits, "edit");
  if (block.IsEmpty()) return "empty";
  std::string label;
  if (files_.size() > 1 && block.file) {
    label = files_[*block.file].name;
    if (IsMissing(block.file)) label += " is missing";
  } else if (row.track.edits.Edits().size() > 1) {
    label = "edit " + std::to_string(block.number);
  }
  if (block.edit->rate == 1) return label;
  return (block.edit->rate == 0 ? "held " : RateText(block.edit->rate) + " ") + label;
}

Hover TrackRows::HoverOf(const TrackRow& row, const EditBlock& block) const {
  const toolbox::Clock clock = row.track.TimeClock();
  std::string number = "Edit " + std::to_string(block.number);
  if (block.edits > 1) {
    number = "Edits " + std::to_string(block.number) + " – " +
             std::to_string(block.number + block.edits - 1);
  }
  Hover hover{number + ": " + Span(block.from, block.until, clock.movie)};
  if (block.IsEmpty()) {
    hover.push_back("empty: nothing is shown");
  } else if (!block.isMerged) {
    const MediaPart part = MediaOf(row.track, block);
    hover.push_back("shows " + TimeText(part.from.units, clock.media) + " – " +
                    TimeText(part.until.units, clock.media) + " of the media");
    if (block.edit->rate != 1) hover.push_back("at " + RateText(block.edit->rate) + " the speed");
  }
  if (block.file) {
    hover.push_back("in " + files_[*block.file].path +
                    (IsMissing(block.file) ? ", which is missing" : ""));
  }
  return hover;
}

}  // namespace clipinfo
