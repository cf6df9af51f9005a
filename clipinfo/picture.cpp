#include <algorithm>
#include <cmath>
#include <iostream>

#include "clipinfo/chapters.h"
#include "clipinfo/modes.h"
#include "clipinfo/picture_style.h"
#include "clipinfo/time_text.h"
#include "clipinfo/track_rows.h"
#include "input/track_names.h"
#include "utils/text_file.h"
#include "utils/visible.h"

namespace clipinfo {
namespace {

using chapter::Chapter;

// More than these are only counted.
constexpr std::size_t kMostRows = 40, kMostFiles = 24, kMostPoles = 24;
constexpr double kRowGap = 18;

std::string Counted(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// "M x top v height": a vertical line in the middle of a pixel.
std::string Upright(double x, double top, double height) {
  return "M" + Pixels(std::floor(x) + 0.5) + " " + Pixels(top) + "v" + Pixels(height);
}

// The start of a path, `right` of the left top of a box.
std::string From(const Box& box, double right) {
  return "M" + Pixels(box.x + right) + " " + Pixels(box.y);
}

// Entries in lines: a sample and what it means.
class Legend {
 public:
  Legend(Svg& svg, double top) : svg_(svg), y_(top) {}

  // Adds an entry, at least `column` wide without its sample. Returns where the sample belongs.
  Box Add(const std::string& text, double column = 0, const Hover& hover = {}) {
    constexpr double kGap = 20;
    const double width = kSample + std::max(column, WidthOf(text, 12)) + kGap;
    if (x_ + width - kGap > Plot::kRight) EndLine();
    svg_.Text("legend", x_ + kSample, y_ + 10, text, hover);
    const Box box{x_, y_, kSample - 6, 12};
    x_ += width;
    return box;
  }
  void AddLine(const std::string& text) {
    svg_.Text("legend", x_, y_ + 10, text);
    y_ += kLine;
  }
  void EndLine() {
    if (x_ > Plot::kLeft) y_ += kLine;
    x_ = Plot::kLeft;
  }
  double Bottom() const { return y_; }

 private:
  static constexpr double kSample = 30, kLine = 22;

  Svg& svg_;
  double x_ = Plot::kLeft, y_;
};

// A movie and everything that has to be known before it can be drawn.
class TimeLine {
 public:
  explicit TimeLine(OpenedMovie& opened)
      : movie_(*opened.movie), name_(opened.path), files_(opened) {
    Resolve(opened);
    names_ = input::TrackNames(&movie_);
    for (const auto& track : movie_.tracks) {
      runs_.push_back(track->media ? files_.RunsOf(*track->media) : std::vector<FileRun>());
    }
    const std::int32_t scale = movie_.header.scale;
    plot_.seconds = static_cast<double>(movie_.Duration().units) / scale;
    chapters_ = ReadChapters(movie_).value_or(std::vector<Chapter>());
    std::ranges::stable_sort(chapters_, {}, StartOf);
  }

  // The picture as an SVG document.
  std::string Picture() {
    DrawHead();
    // The lines of the time axis are below the rows, but are as long as all of them.
    Svg rows;
    std::swap(rows, svg_);
    const double top = chapters_.empty() ? 106 : 130;
    const double bottom = DrawRows(top);
    std::swap(rows, svg_);
    DrawAxis(top - 14, bottom);
    DrawChapters(top - 14, bottom);
    const double end = DrawLegend(rows, bottom + 24);
    return Document(rows, end + 6);
  }

 private:
  static double StartOf(const Chapter& chapter) {
    return static_cast<double>(chapter.start) / chapter.scale;
  }

  void DrawHead();
  double DrawRows(double top);
  void DrawAxis(double bottom, double end);
  void DrawChapters(double axis, double end);
  double DrawLegend(Svg& svg, double top);
  std::string Document(const Svg& rows, double height) const;

  toolbox::MovieRecord& movie_;
  boost::filesystem::path name_;
  SourceFiles files_;
  std::vector<std::vector<FileRun>> runs_;  // by track
  std::vector<std::string> names_;  // by track
  std::vector<Chapter> chapters_;  // by time
  Plot plot_;
  Svg svg_;
  DrawnKinds drawn_;
};

void TimeLine::DrawHead() {
  const std::vector<SourceFile>& files = files_.All();
  const auto missing = std::ranges::count_if(files, &SourceFile::isMissing);
  std::string details = TimeText(movie_.Duration().units, movie_.header.scale);
  details += ", " + Counted(runs_.size(), "track");
  if (!chapters_.empty()) details += ", " + Counted(chapters_.size(), "chapter");
  details += ", media in " + Counted(files.size(), "file");
  if (missing != 0) details += " (" + std::to_string(missing) + " missing)";
  svg_.Text("title", Plot::kMargin, 36, Fitted(name_.filename().native(), 1100, 18));
  svg_.Text("details", Plot::kMargin, 57, details);
}

// Returns the bottom of the last row.
double TimeLine::DrawRows(double top) {
  TrackRows rows(plot_, files_.All(), svg_);
  const std::size_t count = std::min(runs_.size(), kMostRows);
  for (std::size_t i = 0; i < count; ++i) {
    top = rows.Draw({*movie_.tracks[i], i + 1, names_[i], runs_[i]}, top) + kRowGap;
  }
  drawn_ = rows.Kinds();
  if (count < runs_.size()) {
    svg_.Text("details", Plot::kMargin, top + 8,
              Counted(runs_.size() - count, "more track") + " not shown");
    top += 24;
  }
  return top - kRowGap;
}

// Draws the axis above `bottom`, and its grid down to `end`.
void TimeLine::DrawAxis(double bottom, double end) {
  // In milliseconds. Later steps are those before, times ten.
  static constexpr std::int64_t kSteps[] = {
      1,      2,      5,       10,      20,      50,       100,      200,      500,
      1000,   2000,   5000,    10000,   15000,   30000,    60000,    120000,   300000,
      600000, 900000, 1800000, 3600000, 7200000, 14400000, 21600000, 43200000, 86400000};
  constexpr double kRoom = 80;  // pixels for a time
  const double most = Plot::kWidth / kRoom, length = plot_.seconds * 1000;
  constexpr double kLongest = 1e15;  // 30,000 years: then no time is legible
  if (length <= 0 || length > kLongest) return;
  const auto* found = std::ranges::find_if(
      kSteps, [&](std::int64_t step) { return length / static_cast<double>(step) <= most; });
  std::int64_t step = found == std::end(kSteps) ? kSteps[std::size(kSteps) - 1] : *found;
  while (length / static_cast<double>(step) > most) step *= 10;
  std::string lines, grid;
  for (std::int64_t time = 0; static_cast<double>(time) <= length; time += step) {
    const double x = plot_.At(static_cast<double>(time) / 1000);
    const std::string text = TimeText(time, 1000);
    const bool isAtEdge = x + WidthOf(text, 13) / 2 > Plot::kPage - 4;
    svg_.Text(isAtEdge ? "time right" : "time middle", isAtEdge ? Plot::kPage - 4 : x, bottom - 6,
              text);
    lines += Upright(x, bottom, 5);
    grid += Upright(x, bottom + 5, end - bottom);
  }
  svg_.Path("grid", grid);
  svg_.Path("axis", "M" + Pixels(Plot::kLeft) + " " + Pixels(bottom + 0.5) + "H" +
                        Pixels(Plot::kRight) + lines);
}

// Draws a flag for each chapter, above the times at the axis at `axis`, and its pole from there
// down to `end`.
void TimeLine::DrawChapters(double axis, double end) {
  constexpr double kTop = 38, kFlag = 9, kClosest = 3;
  double room = Plot::kRight + Plot::kMargin;
  std::string poles;
  std::size_t flags = 0;
  for (std::size_t last = chapters_.size(), first = 0; last > 0; last = first) {
    // Flags that would be in the same place are one.
    first = last - 1;
    const double x = plot_.At(StartOf(chapters_[first]));
    while (first > 0 && plot_.At(StartOf(chapters_[first - 1])) > x - kClosest) --first;
    const double left = plot_.At(StartOf(chapters_[first]));
    const Chapter& chapter = chapters_[first];
    Hover hover{
        "Chapter " + std::to_string(first + 1) + ": " + TimeText(chapter.start, chapter.scale),
        chapter.title};
    if (last - first > 1) hover.push_back("and " + Counted(last - first - 1, "more chapter"));
    const double top = axis - kTop;
    svg_.Path("flag",
              "M" + Pixels(left) + " " + Pixels(top) + "h2l" + Pixels(kFlag - 2) + " 4.5l-" +
                  Pixels(kFlag - 2) + " 4.5v10h-2z",
              hover);
    const std::string title = Fitted(chapter.title, room - left - kFlag - 10, 12);
    if (!title.empty()) svg_.Text("chapter", left + kFlag + 3, top + 9, title, hover);
    poles += Upright(left, axis, end - axis);
    ++flags;
    room = left;
  }
  if (flags != 0 && flags <= kMostPoles) svg_.Path("pole", poles);
}

// Draws what colors and signs mean, from `top` on. Returns its bottom.
double TimeLine::DrawLegend(Svg& svg, double top) {
  Legend legend(svg, top);
  const std::vector<SourceFile>& files = files_.All();
  const std::size_t count = std::min(files.size(), kMostFiles);
  std::vector<std::string> names;
  double widest = 0;
  for (std::size_t i = 0; i < count; ++i) {
    names.push_back(Fitted(files[i].name, 300, 12) + (files[i].isMissing ? " (missing)" : ""));
    widest = std::max(widest, WidthOf(names.back(), 12));
  }
  // More than fit into a line are in columns.
  const double column = count > 6 ? widest : 0;
  for (std::size_t i = 0; i < count; ++i) {
    const Box box = legend.Add(names[i], column, {files[i].path});
    svg.Rect(files[i].isMissing ? "missing" : ColorClass(i), box);
  }
  legend.EndLine();
  if (count < files.size()) {
    legend.AddLine("and " + Counted(files.size() - count, "more file"));
  }
  if (drawn_.hasEmpty) svg.Rect("empty", legend.Add("empty edit"));
  if (drawn_.hasSpeed) {
    const Box box = legend.Add("another speed");
    svg.Rect("f0", box);
    svg.Path("arrow", Arrows(box, 2));
  }
  if (drawn_.hasMerged) {
    const Box box = legend.Add("short edits");
    svg.Rect("mixed", box);
    svg.Rect("many", box);
  }
  if (drawn_.hasHidden) {
    const Box box = legend.Add("media that no edit shows");
    svg.Rect("f0", box);
    svg.Rect("hidden", box);
  }
  if (drawn_.hasSync)
    svg.Path("sample", From(legend.Add("sync samples"), 7) + "v12m5 -12v12m5 -12v12");
  if (!chapters_.empty()) svg.Path("flag", From(legend.Add("chapter"), 12) + "h2l7 4l-7 4v4h-2z");
  legend.EndLine();
  return legend.Bottom();
}

std::string TimeLine::Document(const Svg& rows, double height) const {
  const std::string size =
      "width=\"" + Pixels(Plot::kPage) + "\" height=\"" + Pixels(height) + "\"";
  return "<svg xmlns=\"http://www.w3.org/2000/svg\" " + size + " viewBox=\"0 0 " +
         Pixels(Plot::kPage) + " " + Pixels(height) + "\" role=\"img\">\n<title>" +
         XmlText("The time line of " + name_.filename().native()) + "</title>\n" + kPictureStyle +
         "<rect class=\"page\" " + size + "/>\n" + svg_.Elements() + rows.Elements() + "</svg>\n";
}

}  // namespace

int WritePicture(const Options& options) {
  const std::string& file = options.movies.front().file;
  try {
    OpenedMovie opened = OpenMovie(file);
    const std::string reason = utils::WriteTextFile(options.picture, TimeLine(opened).Picture());
    if (reason.empty()) return 0;
    std::cerr << "clipinfo: " << utils::Visible(options.picture) << ": " << reason << '\n';
  } catch (...) {
    std::cerr << "clipinfo: " << LineFor(CaughtFailure(file)) << '\n';
  }
  return 1;
}

}  // namespace clipinfo
