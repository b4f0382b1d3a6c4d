#include "core/support/url.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

TEST(UrlTest, SplitsComponentsAndWritesThemBack) {
  const auto url = Url::parse("HTTPS://user:pw@Example.org:8443/a/b?q=1#frag");
  ASSERT_TRUE(url);
  EXPECT_EQ(*url, (Url{"HTTPS", "user:pw", "Example.org", true, 8443, "/a/b", "q=1", "frag"}));
  EXPECT_EQ(url->text(), "HTTPS://user:pw@Example.org:8443/a/b?q=1#frag");
  EXPECT_EQ(Url::parse("https://[::1]/x")->text(), "https://[::1]/x");
}

TEST(UrlTest, HostsAndPathsOfOddForms) {
  const std::tuple<const char*, std::optional<std::string>, std::string> cases[] = {
      // text, host (absent: none), path
      {"about:blank", {}, "blank"},
      {"https:///path", {}, "/path"},
      {"https://[::1]:80/", "::1", "/"},
      {"https://example.org", "example.org", ""},
      {"https://example.org/", "example.org", "/"},
      // Encoded as an address bar would, then parsed.
      {"https://de.wikipedia.org/wiki/K\u00F6ln 100%", "de.wikipedia.org",
       "/wiki/K%C3%B6ln%20100%25"},
      {"https://exa mple.org/", "exa mple.org", "/"}};
  for (const auto& [text, host, path] : cases) {
    const auto url = Url::parse(text);
    ASSERT_TRUE(url) << text;
    EXPECT_EQ(url->hasHost ? std::optional(url->host) : std::nullopt, host) << text;
    EXPECT_EQ(url->path, path) << text;
  }
  EXPECT_FALSE(Url::parse("no scheme here") || Url::parse("") || Url::parse("https://x.org:80x/"));
}

// Case, dots, user parts and schemes are covered by the exclusion tests (TabPolicy); here,
// forms on either side of where the shortcut hands over to the full parser.
TEST(UrlTest, SafeHttpHostAgreesWithTheFullParser) {
  const std::pair<const char*, std::optional<std::string_view>> cases[] = {
      {"HTTP://Example.org.:80/?q#f", "example.org"},
      {"https://.example.org./p%20q#f", "example.org"},
      {"https://example.org/#a#b", {}},
      {"https://ex%61mple.org/", "example.org"},  // only the full parser decodes
      {"https://example.org/a b", "example.org"},
      {"https://[::1]/", "::1"},
      {"https:///path", {}},
      {"https://example.org:1234567890/", {}},
      {"https://\u00c4RZTE.Example/", "xn--rzte-koa.example"},
      {"https://XN--RZTE-KOA.example/", "xn--rzte-koa.example"},
      {"https://xn--zz.example/", {}}};
  std::string buffer;
  for (const auto& [text, host] : cases) {
    EXPECT_EQ(safeHttpHost(text, buffer), host) << text;
    EXPECT_EQ(parsedHttpHost(text, buffer), host) << text;
  }
}

}  // namespace
}  // namespace velto
