#include "core/support/url.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

TEST(UrlTest, SplitsComponents) {
  const auto url = Url::parse("HTTPS://user:pw@Example.org:8443/a/b?q=1#frag");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->scheme, "HTTPS");
  EXPECT_EQ(url->userInfo, "user:pw");
  EXPECT_EQ(url->host, "Example.org");
  EXPECT_EQ(url->port, 8443u);
  EXPECT_EQ(url->path, "/a/b");
  EXPECT_EQ(url->query, "q=1");
  EXPECT_EQ(url->fragment, "frag");
  EXPECT_EQ(url->text(), "HTTPS://user:pw@Example.org:8443/a/b?q=1#frag");
}

TEST(UrlTest, HostlessAndIPLiteralForms) {
  EXPECT_FALSE(Url::parse("about:blank")->hasHost);
  EXPECT_FALSE(Url::parse("https:///path")->hasHost);
  EXPECT_EQ(Url::parse("https://[::1]:80/")->host, "::1");
  EXPECT_EQ(Url::parse("https://[::1]/x")->text(), "https://[::1]/x");
  EXPECT_EQ(Url::parse("https://example.org")->path, "");
  EXPECT_EQ(Url::parse("https://example.org/")->path, "/");
  EXPECT_FALSE(Url::parse("no scheme here"));
  EXPECT_FALSE(Url::parse(""));
}

TEST(UrlTest, EncodesWhatAnAddressBarWould) {
  const auto url = Url::parse("https://de.wikipedia.org/wiki/K\xC3\xB6ln 100%");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->path, "/wiki/K%C3%B6ln%20100%25");
  EXPECT_EQ(Url::parse("https://exa mple.org/")->host, "exa mple.org");
}

TEST(UrlTest, SafeHttpHostAgreesWithTheFullParser) {
  std::string buffer;
  const auto host = [&](std::string_view text) -> std::optional<std::string> {
    const auto found = safeHttpHost(text, buffer);
    if (!found) return std::nullopt;
    return std::string(*found);
  };
  EXPECT_EQ(host("https://WWW.Example.org/path?x=1#y"), "www.example.org");
  EXPECT_EQ(host("HTTP://example.org.:80"), "example.org");
  EXPECT_EQ(host("https://ex%61mple.org/"), "example.org");  // full parser decodes
  EXPECT_EQ(host("https://example.org/a b"), "example.org");
  EXPECT_EQ(host("https://[::1]/"), "::1");
  EXPECT_FALSE(host("ftp://example.org"));
  EXPECT_FALSE(host("https://user@example.org"));
  EXPECT_FALSE(host("https:///path"));
  EXPECT_FALSE(host("about:blank"));
  EXPECT_FALSE(host("https://example.org:1234567890/"));
}

}  // namespace
}  // namespace velto
