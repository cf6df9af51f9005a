#include "toolbox/mpeg4/export_mpeg4.h"

#include <numeric>

#include "tests/toolbox/movies.h"
#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/framing.h"
#include "toolbox/disk/output_file.h"
#include "toolbox/mpeg4/fold_rates.h"
#include "toolbox/mpeg4/mpeg4_descriptions.h"
#include "toolbox/mpeg4/session_description.h"
#include "toolbox/write/write_file.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kSound{"soun"};

// 128 kbit/s, AAC, low complexity, 44100 Hz, two channels; the short stream has sizes of one byte,
// the other of four.
const std::string kAac = "x4015000000 128000 128000 x05021210";
const Bytes kShortStream = Made("esds{ 0 x03190007000411 " + kAac + " x060102 }");
const Bytes kStream = Made("esds{ 0 x038080801F0000000480808011 " + kAac + " x068080800102 }");
const Bytes kWave = Made("wave{ frma{ 'mp4a' } mp4a{ 0 } $ 8 0 }", {kShortStream});

// QuickTime: version, channels, bits, compression, packet size, rate.
Bytes Sound(std::uint16_t version, std::uint16_t channels, std::uint32_t rate, const Bytes& more) {
  return Made("mp4a{ *6 3/2 $ *6 $ 16/2 $ 0/2 $ $ }",
              {U16(version), U16(channels), U16(version == 1 ? 0xFFFE : 0), U32(rate), more});
}

TEST(Mpeg4Description, OfSoundIsTheSameWhateverVersionQuickTimeWrote) {
  constexpr std::uint32_t kRate = 44100U << 16;
  const auto iso = [](std::uint32_t rate) {
    return Made("mp4a{ *6 3/2 *8 2/2 16/2 0 $ $ }", {U32(rate), kStream});
  };
  const Bytes layout = Made("chan{ 0 0x650002 }"), packets = Made("1024 2 2 2");
  const Bytes wide = Made("72 x40E5888000000000 2 0x7F000000 *12 1024");
  for (const Bytes& quickTime :
       {Sound(0, 2, kRate, kShortStream), Sound(0, 1, kRate, kWave),
        Sound(1, 1, kRate, Join(packets, layout, kWave)),
        Sound(1, 2, 0, kStream),  // an ISO writer that numbers its version 1
        Sound(2, 3, 0x10000, Join(wide, kWave, layout)), iso(kRate)}) {
    EXPECT_EQ(Mpeg4Description(quickTime, 44100), iso(kRate));
  }
  // The rate does not fit, and only the description has the channels.
  EXPECT_EQ(Mpeg4Description(Sound(0, 2, 0, kStream), 96000), iso(0));
}

Bytes Picture(const std::string& format, const Bytes& more, const std::string& said = "*16") {
  return Made(format + "{ *6 1/2 " + said +
                  " 640/2 360/2 0x480000 0x480000 0 1/2 4/1 'name' *27 24/2 0xFFFF/2 $ }",
              {more});
}
const Bytes kAvcConfig = Made("avcC{ x0164001EFFE1 4/2 'gabc' 1/1 2/2 'hd' }");

TEST(Mpeg4Description, OfPicturesKeepsWhatIsoKnows) {
  const Bytes quickTime = Picture("avc1",
                                  Made("gama{ 0x23333 } fiel{ x0100 } colr{ 'nclc' x000100010006 }"
                                       " $ pasp{ 1 1 } uuid{ *16 } 0",
                                       {kAvcConfig}),
                                  "1/2 2/2 'appl' 512 768");
  const Bytes iso =
      Picture("avc1", Made("colr{ 'nclx' x00010001000600 } $ pasp{ 1 1 }", {kAvcConfig}));
  EXPECT_EQ(Mpeg4Description(quickTime, 600), iso);
  EXPECT_EQ(Mpeg4Description(iso, 600), iso);
}

TEST(Mpeg4Description, IsRefusedWhereNothingTellsHowToDecode) {
  for (const auto& refused : std::vector<std::pair<Bytes, OSErr>>{
           {Sound(0, 2, 0, {}), invalidSampleDescription},
           {Sound(1, 2, 0, Made("*16 wave{ 8 0 }")), invalidSampleDescription},
           {Sound(0, 2, 0, Made("esds{ 0 3/1 }")), invalidSampleDescription},
           {Picture("avc1", kStream), invalidSampleDescription},
           {Picture("mp4v", kAvcConfig), invalidSampleDescription},
           {Picture("jpeg", {}), featureUnsupported}}) {
    const ByteSpan description = refused.first;
    EXPECT_EQ(CodeOf([&] { Mpeg4Description(description, 600); }), refused.second);
    for (std::size_t size = 0; size < description.size(); ++size) {
      EXPECT_NE(CodeOf([&] { Mpeg4Description(description.first(size), 600); }), noErr);
    }
  }
}

