#include "clipinfo/compared.h"

#include <cstdio>

#include "toolbox/atoms/sample_entries.h"
#include "toolbox/mpeg4/mpeg4_descriptions.h"

namespace clipinfo {
namespace {

using toolbox::Bytes;

// The description as an MPEG-4 file has it; nothing if it has none.
std::optional<Bytes> InMpeg4(const Shown& row) {
  try {
    return toolbox::Mpeg4Description(row.Description().bytes, row.track->media->header.scale);
  } catch (const toolbox::Refused&) {
    return std::nullopt;
  }
}

bool DecodeAlike(const Shown& a, const Shown& b) {
  const toolbox::FourCC type = a.track->media->Type();
  if (toolbox::DecodeAlike(a.Description().bytes, b.Description().bytes, type)) return true;
  const auto one = InMpeg4(a), other = InMpeg4(b);
  return one && other && toolbox::DecodeAlike(*one, *other, type);
}

}  // namespace

bool Descriptions::AreAlike(const Shown& a, const Shown& b) {
  if (a_ != &a.Description() || b_ != &b.Description()) {
    a_ = &a.Description();
    b_ = &b.Description();
    areAlike_ = DecodeAlike(a, b);
  }
  return areAlike_;
}

std::string TimeText(Nanoseconds time) {
  constexpr Nanoseconds kMilli = kSecond / 1000;
  const Nanoseconds rounded = (time + kMilli / 2) / kMilli;
  char text[40];
  std::snprintf(text, sizeof(text), "%lld.%03lld s", static_cast<long long>(rounded / 1000),
                static_cast<long long>(rounded % 1000));
  return text;
}

std::string LengthText(Nanoseconds length) {
  if (length >= kSecond) return TimeText(length);
  char text[40];
  std::snprintf(text, sizeof(text), "%.*f ms", length < kSecond / 100 ? 2 : 1,
                static_cast<double>(length) / 1e6);
  return text;
}

std::string CountText(std::uint64_t count, const std::string& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? " is" : "s are");
}

}  // namespace clipinfo
