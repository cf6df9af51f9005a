#include "toolbox/references/urls.h"

#include <boost/algorithm/string/predicate.hpp>
#include <charconv>
#include <string>
#include <string_view>

#include "toolbox/references/real_path.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;

// Decodes percent escapes, RFC 3986 2.1. A '%' without two hexadecimal digits stays.
std::string PercentDecoded(std::string_view text) {
  std::string decoded;
  while (!text.empty()) {
    std::uint8_t byte = 0;
    const char* digits = text.data() + 1;
    if (text[0] == '%' && text.size() > 2 &&
        std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      decoded += static_cast<char>(byte);
      text.remove_prefix(3);
    } else {
      decoded += text[0];
      text.remove_prefix(1);
    }
  }
  return decoded;
}

// Encodes all bytes but the unreserved characters of RFC 3986 2.3 and '/'.
std::string PercentEncoded(std::string_view path) {
  static constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/";
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : path) {
    const auto byte = static_cast<std::uint8_t>(c);
    const bool isPlain = kPlain.find(c) != std::string_view::npos;
    encoded +=
        isPlain ? std::string(1, c) : std::string{'%', kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return encoded;
}

}  // namespace

std::optional<fs::path> ResolveUrl(ByteSpan url, const fs::path& referrer) {
  std::string_view text(reinterpret_cast<const char*>(url.data()), url.size());
  text = text.substr(0, text.find('\0'));
  // A ':' after the first '/' is part of a name, not the end of a scheme.
  const std::size_t mark = text.find_first_of(":/");
  const bool hasScheme = mark != std::string_view::npos && text[mark] == ':';
  if (hasScheme) {
    if (!boost::iequals(text.substr(0, mark), "file")) return {};
    text.remove_prefix(mark + 1);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const std::string_view host = text.substr(0, text.find('/'));
    if (!host.empty() && !boost::iequals(host, "localhost")) return {};
    text.remove_prefix(host.size());
  }
  const std::string path = PercentDecoded(text);
  if (path.empty() || path.find('\0') != std::string::npos) return {};
  if (path[0] == '/') return fs::path(path).lexically_normal();
  if (hasScheme || referrer.empty()) return {};
  return (RealPath(referrer).parent_path() / path).lexically_normal();
}

Bytes FileUrl(const fs::path& path, const fs::path& referrer) {
  const fs::path relative = path.lexically_relative(referrer.parent_path());
  const bool isBelow = !relative.empty() && *relative.begin() != "..";
  const std::string url =
      isBelow ? PercentEncoded(relative.native()) : "file://" + PercentEncoded(path.native());
  Bytes bytes(url.begin(), url.end());
  bytes.push_back(0);
  return bytes;
}

}  // namespace toolbox
