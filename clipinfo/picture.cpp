#include <algorithm>
#include <cmath>
#include <iostream>

#include "chapter/chapter_list.h"
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
constexpr std::size_t kMostRows = 40, kMostFiles = 32;
constexpr double kRowGap = 18;

std::string Counted(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// "M x top v height": a vertical line in the middle of a pixel.
std::string Upright(double x, double top, double height) {
  return "M" + Pixels(std::floor(x) + 0.5) + " " + Pixels(top) + "v" + Pixels(height);
}

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
    // A list of chapters adds a track for them, which is not drawn.
    const chapter::ChapterList list(&movie_);
    chapters_ = chapter::ReadChapters(&movie_);
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
    DrawChapters(top - 32, bottom);
    const double end = DrawLegend(rows, bottom + 20);
    return Document(rows, end);
  }

 private:
  static double StartOf(const Chapter& chapter) {
    return static_cast<double>(chapter.start) / chapter.scale;
  }

  void DrawHead();
  double DrawRows(double top);
  void DrawAxis(double bottom, double end);
  void DrawChapters(double bottom, double end);
  double DrawLegend(Svg& svg, double top);
  std::string Document(const Svg& rows, double height) const;

  toolbox::MovieRecord& movie_;
  boost::filesystem::path name_;
  MediaFiles files_;
  std::vector<std::vector<FileRun>> runs_;  // by track
  std::vector<std::string> names_;  // by track
  std::vector<Chapter> chapters_;  // by time
  Plot plot_;
  Svg svg_;
  Drawn drawn_;
};

void TimeLine::DrawHead() {
  const std::vector<MediaFile>& files = files_.All();
  const auto missing = std::ranges::count_if(files, &MediaFile::isMissing);
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
      1,       2,           5,           10,          20,           50,          100,
      200,     500,         1000,        2000,        5000,         10000,       15000,
      30000,   60000,       120000,      300000,      600000,       900000,      1800000,
      3600000, 2 * 3600000, 4 * 3600000, 6 * 3600000, 12 * 3600000, 24 * 3600000};
  constexpr double kRoom = 80;  // pixels for a time
  const double most = Plot::kWidth / kRoom, length = plot_.seconds * 1000;
  if (!(length > 0)) return;
  const auto* found = std::ranges::find_if(
      kSteps, [&](std::int64_t step) { return length / static_cast<double>(step) <= most; });
  std::int64_t step = found == std::end(kSteps) ? kSteps[std::size(kSteps) - 1] : *found;
  while (length / static_cast<double>(step) > most) step *= 10;
  std::string lines, grid;
  for (std::int64_t time = 0; static_cast<double>(time) <= length; time += step) {
    const double x = plot_.At(static_cast<double>(time) / 1000);
    svg_.Text("time middle", x, bottom - 6, TimeText(time, 1000));
    lines += Upright(x, bottom, 5);
    grid += Upright(x, bottom + 5, end - bottom);
  }
  svg_.Path("grid", grid);
  svg_.Path("axis", "M" + Pixels(Plot::kLeft) + " " + Pixels(bottom + 0.5) + "H" +
                        Pixels(Plot::kRight) + lines);
}

// Draws a flag for each chapter, above `bottom`, and its pole down to `end`.
void TimeLine::DrawChapters(double bottom, double end) {
  constexpr double kTop = 20, kFlag = 9, kClosest = 3;
  double room = Plot::kRight + Plot::kMargin;
  std::string poles;
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
    const double top = bottom - kTop;
    svg_.Path("flag",
              "M" + Pixels(left) + " " + Pixels(top) + "h2l" + Pixels(kFlag - 2) + " 4.5l-" +
                  Pixels(kFlag - 2) + " 4.5v10h-2z",
              hover);
    const std::string title = Fitted(chapter.title, room - left - kFlag - 10, 12);
    if (!title.empty()) svg_.Text("chapter", left + kFlag + 3, top + 9, title, hover);
    poles += Upright(left, bottom, end - bottom);
    room = left;
  }
  if (!poles.empty()) svg_.Path("pole", poles);
}

// What colors and signs mean, in lines from `top` on. Returns its bottom.
double TimeLine::DrawLegend(Svg& svg, double top) {
  constexpr double kSample = 24, kLine = 22;
  double x = Plot::kLeft;
  double y = top;
  const auto entry = [&](const std::string& text, const Hover& hover, auto&& draw) {
    const double width = kSample + 6 + WidthOf(text, 12) + 18;
    if (x > Plot::kLeft && x + width > Plot::kRight) {
      x = Plot::kLeft;
      y += kLine;
    }
    draw(Box{x, y, kSample, 12});
    svg.Text("legend", x + kSample + 6, y + 10, text, hover);
    x += width;
  };
  const auto line = [&] {
    if (x > Plot::kLeft) y += kLine;
    x = Plot::kLeft;
  };
  const auto filled = [&](const std::string& classes, const std::string& over = {}) {
    return [&svg, classes, over](const Box& box) {
      svg.Rect(classes, box);
      if (!over.empty()) svg.Rect(over, box);
    };
  };
  const std::vector<MediaFile>& files = files_.All();
  for (std::size_t i = 0; i < std::min(files.size(), kMostFiles); ++i) {
    const std::string name = Fitted(files[i].name, 300, 12);
    entry(name + (files[i].isMissing ? " (missing)" : ""), {files[i].path},
          filled(files[i].isMissing ? "missing" : ColorClass(i)));
  }
  if (files.size() > kMostFiles) {
    svg.Text("legend", x, y + 10, "and " + Counted(files.size() - kMostFiles, "more file"));
    x += 100;
  }
  line();
  const auto stroke = [&svg](const char* classes, const std::string& path) {
    return [&svg, classes, path](const Box& box) {
      svg.Path(classes, "M" + Pixels(box.x + 8) + " " + Pixels(box.y) + path);
    };
  };
  if (drawn_.hasEmpty) entry("empty edit", {}, filled("empty"));
  if (drawn_.hasSpeed) {
    entry("another speed", {}, [&svg](const Box& box) {
      svg.Rect("f0", box);
      svg.Path("arrow", Arrows(box, 2));
    });
  }
  if (drawn_.hasMerged) entry("short edits", {}, filled("mixed", "many"));
  if (drawn_.hasHidden) entry("media that no edit shows", {}, filled("f0", "hidden"));
  if (drawn_.hasSync) entry("sync sample", {}, stroke("sample", "v12m6 -12v12"));
  if (!chapters_.empty()) entry("chapter", {}, stroke("flag", "h2l7 4l-7 4v5h-2z"));
  line();
  return y;
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
