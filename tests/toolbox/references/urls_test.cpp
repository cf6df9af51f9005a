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

}  // namespace
}  // namespace toolbox
