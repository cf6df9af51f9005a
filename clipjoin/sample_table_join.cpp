#include "clipjoin/sample_table_join.h"

#include <iostream>

#include "clipjoin/report.h"
#include "utils/owned.h"

namespace clipjoin {
namespace {

using toolbox::Media;
using toolbox::OSErr;
using toolbox::TimeValue;
using toolbox::Track;

constexpr OSErr kDifferentTimeScales = 1;

// Reports of failed steps name these lines, whatever lines the code is on, because users and
// scripts know them.
constexpr CallSite kGetMediaDataRefCount{"GetMediaDataRefCount", kClipjoinSource, 828};
constexpr CallSite kGetMediaDataRef{"GetMediaDataRef", kClipjoinSource, 834};
constexpr CallSite kAddMediaDataRef{"AddMediaDataRef", kClipjoinSource, 836};
constexpr CallSite kCreateMutable{"QTSampleTableCreateMutable", kClipjoinSource, 859};
constexpr CallSite kCopySampleTable{"CopyMediaMutableSampleTable", kClipjoinSource, 881};
constexpr CallSite kAddSampleTable{"AddSampleTableToMedia", kClipjoinSource, 883};
constexpr CallSite kGetProperty{"QTSampleTableGetProperty", kClipjoinSource, 888};
constexpr CallSite kInsertMedia{"InsertMediaIntoTrack", kClipjoinSource, 892};

using OwnedTable = utils::Owned<toolbox::SampleTableRecord, toolbox::QTSampleTableRelease>;

// Adds the data references of `source` to `media`. One that cannot be added is skipped: the samples
// bring their own.
void CopyDataReferences(Media source, Media media) {
  std::int16_t count = 0;
  Report(kGetMediaDataRefCount, toolbox::GetMediaDataRefCount(source, &count));
  for (std::int16_t number = 1; number <= count; ++number) {
    toolbox::Handle reference = nullptr;
    toolbox::FourCC type;
    if (Report(kGetMediaDataRef, toolbox::GetMediaDataRef(source, number, &reference, &type,
                                                          nullptr)) != toolbox::noErr) {
      continue;
    }
    Report(kAddMediaDataRef, toolbox::AddMediaDataRef(media, nullptr, reference, type));
    toolbox::DisposeHandle(reference);
  }
}

// Appends the samples of `source`, which last `duration` media units, to `media`. Returns the code
// of the step that failed, which has been reported; samples of earlier steps stay in the media.
OSErr AppendSamples(Media source, TimeValue duration, Media media) {
  toolbox::QTMutableSampleTableRef copy = nullptr;
  const toolbox::TimeScale scale = toolbox::GetMediaTimeScale(media);
  OSErr code =
      Report(kCreateMutable, toolbox::QTSampleTableCreateMutable(nullptr, scale, nullptr, &copy));
  OwnedTable table(copy);
  // A table has all samples up to the end, so this loop runs once. It does not rely on that: the
  // length of the table says where the next one has to start.
  for (TimeValue time = 0, length = 0; code == toolbox::noErr && time < duration; time += length) {
    code = Report(kCopySampleTable,
                  toolbox::CopyMediaMutableSampleTable(source, time, nullptr, 0, 0, &copy));
    if (code != toolbox::noErr) break;
    table.reset(copy);
    const std::int64_t count = toolbox::QTSampleTableGetNumberOfSamples(copy);
    code = Report(kAddSampleTable, toolbox::AddSampleTableToMedia(media, copy, 1, count, nullptr));
    if (code != toolbox::noErr) break;
    code = Report(kGetProperty, toolbox::QTSampleTableGetProperty(
                                    copy, toolbox::kQTPropertyClass_SampleTable,
                                    toolbox::kQTSampleTablePropertyID_TotalDecodeDuration,
                                    sizeof length, &length, nullptr));
  }
  return code;
}

}  // namespace

OSErr JoinTrackBySampleTable(Track track, Track source, bool quiet) {
  const Media media = toolbox::GetTrackMedia(track), sourceMedia = toolbox::GetTrackMedia(source);
  if (toolbox::GetMediaTimeScale(media) != toolbox::GetMediaTimeScale(sourceMedia)) {
    if (!quiet) std::cerr << "Different media time scales\n";
    return kDifferentTimeScales;
  }
  CopyDataReferences(sourceMedia, media);
  const TimeValue end = toolbox::GetMediaDecodeDuration(media);
  const TimeValue duration = toolbox::GetMediaDecodeDuration(sourceMedia);
  const OSErr code = AppendSamples(sourceMedia, duration, media);
  if (code != toolbox::noErr) return code;
  Report(kInsertMedia, toolbox::InsertMediaIntoTrack(track, -1, end, duration, toolbox::fixedOne));
  return toolbox::noErr;
}

OSErr myAppendTrack(Track track, Track source, TimeValue at, bool quiet) {
  // Asked before the join, which gives the track a length.
  const bool isEmpty = toolbox::GetTrackDuration(track) == 0;
  const OSErr code = JoinTrackBySampleTable(track, source, quiet);
  if (code != toolbox::noErr || !isEmpty) return code;
  toolbox::SetTrackOffset(track, at);
  return toolbox::GetMoviesError();
}

}  // namespace clipjoin
