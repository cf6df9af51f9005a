#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <set>
#include <string_view>

#include "clipinfo/facts.h"
#include "clipinfo/modes.h"
#include "clipinfo/time_text.h"
#include "utils/visible.h"

namespace clipinfo {
namespace {

using utils::Visible;

constexpr std::size_t kScreen = 80;  // columns
constexpr std::size_t kMargin = 11;  // of the facts about the file

// The columns that a text takes on the screen: characters of UTF-8, not bytes.
std::size_t WidthOf(std::string_view text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char byte) { return (byte & 0xC0) != 0x80; }));
}

// The text in at least `width` columns.
std::string Padded(const std::string& text, std::size_t width, bool toTheRight = false) {
  const std::string spaces(width - std::min(width, WidthOf(text)), ' ');
  return toTheRight ? spaces + text : text + spaces;
}

// The text in at most `width` columns.
std::string Shortened(const std::string& text, std::size_t width) {
  if (WidthOf(text) <= width) return text;
  std::size_t end = 0;
  for (std::size_t columns = 0; end < text.size(); ++end) {
    const bool startsCharacter = (text[end] & 0xC0) != 0x80;
    if (startsCharacter && ++columns > width - 3) break;
  }
  return text.substr(0, end) + "...";
}

// Such as "29.97" or "48": at most `digits` after the point, and no zeros at the end.
std::string NumberText(double number, int digits) {
  char buffer[400];
  std::snprintf(buffer, sizeof buffer, "%.*f", digits, number);
  std::string text = buffer;
  if (digits > 0) {
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
  }
  return text;
}

// Such as "1.92 GB".
std::string SizeText(std::uint64_t bytes) {
  static constexpr const char* kUnits[] = {" B", " kB", " MB", " GB", " TB", " PB", " EB"};
  auto size = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; size >= 999.5; size /= 1000) ++unit;
  const int digits = unit == 0 || size >= 99.95 ? 0 : size >= 9.995 ? 1 : 2;
  return NumberText(size, digits) + kUnits[unit];
}

// Such as "1,234,567".
std::string Grouped(std::uint64_t number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > 3; text.insert(at, ",")) at -= 3;
  return text;
}

std::string Joined(const std::vector<std::string>& parts, const char* between = ", ") {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : between) + part;
  return text;
}

// Prints parts with commas between them, from column `column` on, where the line is already. A part
// that would go beyond the screen starts a new line.
void PrintParts(const std::vector<std::string>& parts, std::size_t column) {
  std::size_t at = column;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::string text = parts[i] + (i + 1 < parts.size() ? "," : "");
    if (i > 0 && at + 1 + WidthOf(text) > kScreen) {
      std::cout << '\n' << std::string(column, ' ');
      at = column;
    } else if (i > 0) {
      std::cout << ' ';
      ++at;
    }
    std::cout << text;
    at += WidthOf(text);
  }
  std::cout << '\n';
}

void PrintFact(const char* name, const std::vector<std::string>& parts) {
  std::cout << Padded(std::string("  ") + name, kMargin);
  PrintParts(parts, kMargin);
}

// A date as people read it. Empty if it is not known.
std::string ReadableDate(const char* what, std::uint64_t date) {
  std::string text = DateText(date);
  if (text.empty()) return text;
  text.replace(text.find('T'), 1, " ").replace(text.find('Z'), 1, " UTC");
  return what + text;
}

void PrintFile(const Facts& facts, const toolbox::MovieRecord& movie) {
  const FileFacts& file = facts.file;
  std::vector<std::string> parts{file.kind};
  if (file.type) {
    constexpr std::size_t kMost = 12;
    std::vector<std::string> brands;
    for (const std::string& brand : BrandsOf(*file.type)) {
      if (std::ranges::find(brands, brand) != brands.end() || brands.size() == kMost) continue;
      brands.push_back(brand);
    }
    for (std::string& brand : brands) brand.erase(brand.find_last_not_of(' ') + 1);
    parts.back() += " (" + Joined(brands, " ") + ")";
  }
  parts.push_back(Grouped(file.size) + " bytes");
  PrintFact("file", parts);
  PrintFact("duration", {TimeText(movie.Duration().units, movie.header.scale)});
  std::vector<std::string> dates{ReadableDate("created ", movie.header.created),
                                 ReadableDate("modified ", movie.header.modified)};
  std::erase(dates, "");
  // Raw AAC has no dates; the movie made of it has those of now.
  if (file.header && !dates.empty()) PrintFact("dates", dates);
}

void PrintHeader(const FileFacts& file) {
  if (!file.header) return;
  std::vector<std::string> parts{Grouped(file.header->size) + " bytes at " +
                                 Grouped(file.header->at)};
  parts.emplace_back(file.header->isCompressed ? "compressed" : "not compressed");
  if (file.isFragmented) parts.emplace_back("fragmented");
  parts.emplace_back(!file.hasMedia               ? "no media in this file"
                     : file.header->isBeforeMedia ? "before the media (fast start)"
                                                  : "after the media (no fast start)");
  PrintFact("header", parts);
}

std::string ExtentText(const Extent& extent) {
  return NumberText(extent.width, 2) + "x" + NumberText(extent.height, 2);
}

std::string ChannelsText(std::uint32_t channels) {
  if (channels == 1) return "mono";
  if (channels == 2) return "stereo";
  return std::to_string(channels) + " channels";
}

