#include "clipinfo/findings.h"

#include <algorithm>
#include <variant>

namespace clipinfo {

using toolbox::Clock;
using toolbox::Edit;
using toolbox::MediaTime;

std::uint64_t CountOfSizes(const toolbox::SampleTableAtoms& table) {
  if (!table.sizes) return 0;
  return std::visit(
      [](const auto& sizes) -> std::uint64_t {
        if constexpr (requires { sizes.count; }) {
          return sizes.count;
        } else {
          return sizes.rows.Count();
        }
      },
      *table.sizes);
}

std::string SecondsText(std::int64_t units, std::int64_t scale) {
  const std::int64_t thousandths = toolbox::Rescale(units, scale, 1000);
  const auto size = static_cast<std::uint64_t>(thousandths < 0 ? -thousandths : thousandths);
  std::string digits = std::to_string(size % 1000);
  digits.insert(0, 3 - digits.size(), '0');
  return (thousandths < 0 ? "-" : "") + std::to_string(size / 1000) + "." + digits + " s";
}

std::string Counted(std::uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string WhenShown(const toolbox::TrackRecord& track, MediaTime time) {
  const Clock clock = track.TimeClock();
  for (const Edit& edit : track.edits.Edits()) {
    if (edit.IsEmpty() || edit.rate <= 0 || time < edit.mediaTime) continue;
    const toolbox::MovieTime into = clock.Lasting(time - edit.mediaTime, edit.rate);
    if (into <= edit.duration) return SecondsText((edit.start + into).units, clock.movie);
  }
  return SecondsText(time.units, clock.media);
}

}  // namespace clipinfo
