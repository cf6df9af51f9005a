#include "utils/mpeg4_export.h"

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <iostream>
#include <thread>
#include <tuple>

#include "clipjoin/report.h"
#include "utils/movie_file.h"
#include "utils/mpeg4_compatibility.h"
#include "utils/owned.h"

namespace utils {
namespace {

using clipjoin::CallSite;
using clipjoin::kUtilsSource;
using clipjoin::QTError;
using clipjoin::Report;
using toolbox::FourCC;

constexpr FourCC kMpeg4{"mpg4"};

// The settings are built at compile time, from the leaves up. Each of these functions returns
// bytes.

template <std::size_t... Sizes>
consteval auto Joined(const std::array<std::uint8_t, Sizes>&... parts) {
  std::array<std::uint8_t, (std::size_t{0} + ... + Sizes)> whole{};
  [[maybe_unused]] auto at = whole.begin();  // unused if there are no parts
  ((at = std::copy(parts.begin(), parts.end(), at)), ...);
  return whole;
}

template <std::size_t kSize>
consteval std::array<std::uint8_t, kSize> BigEndian(std::uint64_t value) {
  std::array<std::uint8_t, kSize> bytes{};
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte, value >>= 8) {
    *byte = static_cast<std::uint8_t>(value);
  }
  return bytes;
}
consteval auto U16(std::uint64_t value) { return BigEndian<2>(value); }
consteval auto U32(std::uint64_t value) { return BigEndian<4>(value); }
consteval auto Text(FourCC text) { return BigEndian<4>(text.value); }

// A QuickTime atom: size, type, id, 0, number of children, 0, and the children or the values.
consteval auto QuickTimeAtom(FourCC type, std::uint16_t children, const auto& content) {
  return Joined(U32(20 + content.size()), Text(type), U32(1), U16(0), U16(children), U32(0),
                content);
}
consteval auto Parent(FourCC type, const auto&... children) {
  return QuickTimeAtom(type, sizeof...(children), Joined(children...));
}
consteval auto Leaf(FourCC type, const auto&... values) {
  return QuickTimeAtom(type, 0, Joined(values...));
}
// A classic atom, with size and type only, as in sound descriptions.
consteval auto Classic(FourCC type, const auto&... content) {
  return Joined(U32(8 + Joined(content...).size()), Text(type), content...);
}
// A descriptor (ISO/IEC 14496-1 8.3.3) with a length of four bytes, seven bits in each.
consteval auto Descriptor(std::uint8_t tag, const auto&... content) {
  return Joined(BigEndian<1>(tag), U32(0x80808000 | Joined(content...).size()), content...);
}

constexpr auto kDecoderConfig = Descriptor(
    4, BigEndian<1>(0x40), BigEndian<1>(0x15),  // MPEG-4 sound
    BigEndian<3>(6144), U32(128'000), U32(128'000),  // buffer, highest and average bit rate
    Descriptor(5, U16(0x1210)));  // AAC, low complexity, 44100 Hz, two channels
constexpr auto kSoundDecoder = Joined(
    Classic("frma", Text("mp4a")), Classic("mp4a", U32(0)),
    Classic("esds", U32(0),
            Descriptor(3, U16(0), BigEndian<1>(0), kDecoderConfig, Descriptor(6, BigEndian<1>(2)))),
    Classic("srcq", U32(64)), Classic(FourCC()), U32(0), U32(0xC5000000));

// On a scale from 0 to 0x400.
constexpr std::uint32_t kQuality = 0x300;
constexpr auto kVideo =
    Parent("vide", Leaf("sptl", Text("mp4v"), U32(0), U16(32), U32(kQuality)),
           // 30 frames a second, every 24th a key frame
           Leaf("tprl", U32(kQuality), U32(30 << 16), U32(24)),
           Leaf("drat", U32(112'500), U32(0), U32(kQuality), U32(kQuality)),  // bytes a second
           Leaf("cflg", U16(0x44)), Leaf("clut"), Leaf("vers", U32(0x00030019), U32(0)));
constexpr auto kSound = Parent("soun", Leaf("ssct", Text("mp4a")), Leaf("ssrt", U32(44'100U << 16)),
                               Leaf("ssss", U16(16)), Leaf("sscc", U16(2)),
                               Leaf("cdec", kSoundDecoder), Leaf("vers", U32(0x00030012), U32(0)));
constexpr auto kSettings =
    Joined(std::array<std::uint8_t, 12>{},
           Parent("sean", kVideo, kSound,  //
                  Leaf("envi", Text("past")), Leaf("enso", Text("past")),  // pass through
                  Leaf("conf", Text("isma")), Leaf("arat", U32(128)), Leaf("chan", U32(2)),
                  Leaf("aqlt", U32(64)), Leaf("hint", U32(1)), Leaf("psiz", U32(1450)),
                  Leaf("pdur", U32(100))));
static_assert(kSettings.size() == 703);

using OwnedExporter = Owned<toolbox::Mpeg4Settings, [](toolbox::MovieExportComponent exporter) {
  return toolbox::CloseComponent(exporter);
}>;

// Tries up to ten times, with pauses, while the file is busy or exists already. Prints every
// failure and counts only the last try.
template <class Try>
toolbox::OSErr Repeat(CallSite site, const Try& attempt) {
  constexpr int kMaxTries = 10;
  constexpr std::chrono::milliseconds kPause(100);
  for (int tries = 1;; ++tries) {
    const toolbox::OSErr code = attempt();
    const bool mayPass = code == toolbox::fBsyErr || code == toolbox::dupFNErr;
    if (!mayPass || tries == kMaxTries) return Report(site, code);
    std::cerr << QTError{site, code} << '\n';
    std::this_thread::sleep_for(kPause);
  }
}

// Removes the file that the export created and could not fill.
void RemoveEmpty(const std::string& path) {
  boost::system::error_code unknown;
  if (boost::filesystem::is_regular_file(path, unknown) &&
      boost::filesystem::file_size(path, unknown) == 0) {
    boost::filesystem::remove(path, unknown);
  }
}

}  // namespace

std::span<const std::uint8_t> ExportSettings() { return kSettings; }

toolbox::OSErr writeMovieToMPEG4(toolbox::Movie movie, const std::string& outputPath,
                                 bool showProgress) {
  if (!isMPEG4Compatible(movie)) return toolbox::featureUnsupported;
  toolbox::MovieExportComponent component = nullptr;
  Report({"OpenADefaultComponent", kUtilsSource},
         toolbox::OpenADefaultComponent("spit", kMpeg4, &component));
  const OwnedExporter exporter(component);
  toolbox::Handle settings = nullptr;
  std::ignore = toolbox::PtrToHand(kSettings.data(), &settings, kSettings.size());
  std::ignore = toolbox::MovieExportSetSettingsFromAtomContainer(component, settings);
  toolbox::DisposeHandle(settings);
  DataReference reference;
  Report({"PathToDataRef", kUtilsSource}, PathToDataRef(outputPath, reference));

  boost::system::error_code unknown;
  const bool isNew = !boost::filesystem::exists(outputPath, unknown);
  toolbox::DataHandler storage = nullptr;
  const toolbox::OSErr created = Repeat({"CreateMovieStorage", kUtilsSource},
                                        [&] { return CreateStorage(reference, &storage); });
  // Nothing is written to the storage. It only shows whether the file can be created. Closing it
  // leaves an empty file.
  std::ignore = toolbox::CloseComponent(storage);
  if (created == toolbox::fBsyErr) ExplainBusy(outputPath);

  const toolbox::OSErr converted = Repeat({"ConvertMovieToDataRef", kUtilsSource}, [&] {
    return WithProgress(movie, showProgress, [&] {
      return toolbox::ConvertMovieToDataRef(movie, nullptr, reference.handle, reference.type,
                                            kMpeg4, kCreator, 0, component);
    });
  });
  if (converted != toolbox::noErr && isNew) RemoveEmpty(outputPath);
  return toolbox::noErr;
}

}  // namespace utils
