#include "clipjoin/sample_table_join.h"

#include <iostream>
#include <memory>

#include "clipjoin/report.h"

namespace clipjoin {
namespace {

using toolbox::Media;
using toolbox::OSErr;
using toolbox::TimeValue;
using toolbox::Track;

constexpr OSErr kDifferentTimeScales = 1;

// The lines that reports of failed steps name, whatever lines the steps stand in.
constexpr CallSite kGetMediaDataRefCount{"GetMediaDataRefCount", kClipjoinSource, 828};
constexpr CallSite kGetMediaDataRef{"GetMediaDataRef", kClipjoinSource, 834};
constexpr CallSite kAddMediaDataRef{"AddMediaDataRef", kClipjoinSource, 836};
constexpr CallSite kCreateMutable{"QTSampleTableCreateMutable", kClipjoinSource, 859};
constexpr CallSite kCopySampleTable{"CopyMediaMutableSampleTable", kClipjoinSource, 881};
constexpr CallSite kAddSampleTable{"AddSampleTableToMedia", kClipjoinSource, 883};
constexpr CallSite kGetProperty{"QTSampleTableGetProperty", kClipjoinSource, 888};
constexpr CallSite kInsertMedia{"InsertMediaIntoTrack", kClipjoinSource, 892};

struct Release {
  void operator()(toolbox::QTMutableSampleTableRef table) const {
    toolbox::QTSampleTableRelease(table);
  }
};
using OwnedTable = std::unique_ptr<toolbox::SampleTableRecord, Release>;

OSErr Reported(CallSite site, OSErr code) {
  Report(site, code);
  return code;
}

// Gives `media` the data references of `source`. One that fails is left out: the samples know
// where they lie.
void CopyDataReferences(Media source, Media media) {
  std::int16_t count = 0;
  if (Reported(kGetMediaDataRefCount, toolbox::GetMediaDataRefCount(source, &count)) != 0) return;
  for (std::int16_t number = 1; number <= count; ++number) {
    toolbox::Handle reference = nullptr;
    toolbox::FourCC type;
    std::int32_t attributes = 0;
    if (Reported(kGetMediaDataRef, toolbox::GetMediaDataRef(source, number, &reference, &type,
                                                            &attributes)) != toolbox::noErr) {
      continue;
    }
    Report(kAddMediaDataRef, toolbox::AddMediaDataRef(media, nullptr, reference, type));
    toolbox::DisposeHandle(reference);
  }
}

// Appends the samples of `source`, which last `duration`, to `media`.
OSErr AppendSamples(Media source, TimeValue duration, Media media) {
  toolbox::QTMutableSampleTableRef made = nullptr;
  const toolbox::TimeScale scale = toolbox::GetMediaTimeScale(media);
  const OSErr creating =
      Reported(kCreateMutable, toolbox::QTSampleTableCreateMutable(nullptr, scale, nullptr, &made));
  if (creating != toolbox::noErr) return creating;
  OwnedTable table(made);
  for (TimeValue time = 0; time < duration;) {
    if (const OSErr code = Reported(kCopySampleTable, toolbox::CopyMediaMutableSampleTable(
                                                          source, time, nullptr, 0, 0, &made));
        code != toolbox::noErr) {
      return code;
    }
    table.reset(made);
    const std::int64_t count = toolbox::QTSampleTableGetNumberOfSamples(made);
    if (const OSErr code = Reported(kAddSampleTable,
                                    toolbox::AddSampleTableToMedia(media, made, 1, count, nullptr));
        code != toolbox::noErr) {
      return code;
    }
    TimeValue length = 0;
    if (const OSErr code = Reported(
            kGetProperty,
            toolbox::QTSampleTableGetProperty(made, toolbox::kQTPropertyClass_SampleTable,
                                              toolbox::kQTSampleTablePropertyID_TotalDecodeDuration,
                                              sizeof(length), &length, nullptr));
        code != toolbox::noErr) {
      return code;
    }
    time += length;
  }
  return toolbox::noErr;
}

}  // namespace

OSErr JoinTrackBySampleTable(Track track, Track source) {
  const Media media = toolbox::GetTrackMedia(track), sourceMedia = toolbox::GetTrackMedia(source);
  if (toolbox::GetMediaTimeScale(media) != toolbox::GetMediaTimeScale(sourceMedia)) {
    std::cerr << "Different media time scales\n";
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

OSErr myAppendTrack(Track track, Track source, TimeValue at) {
  const bool isEmpty = toolbox::GetTrackDuration(track) == 0;
  const OSErr code = JoinTrackBySampleTable(track, source);
  if (code != toolbox::noErr || !isEmpty) return code;
  toolbox::SetTrackOffset(track, at);
  return toolbox::GetMoviesError();
}

}  // namespace clipjoin
