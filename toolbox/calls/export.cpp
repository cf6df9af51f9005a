// Exporters: movies written as files of other types.
#include <memory>

#include "toolbox/calls/call.h"
#include "toolbox/calls/data_references.h"
#include "toolbox/calls/references.h"
#include "toolbox/mpeg4/export_mpeg4.h"
#include "toolbox/toolbox.h"
#include "toolbox/write/storage.h"

namespace toolbox {
namespace {

// The only exporter: component type and subtype. The subtype is also the type of its files.
constexpr FourCC kExporter{"spit"}, kMpeg4{"mpg4"};

}  // namespace

OSErr OpenADefaultComponent(FourCC type, FourCC subtype, MovieExportComponent* component) {
  *component = nullptr;
  return Call(__func__, [&] {
    if (type != kExporter || subtype != kMpeg4) throw Refused{cantFindHandler};
    *component = std::make_unique<Mpeg4Settings>().release();
  });
}

OSErr CloseComponent(MovieExportComponent component) {
  return Call(__func__, [&] { delete &Valid(component); });
}

OSErr MovieExportSetSettingsFromAtomContainer(MovieExportComponent component, Handle settings) {
  return Call(__func__, [&] {
    Mpeg4Settings& exporter = Valid(component);
    exporter = ReadMpeg4Settings(Valid(settings).bytes);
  });
}

OSErr ConvertMovieToDataRef(Movie movie, Track only, Handle dataRef, FourCC dataRefType,
                            FourCC fileType, FourCC, std::uint32_t,
                            MovieExportComponent component) {
  return Call(__func__, [&] {
    const MovieRecord& record = Valid(movie);
    const boost::filesystem::path path = PathOf(dataRef, dataRefType);
    if (fileType != kMpeg4) throw Refused{featureUnsupported};
    // Without an exporter the settings are the defaults.
    const Mpeg4Settings settings = component != nullptr ? *component : Mpeg4Settings();
    WriteNewFile(record, {.movieFirst = true, .compress = false}, path, Existing::kReplace,
                 [&](std::uint64_t unit) { return PlanMpeg4(record, only, settings, unit); });
  });
}

}  // namespace toolbox
