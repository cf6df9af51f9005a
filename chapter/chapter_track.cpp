// Building a chapter track.
#include <algorithm>
#include <iostream>
#include <tuple>
#include <utility>

#include "chapter/chapter.h"
#include "clipjoin/report.h"
#include "utils/tracks.h"
#include "utils/visible.h"

namespace chapter {
namespace {

using clipjoin::CallSite;
using clipjoin::kChapterSource;
using clipjoin::Report;
using toolbox::FourCC;
using toolbox::Handle;
using toolbox::Media;
using toolbox::Movie;
using toolbox::OSErr;
using toolbox::Track;

constexpr FourCC kChapters{"chap"}, kText{"text"}, kEncoding{"encd"};
constexpr FourCC kVisual{"eyes"}, kAudible{"ears"}, kMemory{"hndl"};

// Reports of failed steps name these lines, whatever lines the code is on.
constexpr CallSite kSetSampleData{"TextMediaSetTextSampleData", kChapterSource, 208};
constexpr CallSite kBeginEdits{"BeginMediaEdits", kChapterSource, 210};
constexpr CallSite kAddSample{"TextMediaAddTextSample", kChapterSource, 224};
constexpr CallSite kEndEdits{"EndMediaEdits", kChapterSource, 226};
constexpr CallSite kInsertMedia{"InsertMediaIntoTrack", kChapterSource, 230};
constexpr CallSite kAddReference{"AddTrackReference", kChapterSource, 261};

// units * to / from, rounded towards zero and limited to 64 bits. The product of all units might
// not fit into 64 bits, so whole seconds are converted by themselves.
std::int64_t Scaled(std::int64_t units, std::int64_t to, std::int64_t from) {
  const std::int64_t seconds = units / from, most = INT64_MAX / to - 1;
  if (seconds > most) return INT64_MAX;
  if (seconds < -most) return INT64_MIN;
  return seconds * to + units % from * to / from;
}

bool StartsBefore(const Chapter& a, const Chapter& b) {
  const std::int64_t second = a.start / a.scale, other = b.start / b.scale;
  return second != other ? second < other
                         : a.start % a.scale * std::int64_t{b.scale} <
                               b.start % b.scale * std::int64_t{a.scale};
}

// Removes the chapters that start after the end of the movie and prints the first of them. The
// chapters are sorted; `end` is in movie units.
void DropLate(std::vector<Chapter>& chapters, std::int64_t end, std::int32_t movieScale) {
  const auto late = std::ranges::find_if(chapters, [&](const Chapter& chapter) {
    return chapter.start > Scaled(end, chapter.scale, movieScale);
  });
  if (late == chapters.end()) return;
  std::cerr << "Chapter " << utils::Visible(late->title) << " starts after the end of the movie.\n";
  chapters.erase(late, chapters.end());
}

// Makes each chapter last until the next, and the last one until the end of the movie.
void SetDurations(std::vector<Chapter>& chapters, std::int64_t end, std::int32_t movieScale) {
  for (std::size_t i = 0; i + 1 < chapters.size(); ++i) {
    const Chapter& next = chapters[i + 1];
    Chapter& chapter = chapters[i];
    chapter.duration = Scaled(next.start, chapter.scale, next.scale) - chapter.start;
  }
  Chapter& last = chapters.back();
  last.duration = Scaled(end, last.scale, movieScale) - last.start;
}

// The time scale of the first chapter; a coarser one if a duration would need more than the 32 bits
// that a file has for it.
std::int32_t MediaScaleFor(const std::vector<Chapter>& chapters) {
  std::int32_t scale = chapters.front().scale;
  const auto hasRoom = [&](const Chapter& chapter) {
    return Scaled(chapter.duration, scale, chapter.scale) <= INT32_MAX;
  };
  while (scale > 1 && !std::ranges::all_of(chapters, hasRoom)) scale /= 2;
  return scale;
}

// Adds text media to the track. If the movie has no default data reference, the samples go to a
// block of memory, whatever `samples` says.
Media NewTextMedia(Movie movie, Track track, std::int32_t scale, Samples samples) {
  Handle place = nullptr;
  FourCC type;
  if (samples == Samples::kInMemory ||
      toolbox::GetMovieDefaultDataRef(movie, &place, &type) != toolbox::noErr) {
    // A handle data reference: no handle yet (4 bytes), no file name (1 byte), and a 'data' atom
    // without data.
    static constexpr std::uint8_t kNoData[] = {0, 0, 0, 8, 'd', 'a', 't', 'a'};
    place = toolbox::NewHandleClear(5);
    type = kMemory;
    std::ignore = toolbox::PtrAndHand(kNoData, place, sizeof kNoData);
  }
  const Media media = toolbox::NewTrackMedia(track, kText, scale, place, type);
  toolbox::DisposeHandle(place);
  return media;
}

// Adds the title of each chapter as a sample, in UTF-8. Returns false if a call failed, which has
// been reported.
bool AddSamples(Media media, const std::vector<Chapter>& chapters, std::int32_t scale) {
  const std::uint32_t encoding = toolbox::kCFStringEncodingUnicode;
  const OSErr code = Report(
      kSetSampleData,
      toolbox::TextMediaSetTextSampleData(toolbox::GetMediaHandler(media), &encoding, kEncoding));
  if (code != toolbox::noErr) return false;
  if (Report(kBeginEdits, toolbox::BeginMediaEdits(media)) != toolbox::noErr) return false;
  const auto add = [&](const Chapter& chapter) {
    constexpr toolbox::Rect kNoBox;  // the box of the track
    const auto size = static_cast<std::uint32_t>(chapter.title.size());
    const std::int64_t duration = Scaled(chapter.duration, scale, chapter.scale);
    return Report(kAddSample, toolbox::TextMediaAddTextSample(
                                  media, chapter.title.data(), size, 0, 0, 0, nullptr, nullptr,
                                  toolbox::teJustCenter, &kNoBox, toolbox::dfClipToTextBox, 0, 0, 0,
                                  nullptr, duration, nullptr)) == toolbox::noErr;
  };
  return std::ranges::all_of(chapters, add) &&
         Report(kEndEdits, toolbox::EndMediaEdits(media)) == toolbox::noErr;
}

bool RefersTo(Track track, Track target) {
  for (FourCC type = toolbox::GetNextTrackReferenceType(track, FourCC()); type != FourCC();
       type = toolbox::GetNextTrackReferenceType(track, type)) {
    for (std::int32_t left = toolbox::GetTrackReferenceCount(track, type); left > 0; --left) {
      if (toolbox::GetTrackReference(track, type, left) == target) return true;
    }
  }
  return false;
}

// Removes from the movie those text tracks of `replaced` that are disabled and that no other track
// refers to, because players would offer them as subtitles.
void Discard(const std::vector<Track>& replaced, Movie movie) {
  const std::vector<Track> tracks = utils::Tracks(movie);
  for (const Track old : tracks) {
    if (std::ranges::find(replaced, old) == replaced.end()) continue;
    if (toolbox::GetTrackEnabled(old) || utils::MediaType(old) != kText) continue;
    const auto refers = [old](Track track) { return track != old && RefersTo(track, old); };
    if (std::ranges::none_of(utils::Tracks(movie), refers)) toolbox::DisposeMovieTrack(old);
  }
}

}  // namespace

std::vector<Chapter> Arranged(std::vector<Chapter> chapters, Movie movie) {
  const std::int64_t end = toolbox::GetMovieDuration(movie);
  const std::int32_t movieScale = toolbox::GetMovieTimeScale(movie);
  std::ranges::stable_sort(chapters, StartsBefore);
  DropLate(chapters, end, movieScale);
  if (!chapters.empty()) SetDurations(chapters, end, movieScale);
  return chapters;
}

Track BuildChapterTrack(std::vector<Chapter> chapters, Movie movie, Samples samples) {
  chapters = Arranged(std::move(chapters), movie);
  if (chapters.empty()) return nullptr;
  const Track track = toolbox::NewMovieTrack(movie, 0, 0, 0);
  if (track == nullptr) return nullptr;
  toolbox::SetTrackEnabled(track, false);
  const std::int32_t scale = MediaScaleFor(chapters);
  const Media media = NewTextMedia(movie, track, scale, samples);
  if (!AddSamples(media, chapters, scale)) return nullptr;
  const Chapter& first = chapters.front();
  const std::int64_t start = Scaled(first.start, toolbox::GetMovieTimeScale(movie), first.scale);
  const OSErr code = Report(
      kInsertMedia, toolbox::InsertMediaIntoTrack(track, start, 0, toolbox::GetMediaDuration(media),
                                                  toolbox::fixedOne));
  return code == toolbox::noErr ? track : nullptr;
}

OSErr AddChapterReference(Movie movie, Track chapterTrack, Track target) {
  constexpr std::int32_t kEnabledOfKind =
      toolbox::movieTrackCharacteristic | toolbox::movieTrackEnabledOnly;
  for (const FourCC kind : {kVisual, kAudible}) {
    if (target == nullptr) target = toolbox::GetMovieIndTrackType(movie, 1, kind, kEnabledOfKind);
  }
  if (target == nullptr) return toolbox::trackNotInMovie;
  std::vector<Track> replaced;
  for (const Track track : utils::Tracks(movie)) {
    for (std::int32_t left = toolbox::GetTrackReferenceCount(track, kChapters); left > 0; --left) {
      replaced.push_back(toolbox::GetTrackReference(track, kChapters, left));
      std::ignore = toolbox::DeleteTrackReference(track, kChapters, left);
    }
  }
  std::erase(replaced, chapterTrack);
  const OSErr code =
      Report(kAddReference, toolbox::AddTrackReference(target, chapterTrack, kChapters, nullptr));
  if (code == toolbox::noErr) Discard(replaced, movie);
  return code;
}

OSErr AddChapterTrack(const std::vector<Chapter>& chapters, Movie movie, Track target,
                      Samples samples) {
  const Track track = BuildChapterTrack(chapters, movie, samples);
  if (track == nullptr) return toolbox::GetMoviesError();
  return AddChapterReference(movie, track, target);
}

}  // namespace chapter
