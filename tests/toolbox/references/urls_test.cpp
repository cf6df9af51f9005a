#include "toolbox/references/urls.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

using namespace std::string_literals;

TEST(Url, LeadsToAPathOnThisHost) {
  const std::vector<std::pair<std::string, std::optional<boost::filesystem::path>>> urls = {
      {"file:///m/a%20b.mov\0ignored"s, "/m/a b.mov"},
      {"FILE://LocalHost/m/%C3%a9.mov", "/m/\u00E9.mov"},
      {"file:/m/./x/../a.mov", "/m/a.mov"},
      {"/m/100%.mov", "/m/100%.mov"},
      {"/m/%4", "/m/%4"},
      {"a.mov", "/no/such/a.mov"},
      {"../in/a%3Ab?#.mov", "/no/in/a:b?#.mov"},
      {"in/a:b.mov", "/no/such/in/a:b.mov"},
      {"http://localhost/a.mov", {}},
      {"file://elsewhere/a.mov", {}},
      {"file:a.mov", {}},
      {"file://localhost", {}},
      {"/m/a%00.mov", {}},
      {"", {}},
  };
  for (const auto& [url, path] : urls) {
    EXPECT_EQ(ResolveUrl(Text(url), "/no/such/ref.mov"), path) << url;
  }
  EXPECT_EQ(ResolveUrl(Text("a.mov"), ""), std::nullopt);
}

TEST(Url, IsRelativeInTheFolderOfTheMovie) {
  const std::vector<std::pair<boost::filesystem::path, std::string>> paths = {
      {"/m/a b%\u00E9.mov", "a%20b%25%C3%A9.mov"},
      {"/m/in/a:b?#.mov", "in/a%3Ab%3F%23.mov"},
      {"/else/a.mov", "file:///else/a.mov"},
  };
  for (const auto& [path, url] : paths) {
    EXPECT_EQ(FileUrl(path, "/m/ref.mp4"), Text(url + '\0'));
    EXPECT_EQ(ResolveUrl(FileUrl(path, "/m/ref.mp4"), "/m/ref.mp4"), path);
  }
}

}  // namespace
}  // namespace toolbox