// A movie of sound and pictures in one file.
class Export : public InFolder {
 protected:
  Export() {
    Bytes media(5000);
    std::iota(media.begin(), media.end(), std::uint8_t{0});
    for (std::size_t at = 0; at < 4000; at += 2000) {  // two pictures, each of two NAL units
      std::ranges::copy(U32(1600), media.begin() + static_cast<std::ptrdiff_t>(at));
      media[at + 4] = 0x65;
      std::ranges::copy(U32(392), media.begin() + static_cast<std::ptrdiff_t>(at + 1604));
    }
    movie_.file = OtherFile{Store("media", media)};
    pictures_ = &AddPlainTrack(movie_, kVideo, 600, PlainRows(2, 300, 2000));
    pictures_->media->descriptions = {{Picture("avc1", kAvcConfig), 0}};
    sound_ = &AddPlainTrack(movie_, kSound, 44100, PlainRows(10, 1024, 100, 4000));
    sound_->media->descriptions = {{Sound(1, 2, 0, Join(Zeros(16), kWave)), 0}};
  }
  FilePlan Planned(bool hasHints = false) const {
    Mpeg4Settings settings;
    settings.hasHints = hasHints;
    return PlanMpeg4(movie_, nullptr, settings);
  }

  MovieRecord movie_;
  TrackRecord *pictures_ = nullptr, *sound_ = nullptr;
};

TEST_F(Export, StatesProfilesAndLevels) {
  const auto stated = [](const FilePlan& plan) {
    return FindSibling(plan.movie->siblings, FourCC{"iods"})->bytes;
  };
  EXPECT_EQ(stated(Planned()), Made("iods{ 0 x1080808007004FFFFF297FFF }"));
  EXPECT_EQ(stated(PlanMpeg4(movie_, sound_, {}))[22], 0xFF);
  EXPECT_EQ(stated(PlanMpeg4(movie_, pictures_, {}))[21], 0xFF);
}

TEST_F(Export, KeepsTheChapters) {
  constexpr FourCC kChapters{"chap"};
  std::vector<TrackRecord*> texts;
  for (const std::uint32_t count : {1U, 1U, 0U}) {  // only the first two become part of the file
    texts.push_back(&AddPlainTrack(movie_, FourCC{"text"}, 600, PlainRows(count, 600, 10)));
    texts.back()->media->descriptions = {{Made("text{ *6 1/2 *43 }"), 0}};
    sound_->Refer(kChapters, *texts.back());
  }
  pictures_->Refer(kChapters, *texts[0]);
  using Chapters = std::vector<TrackRecord*>;
  const FilePlan plan = Planned(true);
  const auto& tracks = plan.movie->tracks;
  ASSERT_EQ(tracks.size(), 6U) << "with two hint tracks at the end";
  EXPECT_EQ(tracks[0]->references.at(0).targets, Chapters{tracks[2].get()});
  EXPECT_EQ(tracks[1]->references.at(0).targets, (Chapters{tracks[2].get(), tracks[3].get()}));
  EXPECT_EQ(tracks[2]->header.flags, 6U);
  sound_->header.flags = 0;  // a track that is left out passes its chapters on
  const FilePlan silent = Planned();
  EXPECT_EQ(silent.movie->tracks[0]->references.at(0).targets.size(), 2U);
  auto nowhere = std::make_shared<SampleRows>();
  nowhere->count = 1;
  nowhere->AddTimes(1, 600);
  texts[1]->media->samples = SampleTable(nowhere);
  EXPECT_EQ(CodeOf([&] { Planned(); }), invalidSampleTable);
}

TEST_F(Export, NamesLanguagesAsIsoDoes) {
  constexpr std::uint16_t kLanguages[][2] = {
      {0, 0x15C7}, {46, 0x08AC}, {47, 0x55C4}, {0x7FFF, 0x55C4}, {0x15C7, 0x15C7}};
  for (const auto& [quickTime, iso] : kLanguages) {
    pictures_->media->header.language = quickTime;
    EXPECT_EQ(Planned().movie->tracks[0]->media->header.language, iso) << quickTime;
  }
}

TEST_F(Export, HasABrandThatAllowsNegativeOffsets) {
  EXPECT_EQ(FileTypeOf(Planned()), Made("ftyp{ 'mp42' 0 'mp42isommp41avc1' }"));
  auto rows = PlainRows(2, 300, 2000);
  rows->AddOffsets(1, -100);
  rows->AddOffsets(1, 0);
  pictures_->media->samples = SampleTable(rows);
  const FilePlan plan = Planned();
  EXPECT_EQ(FileTypeOf(plan), Made("ftyp{ 'mp42' 0 'mp42isommp41avc1iso4' }"));
  const Bytes header = MovieWriter(plan, folder_ / "out.mp4").Encode(0);
  EXPECT_TRUE(Contains(header, Made("ctts{ 0x1000000 2 1 -100 1 0 }")));
}

// Folding speeds