// What only some kinds of tracks have, and what is unusual.
std::vector<std::string> DetailsOf(const TrackFacts& track) {
  std::vector<std::string> details;
  if (!track.track->IsEnabled()) details.emplace_back("off");
  if (track.coded) details.push_back(ExtentText(*track.coded));
  if (track.shown && track.shown != track.coded) {
    details.push_back("shown " + ExtentText(*track.shown));
  }
  if (const auto& rates = track.frameRates) {
    const std::string lowest = NumberText(rates->lowest, 3);
    details.push_back(
        (rates->IsConstant() ? lowest : lowest + "-" + NumberText(rates->highest, 3)) + " fps");
  }
  if (track.sound) {
    if (track.sound->channels != 0) details.push_back(ChannelsText(track.sound->channels));
    details.push_back(NumberText(track.sound->rate / 1000, 3) + " kHz");
  }
  return details;
}

std::string CodecsText(const std::vector<std::string>& codecs) {
  constexpr std::size_t kMost = 3;
  std::vector<std::string> shown(
      codecs.begin(), codecs.begin() + static_cast<std::ptrdiff_t>(std::min(kMost, codecs.size())));
  if (codecs.size() > kMost) shown.push_back(std::to_string(codecs.size() - kMost) + " more");
  return codecs.empty() ? "-" : Visible(Joined(shown));
}

// The columns of the tracks. Numbers are aligned to the right.
struct Column {
  const char* title;
  bool isNumber;
};
constexpr Column kColumns[] = {{"#", true},        {"track", false},  {"codec", false},
                               {"lang", false},    {"samples", true}, {"bytes", true},
                               {"duration", true}, {"edits", true}};
constexpr std::size_t kWidest = 24;  // a longer text moves the rest of its line to the right

using Row = std::vector<std::string>;

std::string LineOf(const Row& row, const std::vector<std::size_t>& widths) {
  std::string line;
  for (std::size_t i = 0; i < row.size(); ++i) {
    line += "  " + Padded(row[i], widths[i], kColumns[i].isNumber);
  }
  return line;
}

void PrintTracks(const Facts& facts, const toolbox::MovieRecord& movie) {
  std::vector<Row> rows(1);
  for (const Column& column : kColumns) rows[0].emplace_back(column.title);
  for (const TrackFacts& track : facts.tracks) {
    const toolbox::EditList& edits = track.track->edits;
    rows.push_back({std::to_string(rows.size()), Visible(track.name), CodecsText(track.codecs),
                    track.language, std::to_string(track.samples), SizeText(track.bytes),
                    TimeText(edits.Duration().units, movie.header.scale),
                    std::to_string(edits.Edits().size())});
  }
  std::vector<std::size_t> widths(std::size(kColumns));
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], std::min(kWidest, WidthOf(row[i])));
    }
  }
  std::vector<std::string> lines, details(1);
  for (const Row& row : rows) lines.push_back(LineOf(row, widths));
  for (const TrackFacts& track : facts.tracks) details.push_back(Joined(DetailsOf(track)));
  // The details follow on the line of their track if there is room for those of all tracks.
  bool fit = true;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    fit = fit && WidthOf(lines[i]) + 2 + WidthOf(details[i]) <= kScreen;
  }
  const std::string between = fit ? "  " : "\n" + std::string(widths[0] + 4, ' ');
  std::cout << '\n';
  for (std::size_t i = 0; i < lines.size(); ++i) {
    std::cout << lines[i] << (details[i].empty() ? "" : between) << details[i] << '\n';
  }
}

void PrintChapters(const Facts& facts) {
  if (!facts.chapters) std::cout << "\n  chapters: too many to be read\n";
  if (!facts.chapters || facts.chapters->empty()) return;
  std::cout << "\n  chapters\n";
  std::vector<std::string> times;
  std::size_t width = 0;
  for (const chapter::Chapter& chapter : *facts.chapters) {
    times.push_back(TimeText(chapter.start, chapter.scale));
    width = std::max(width, times.back().size());
  }
  for (std::size_t i = 0; i < times.size(); ++i) {
    std::cout << "    " << Padded(times[i], width) << "  " << Visible((*facts.chapters)[i].title)
              << '\n';
  }
}

void PrintTags(const std::vector<TagFacts>& tags) {
  std::vector<std::pair<std::string, std::string>> lines;
  std::set<std::pair<std::string, std::string>> known;  // a text can be there in several forms
  std::size_t width = 0;
  for (const TagFacts& tag : tags) {
    std::string text = tag.text ? Visible(*tag.text) : SizeText(tag.bytes.size());
    if (!tag.text && tag.media) text += std::string(", ") + tag.media;
    if (!known.emplace(tag.name, text).second) continue;
    lines.emplace_back(Shortened(Visible(tag.name), kWidest), std::move(text));
    width = std::max(width, WidthOf(lines.back().first));
  }
  if (lines.empty()) return;
  std::cout << "\n  tags\n";
  for (const auto& [name, text] : lines) {
    std::cout << "    " << Padded(name, width) << "  " << Shortened(text, kScreen - 6 - width)
              << '\n';
  }
}

// The other files with media, each once.
void PrintReferences(const Facts& facts) {
  std::set<std::string> known;
  for (const TrackFacts& track : facts.tracks) {
    for (const ReferenceFacts& reference : track.references) {
      if (reference.kind != ReferenceFacts::Kind::kFile) continue;
      std::string line =
          reference.path.empty() ? "a file without a known path" : Visible(reference.path);
      if (!reference.isFound) line += "  missing";
      if (!known.insert(line).second) continue;
      std::cout << (known.size() == 1 ? "\n  files\n    " : "    ") << line << '\n';
    }
  }
}

}  // namespace

void PrintSummary(OpenedMovie opened) {
  const Facts facts = GatherFacts(opened);
  std::cout << Visible(opened.name) << '\n';
  PrintFile(facts, *opened.movie);
  PrintHeader(facts.file);
  PrintTracks(facts, *opened.movie);
  PrintChapters(facts);
  PrintTags(facts.tags);
  PrintReferences(facts);
}

}  // namespace clipinfo