// The folded track in one line: its time scale, the samples as number x duration, and the edits.
std::string Folded(std::int32_t scale, std::uint32_t delta, const std::vector<Edit>& edits) {
  MovieRecord movie;
  TrackRecord& track = AddPlainTrack(movie, kVideo, scale, PlainRows(10, delta, 10));
  track.edits = {};
  for (const Edit& edit : edits) {
    track.edits.Append(edit.duration, edit.mediaTime, edit.rate, track.TimeClock());
  }
  FoldRates(track);
  std::ostringstream text;
  text << track.media->header.scale;
  const SampleTable& samples = track.media->samples;
  ForEachPiece(samples, {0, samples.Count()}, [&](const SamplePiece& piece) {
    text << " " << piece.count << "@" << piece.offset;
  });
  ForEachTime(samples,
              [&](std::uint32_t count, std::int64_t each) { text << " " << count << "x" << each; });
  return text.str() + " | " + Told(track.edits);
}

TEST(FoldRates, MakesSamplesAsLongAsTheyAreShown) {
  EXPECT_EQ(Folded(60000, 6000, {{{}, {300}, {0}, 2.0}}), "60000 10@0 10x3000 | 0+300");
  // A third of the speed from the middle of the third sample on.
  EXPECT_EQ(Folded(60000, 6000, {{{}, {360}, {15000}, 1.0 / 3}}), "60000 3@20 3x18000 | 9000+360");
  // What is shown at several speeds is there once for each.
  EXPECT_EQ(
      Folded(60000, 6000,
             {{{}, {120}, {0}}, {{}, {60}, {-1}}, {{}, {120}, {0}, 2.0}, {{}, {30}, {6000}, 0.0}}),
      "60000 2@0 4@0 1@10 2x6000 4x3000 1x6000 | 0+120 gap+60 12000+120 24000+30x0");
  // A coarse scale becomes fine, but not if there is nothing to fold.
  EXPECT_EQ(Folded(24, 1, {{{}, {250}, {0}}}), "24 10@0 10x1 | 0+250");
  EXPECT_EQ(Folded(24, 1, {{{}, {80}, {0}, 3.0}}), "90000 10@0 10x1250 | 0+80");
}

// Hints

TEST_F(Export, AHintTrackThatCannotBeMadeIsLeftOut) {
  const auto hints = [&](std::uint32_t packetSize) {
    Mpeg4Settings settings;
    settings.hasHints = true;
    settings.packetSize = packetSize;
    return PlanMpeg4(movie_, nullptr, settings).made.size();
  };
  EXPECT_EQ(hints(1450), 2U);
  EXPECT_EQ(hints(20), 0U);
  Bytes media = Stored(folder_ / "media");
  media[0] = 0xFF;  // a unit that is longer than its picture
  Store("media", media);
  EXPECT_EQ(hints(1450), 1U);
  sound_->media->samples = SampleTable(PlainRows(1, 1024, 1 << 10));  // in pieces
  EXPECT_EQ(hints(100), 1U);
  fs::resize_file(folder_ / "media", 10000);
  sound_->media->samples = SampleTable(PlainRows(1, 1024, 1 << 13));
  EXPECT_EQ(hints(1450), 0U);
}

TEST_F(Export, MediaThatChangesWhileItIsWrittenIsNoticed) {
  const FilePlan plan = Planned(true);
  Bytes media = Stored(folder_ / "media");
  std::ranges::copy(U32(100), media.begin());  // and then a unit of length 0x64, and so on
  Store("media", media);
  OutputFile output(folder_ / "out.mp4");
  EXPECT_NE(CodeOf([&] { WriteFile(plan, {true, false}, folder_ / "out.mp4", output); }), noErr);
}

// Settings

Bytes Setting(const std::string& type, std::uint16_t children, const Bytes& content) {
  return Made("$ $ 1 0/2 $ 0 $", {U32(static_cast<std::uint32_t>(20 + content.size())), Text(type),
                                  U16(children), content});
}

TEST(Mpeg4Settings, AreReadOutOfTheirTree) {
  const Bytes container =
      Join(Zeros(12),
           Setting("sean", 4,
                   Join(Setting("vide", 1, Setting("hint", 0, U32(0))), Setting("hint", 0, U32(1)),
                        Setting("psiz", 0, U32(500)), Setting("enso", 0, Text("past")))));
  const Mpeg4Settings settings = ReadMpeg4Settings(container);
  EXPECT_TRUE(settings.hasHints && settings.keepsCoding);
  EXPECT_EQ(settings.packetSize, 500U);
  EXPECT_EQ(settings.packetDuration, 100U);
  for (std::size_t size = 0; size < container.size(); ++size) {
    if (size == 12) continue;  // a container of nothing
    EXPECT_EQ(CodeOf([&] { ReadMpeg4Settings(ByteSpan(container).first(size)); }), paramErr);
  }
  EXPECT_FALSE(
      ReadMpeg4Settings(Join(Zeros(12), Setting("sean", 1, Setting("envi", 0, Text("mp4v")))))
          .keepsCoding);
}

}  // namespace
}  // namespace toolbox
